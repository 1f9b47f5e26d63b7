// Test-only tool for the board sandbox: one default-gateway lookup into a
// 32-byte buffer that starts as INITIAL. Prints whatever the lookup prints,
// then "gw_lookup: <result> [<buffer>]". Never shipped.
#include <cstdio>

#include "net/route.h"

int main(int argc, char *argv[])
{
    char gw[32] = {};
    if (argc > 1)
        std::snprintf(gw, sizeof gw, "%s", argv[1]);
    const int rc = get_default_gw(gw);
    std::printf("gw_lookup: %d [%s]\n", rc, gw);
    return rc == 0 ? 0 : 1;
}
