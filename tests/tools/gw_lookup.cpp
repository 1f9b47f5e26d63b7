// Test-only tool, run inside the board sandbox: one default-gateway lookup
// over rtnetlink, as the MAC set-up does it before taking eth0 down. Never
// shipped.
//
//   gw_lookup [INITIAL]   fills the 32-byte gateway buffer with zeros, then
//                         with INITIAL (at most 31 characters), looks the
//                         gateway up into it and prints one line
//                         "gw_lookup: <result> [<buffer text>]"
//
// Whatever the lookup itself prints comes before that line. Exit status:
// 0 when the lookup returned 0, 1 when it returned -1, 2 on a usage error.
#include <cstdio>
#include <cstring>

#include "net/route.h"

int main(int argc, char *argv[])
{
    if (argc > 2) {
        std::fprintf(stderr, "usage: gw_lookup [INITIAL]\n");
        return 2;
    }
    char gw[32] = {};
    if (argc == 2)
        std::snprintf(gw, sizeof gw, "%s", argv[1]);
    const int rc = get_default_gw(gw);
    std::printf("gw_lookup: %d [%s]\n", rc, gw);
    return rc == 0 ? 0 : 1;
}
