// The route-dump walk over recorded-style byte fixtures: which message
// gives the gateway text, and that hostile lengths never make the walk read
// outside the gathered bytes (fixtures live in exactly sized heap blocks,
// so a sanitizer build catches any overread).
#include "net/route.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint16_t kDst = 1, kGateway = 5, kOif = 4, kPriority = 6;
constexpr std::uint8_t kInet = 2, kInet6 = 10, kMain = 254, kLocal = 255;
constexpr char kUntouched[] = "untouched";

void put16(Bytes &b, std::size_t at, std::uint16_t v)
{
    std::memcpy(&b[at], &v, 2);
}
void put32(Bytes &b, std::size_t at, std::uint32_t v)
{
    std::memcpy(&b[at], &v, 4);
}
void pad4(Bytes &b)
{
    b.resize((b.size() + 3) & ~std::size_t{3});
}

Bytes ip(int a, int b, int c, int d)
{
    return {static_cast<unsigned char>(a), static_cast<unsigned char>(b),
            static_cast<unsigned char>(c), static_cast<unsigned char>(d)};
}

// One attribute; `len` overrides rta_len (the payload bytes stay as given).
Bytes attr(std::uint16_t type, const Bytes &payload, int len = -1)
{
    Bytes b(4);
    put16(b, 0, static_cast<std::uint16_t>(len < 0 ? 4 + payload.size() : len));
    put16(b, 2, type);
    b.insert(b.end(), payload.begin(), payload.end());
    pad4(b);
    return b;
}

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes b;
    for (const Bytes &p : parts)
        b.insert(b.end(), p.begin(), p.end());
    return b;
}

// One RTM_NEWROUTE message; `len` overrides nlmsg_len. Padded to 4 only
// when its length is the true one.
Bytes route(std::uint8_t family, std::uint8_t table, const Bytes &attrs, long len = -1)
{
    Bytes b(28);
    put32(b, 0, static_cast<std::uint32_t>(len < 0 ? 28 + attrs.size() : len));
    put16(b, 4, 24);
    put16(b, 6, 2);
    b[16] = family;
    b[20] = table;
    b.insert(b.end(), attrs.begin(), attrs.end());
    if (len < 0)
        pad4(b);
    return b;
}

Bytes def(const Bytes &gw)
{
    return route(kInet, kMain, attr(kGateway, gw));
}

std::string walk(const Bytes &dump)
{
    std::unique_ptr<unsigned char[]> exact(new unsigned char[dump.size()]);
    if (!dump.empty())
        std::memcpy(exact.get(), dump.data(), dump.size());
    char gw[32];
    std::memset(gw, '#', sizeof gw);
    std::strcpy(gw, kUntouched);
    walk_route_dump(exact.get(), dump.size(), gw);
    // Nothing past the 16 bytes a dotted-decimal text can need is written.
    for (std::size_t i = 16; i < sizeof gw; ++i)
        EXPECT_EQ(gw[i], '#') << "byte " << i;
    return std::string(gw, strnlen(gw, 16));
}

struct Case {
    const char *name;
    Bytes dump;
    const char *want;
};

TEST(RouteWalk, PicksTheMainTableIpv4DefaultRoute)
{
    const Bytes gw1 = ip(192, 168, 1, 1), gw2 = ip(10, 0, 0, 2);
    const Bytes zero = ip(0, 0, 0, 0);
    const Case cases[] = {
        {"default via gateway", def(gw1), "192.168.1.1"},
        {"explicit 0.0.0.0 destination",
         route(kInet, kMain, cat({attr(kDst, zero), attr(kGateway, gw1)})), "192.168.1.1"},
        {"network route",
         route(kInet, kMain, cat({attr(kDst, ip(10, 0, 0, 0)), attr(kGateway, gw2)})), kUntouched},
        {"host route", route(kInet, kMain, cat({attr(kGateway, gw1), attr(kDst, ip(10, 0, 0, 9))})),
         kUntouched},
        {"later default wins", cat({def(gw1), def(gw2)}), "10.0.0.2"},
        {"non-default after default keeps it",
         cat({def(gw1),
              route(kInet, kMain, cat({attr(kDst, ip(10, 1, 0, 0)), attr(kGateway, gw2)}))}),
         "192.168.1.1"},
        {"default over a device only", route(kInet, kMain, attr(kOif, ip(2, 0, 0, 0))), "0.0.0.0"},
        {"nothing carried over from the message before",
         cat({route(kInet, kMain, cat({attr(kDst, ip(10, 0, 0, 0)), attr(kGateway, gw2)})),
              route(kInet, kMain, {})}),
         "0.0.0.0"},
        {"local table", route(kInet, kLocal, attr(kGateway, gw1)), kUntouched},
        {"policy table", route(kInet, 100, attr(kGateway, gw1)), kUntouched},
        {"ipv6 default", route(kInet6, kMain, attr(kGateway, Bytes(16, 0xfe))), kUntouched},
        {"unknown attributes skipped, odd lengths padded",
         route(kInet, kMain,
               cat({attr(0x7fff, Bytes(1, 9)), attr(15, Bytes(5, 1)), attr(kGateway, gw1),
                    attr(kPriority, ip(0, 0, 0, 7))})),
         "192.168.1.1"},
        {"empty dump", {}, kUntouched},
    };
    for (const Case &c : cases)
        EXPECT_EQ(walk(c.dump), c.want) << c.name;
}

TEST(RouteWalk, HostileLengthsStopWithoutReadingOutside)
{
    const Bytes gw1 = ip(192, 168, 1, 1), gw2 = ip(10, 0, 0, 2);
    Bytes past_end = route(kInet, kMain, attr(kGateway, gw2), 200);
    Bytes unaligned = route(kInet, kMain, cat({attr(kGateway, gw1), Bytes{7, 7}}), 38);
    unaligned.resize(40);
    const Bytes short_header = route(kInet, kMain, {}, 15);
    const Case cases[] = {
        {"message past the end, routes before count", cat({def(gw1), past_end}), "192.168.1.1"},
        {"nlmsg_len 0 stops the walk", cat({route(kInet, kMain, {}, 0), def(gw1)}), kUntouched},
        {"nlmsg_len 15 stops the walk",
         cat({Bytes(short_header.begin(), short_header.begin() + 16), def(gw1)}), kUntouched},
        {"trailing runt ignored", cat({def(gw1), Bytes(15, 0xff)}), "192.168.1.1"},
        {"unaligned nlmsg_len is padded", cat({unaligned, def(gw2)}), "10.0.0.2"},
        {"rta_len 0 ends the attributes",
         route(kInet, kMain, cat({attr(kOif, {}, 0), attr(kGateway, gw1)})), "0.0.0.0"},
        {"rta_len 3 ends the attributes",
         route(kInet, kMain, cat({attr(kOif, {}, 3), attr(kGateway, gw1)})), "0.0.0.0"},
        {"rta_len past the message", route(kInet, kMain, attr(kGateway, gw1, 12)), "0.0.0.0"},
        {"short gateway payload ignored", route(kInet, kMain, attr(kGateway, {192, 168}, 6)),
         "0.0.0.0"},
        {"short destination payload ignored",
         route(kInet, kMain, cat({attr(kGateway, gw1), attr(kDst, {10, 1}, 6)}), 42),
         "192.168.1.1"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(walk(c.dump), c.want) << c.name;
}

TEST(RouteWalk, ShortMessagesAtTheEnd)
{
    // 17..20 bytes cannot hold rtm_table; 21..31 hold it but no whole
    // attribute, so such a main-table IPv4 message is a default route
    // without gateway.
    for (long len = 16; len < 32; ++len) {
        Bytes m = route(kInet, kMain, {}, len);
        m.resize(static_cast<std::size_t>(len));
        EXPECT_EQ(walk(m), len <= 20 ? kUntouched : "0.0.0.0") << "length " << len;
    }
}

TEST(RouteWalk, EveryTruncationIsSafe)
{
    const Bytes dump =
        cat({def(ip(192, 168, 1, 1)), route(kInet6, kMain, attr(kGateway, Bytes(16, 1))),
             def(ip(10, 0, 0, 2))});
    for (std::size_t n = 0; n <= dump.size(); ++n) {
        const std::string got = walk(Bytes(dump.begin(), dump.begin() + n));
        const std::string want = n == dump.size() ? "10.0.0.2"
                                 : n >= 36        ? "192.168.1.1"
                                                  : kUntouched;
        EXPECT_EQ(got, want) << "cut at " << n;
    }
}

TEST(RouteWalk, ParseHonoursTheGivenLength)
{
    // The message's own nlmsg_len says 36, but only its first 28 bytes are
    // handed over: the gateway attribute lies outside them.
    const Bytes m = def(ip(192, 168, 1, 1));
    RouteInfo info{};
    char gw[16] = "untouched";
    parse_route_msg(m.data(), 28, &info, gw);
    EXPECT_STREQ(gw, "0.0.0.0");
}

} // namespace
