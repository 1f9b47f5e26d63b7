// The route-dump walk over byte fixtures with hostile lengths. Each fixture
// lives in an exactly sized heap block, so a sanitizer build also catches
// any read outside it. Which route wins is pinned by the system tests.
#include "net/route.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
constexpr unsigned char kDst = 1, kOif = 4, kGateway = 5;
const Bytes kGw1 = {192, 168, 1, 1}, kGw2 = {10, 0, 0, 2};
const std::string kText1 = "192.168.1.1", kText2 = "10.0.0.2", kNone = "0.0.0.0";
const std::string kKept = "untouched"; // the buffer's text before the walk

Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes b;
    for (const Bytes &p : parts)
        b.insert(b.end(), p.begin(), p.end());
    return b;
}

// An attribute padded to 4; `len` overrides rta_len.
Bytes Attr(unsigned char type, const Bytes &payload, int len = -1)
{
    Bytes b = {static_cast<unsigned char>(len < 0 ? 4 + payload.size() : len), 0, type, 0};
    b.insert(b.end(), payload.begin(), payload.end());
    b.resize((b.size() + 3) & ~std::size_t{3});
    return b;
}

// A main-table route message under 256 bytes; `len` overrides nlmsg_len.
Bytes Route(const Bytes &attrs, int len = -1, unsigned char family = 2)
{
    Bytes b = {static_cast<unsigned char>(len < 0 ? 28 + attrs.size() : len), 0, 0, 0, 24, 0, 2, 0};
    b.resize(16);
    return Cat({b, {family, 0, 0, 0, 254, 0, 0, 0, 0, 0, 0, 0}, attrs});
}

Bytes Cut(const Bytes &b, std::size_t n) { return Bytes(b.begin(), b.begin() + n); }

// The gateway text after a walk ("untouched" when none was written).
std::string Walk(const Bytes &dump)
{
    std::unique_ptr<unsigned char[]> exact(new unsigned char[dump.size()]);
    std::copy(dump.begin(), dump.end(), exact.get());
    char gw[32];
    std::memset(gw, '#', sizeof gw);
    std::strcpy(gw, kKept.c_str());
    walk_route_dump(exact.get(), dump.size(), gw);
    EXPECT_EQ(std::string(gw + 16, 16), std::string(16, '#')) << "wrote past 16 bytes";
    return std::string(gw, strnlen(gw, 16));
}

TEST(RouteWalk, HostileBytesStopTheWalkSafely)
{
    const Bytes def1 = Route(Attr(kGateway, kGw1)), def2 = Route(Attr(kGateway, kGw2));
    const struct {
        const char *name;
        Bytes dump;
        std::string gw;
    } rows[] = {
        {"a message past the end stops", Cat({def1, Route({}, 200)}), kText1},
        {"nlmsg_len 0 stops", Cat({Route({}, 0), def1}), kKept},
        {"nlmsg_len 15 stops", Cat({Cut(Route({}, 15), 16), def1}), kKept},
        {"trailing runt", Cat({def1, Bytes(15, 0xff)}), kText1},
        {"unaligned nlmsg_len padded", Cat({Route(Attr(kGateway, kGw1), 34), def2}), kText2},
        {"20 bytes hold no table", Cut(Route({}, 20), 20), kKept},
        {"21 bytes: a default without gateway", Cut(Route({}, 21), 21), kNone},
        {"nlmsg_len ends before the attribute", Route(Attr(kGateway, kGw1), 28), kNone},
        {"rta_len 0", Route(Cat({Attr(kOif, {}, 0), Attr(kGateway, kGw1)})), kNone},
        {"rta_len 1", Route(Cat({Attr(kOif, {}, 1), Attr(kGateway, kGw1)})), kNone},
        {"rta_len 2", Route(Cat({Attr(kOif, {}, 2), Attr(kGateway, kGw1)})), kNone},
        {"rta_len 3", Route(Cat({Attr(kOif, {}, 3), Attr(kGateway, kGw1)})), kNone},
        {"rta_len past the message", Route(Attr(kGateway, kGw1, 12), 36), kNone},
        {"gateway payload of 2 bytes", Route(Attr(kGateway, {192, 168}, 6)), kNone},
        {"destination payload of 2 bytes",
         Route(Cat({Attr(kGateway, kGw1), Attr(kDst, {10, 1}, 6)})), kText1},
        {"unknown types, odd lengths",
         Route(Cat({Attr(0xff, {9}), Attr(15, Bytes(5, 1)), Attr(kGateway, kGw1)})), kText1},
        {"nothing kept from the message before",
         Cat({Route(Cat({Attr(kDst, {10, 0, 0, 0}), Attr(kGateway, kGw2)})), Route({})}), kNone},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Walk(r.dump), r.gw) << r.name;

    // Every truncation of a dump: only whole messages count.
    const Bytes dump = Cat({def1, Route(Attr(kGateway, Bytes(16, 1)), -1, 10), def2});
    for (std::size_t n = 0; n <= dump.size(); ++n)
        EXPECT_EQ(Walk(Cut(dump, n)), n == dump.size() ? kText2 : n >= 36 ? kText1 : kKept) << n;
}

} // namespace
