// Test-only driver for the board sandbox: one GPIO operation of the board
// library against the stand-in /dev/mem. Never shipped.
//   gpio_drive [debug] signal GRP PIN ACTIVE ON | play GRP PIN ACTIVE PATTERN
//                    | state GRP PIN STATE | read BASE OFFSET | write BASE OFFSET VALUE
// Numbers take C prefixes. Prints what the library prints (and `read`'s
// value as 0x%08x); exit status 0 when the operation gave 0, 1 otherwise,
// 2 on a usage error.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ax630c_qm/gpio.h"
#include "ax630c_qm/signal.h"
#include "log/log.h"

int main(int argc, char **argv)
{
    int i = 1;
    if (i < argc && std::strcmp(argv[i], "debug") == 0) {
        set_debug_flag(1);
        ++i;
    }
    const char *cmd = i < argc ? argv[i] : "";
    const int count = argc - i - 1;
    std::uint32_t n[4] = {};
    for (int k = 0; k < count && k < 4; ++k)
        n[k] = static_cast<std::uint32_t>(std::strtoll(argv[i + 1 + k], nullptr, 0));
    const GpioLine line = {n[0], n[1], n[2]};
    std::uint32_t value = 0;
    int rc = 0;
    if (std::strcmp(cmd, "signal") == 0 && count == 4) {
        g_signal_line = &line;
        rc = signal_set(static_cast<int>(n[3]));
    } else if (std::strcmp(cmd, "play") == 0 && count == 4) {
        g_signal_line = &line;
        rc = signal_play(argv[i + 4]);
    } else if (std::strcmp(cmd, "state") == 0 && count == 3) {
        rc = gpio_set_state(n[0], static_cast<std::int32_t>(n[1]), n[2]);
    } else if (std::strcmp(cmd, "read") == 0 && count == 2) {
        if ((rc = gpio_read_reg(n[0], n[1], &value)) == 0)
            std::printf("0x%08x\n", value);
    } else if (std::strcmp(cmd, "write") == 0 && count == 3) {
        rc = gpio_write_reg(n[0], n[1], n[2]);
    } else {
        std::fprintf(stderr, "usage: gpio_drive [debug] signal|play|state|read|write ARGS\n");
        return 2;
    }
    std::fflush(stdout);
    return rc == 0 ? 0 : 1;
}
