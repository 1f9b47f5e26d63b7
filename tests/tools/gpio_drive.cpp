// Test-only driver: runs one GPIO operation of the board library from the
// command line, so system tests can exercise the register code against a
// stand-in /dev/mem and read the file back. Never shipped.
//
//   gpio_drive [debug] signal GRP PIN ACTIVE ON
//   gpio_drive [debug] play GRP PIN ACTIVE PATTERN
//   gpio_drive [debug] state GRP PIN STATE
//   gpio_drive [debug] dir GRP PIN
//   gpio_drive [debug] func GRP PIN
//   gpio_drive [debug] read BASE OFFSET      (prints the value as 0x%08x)
//   gpio_drive [debug] write BASE OFFSET VALUE
//
// Numbers take C prefixes (0x1B060000). Standard output carries only what
// the library prints, plus the value of `read`. Exit status: 0 when the
// operation returned 0, 1 when it returned non-zero, 2 on a usage error.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ax630c_qm/gpio.h"
#include "ax630c_qm/signal.h"
#include "log/log.h"

namespace {

int usage()
{
    std::fprintf(stderr, "usage: gpio_drive [debug] signal|play|state|dir|func|read|write ARGS...\n");
    return 2;
}

bool parse_u32(const char *text, std::uint32_t *out)
{
    errno = 0;
    char *end = nullptr;
    const long long v = std::strtoll(text, &end, 0);
    if (errno != 0 || end == text || *end != '\0' || v < INT32_MIN || v > UINT32_MAX)
        return false;
    *out = static_cast<std::uint32_t>(v);
    return true;
}

// Parses argv[0..n) into out[0..n); false when any is not a number.
bool parse_all(char **argv, int n, std::uint32_t *out)
{
    for (int i = 0; i < n; ++i) {
        if (!parse_u32(argv[i], &out[i]))
            return false;
    }
    return true;
}

int status(int rc)
{
    std::fflush(stdout);
    return rc == 0 ? 0 : 1;
}

int run(const char *cmd, int argc, char **argv)
{
    std::uint32_t n[4] = {};
    if (std::strcmp(cmd, "signal") == 0 && argc == 4 && parse_all(argv, 4, n)) {
        const GpioLine line = {n[0], n[1], n[2]};
        g_signal_line = &line;
        return status(signal_set(static_cast<int>(n[3])));
    }
    if (std::strcmp(cmd, "play") == 0 && argc == 4 && parse_all(argv, 3, n)) {
        const GpioLine line = {n[0], n[1], n[2]};
        g_signal_line = &line;
        return status(signal_play(argv[3]));
    }
    if (std::strcmp(cmd, "state") == 0 && argc == 3 && parse_all(argv, 3, n))
        return status(gpio_set_state(n[0], static_cast<std::int32_t>(n[1]), n[2]));
    if (std::strcmp(cmd, "dir") == 0 && argc == 2 && parse_all(argv, 2, n)) {
        gpio_set_dir(n[0], n[1]);
        return status(0);
    }
    if (std::strcmp(cmd, "func") == 0 && argc == 2 && parse_all(argv, 2, n)) {
        gpio_func_enable(n[0], n[1]);
        return status(0);
    }
    if (std::strcmp(cmd, "read") == 0 && argc == 2 && parse_all(argv, 2, n)) {
        std::uint32_t value = 0;
        const int rc = gpio_read_reg(n[0], n[1], &value);
        if (rc == 0)
            std::printf("0x%08x\n", value);
        return status(rc);
    }
    if (std::strcmp(cmd, "write") == 0 && argc == 3 && parse_all(argv, 3, n))
        return status(gpio_write_reg(n[0], n[1], n[2]));
    return usage();
}

} // namespace

int main(int argc, char **argv)
{
    int i = 1;
    if (i < argc && std::strcmp(argv[i], "debug") == 0) {
        set_debug_flag(1);
        ++i;
    }
    if (i >= argc)
        return usage();
    return run(argv[i], argc - i - 1, argv + i + 1);
}
