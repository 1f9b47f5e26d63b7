// Fuzz target: the route-dump walk over gathered bytes. The input is what
// read_nl_sock would have gathered (reply datagrams one behind the other);
// libFuzzer hands it over in a heap block of exactly its size, so any read
// past the gathered bytes is caught, and the gateway text goes into a
// 16-byte heap block, the smallest the walk is allowed to be given.
#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "net/route.h"

namespace
{

constexpr std::size_t kGwTextMin = 16;
constexpr char kUntouched[kGwTextMin] = "untouched-0123";

// The text is either what the caller had or a dotted quad of four numbers
// 0-255 that inet_pton reads back.
bool is_gateway_text(const char *text)
{
    if (std::memchr(text, '\0', kGwTextMin) == nullptr)
        return false;
    in_addr addr{};
    return inet_pton(AF_INET, text, &addr) == 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size > kRouteBufSize)
        return 0; // never gathered: read_nl_sock stops at the buffer's end
    std::unique_ptr<char[]> gw(new char[kGwTextMin]);
    std::memcpy(gw.get(), kUntouched, kGwTextMin);

    walk_route_dump(data, size, gw.get());

    if (std::memcmp(gw.get(), kUntouched, kGwTextMin) != 0 && !is_gateway_text(gw.get())) {
        std::fprintf(stderr, "walk left a gateway text that is no IPv4 address: %.16s\n", gw.get());
        std::abort();
    }
    return 0;
}
