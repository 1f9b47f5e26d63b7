// Beep pattern timing, the bit of a GPIO line, and the cases that must
// end before any register access.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ax630c_qm/gpio.h"
#include "ax630c_qm/signal.h"
#include "log/log.h"

namespace {

std::uint32_t pattern_ms(const char *pattern)
{
    std::uint32_t total = 0;
    for (const char *p = pattern; *p != '\0'; ++p)
        total += beep_on_ms(*p) + kBeepGapMs;
    return total;
}

struct Guarded {
    int rc;
    std::string out;
};

// Runs `op` with the debug flag set in a child that cannot open any file,
// so a case that wrongly reaches a register shows "cannot open /dev/mem."
// instead of touching the host's memory device.
Guarded run_without_files(const std::function<int()> &op)
{
    int fds[2];
    if (pipe(fds) != 0)
        return {-100, "pipe failed"};
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        set_debug_flag(1);
        const int rc = op();
        fflush(stdout);
        _exit(rc & 0xff);
    }
    close(fds[1]);
    std::string out;
    char buf[256];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0)
        out.append(buf, static_cast<std::size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status))
        return {-101, out};
    return {static_cast<std::int8_t>(WEXITSTATUS(status)), out};
}

constexpr char kTag[] = "[bdsetup] NOTICE! ";

} // namespace

TEST(SignalPattern, StatusRowsLastTheirBeepsAndGaps)
{
    const struct {
        int code;
        std::uint32_t ms;
    } cases[] = {{0, 1000}, {1, 2500}, {4, 1300}, {12, 1900}};
    for (const auto &c : cases)
        EXPECT_EQ(pattern_ms(kStatusPatterns[c.code]), c.ms) << "code " << c.code;
    // Listed as is, not derived: code 4 is four short beeps and a long one.
    EXPECT_STREQ(kStatusPatterns[4], "00001");
    for (const char *row : kStatusPatterns)
        EXPECT_EQ(std::strspn(row, "01"), 5u) << row;
}

TEST(SignalPattern, AnythingButZeroIsALongBeep)
{
    EXPECT_EQ(beep_on_ms('0'), 100u);
    for (char c : {'1', '2', 'x', ' '})
        EXPECT_EQ(beep_on_ms(c), 400u) << c;
}

TEST(GpioLineBit, OddGroupsUseTheUpperBitsAndOverflowHasNoBit)
{
    const struct {
        std::uint32_t grp, pin, bit;
    } cases[] = {
        {2, 3, 0x8},          {5, 3, 0x800},        {3, 2, 0x400},  {6, 0, 0x1},
        {4, 0, 0x1},          {0, 31, 0x80000000},  {1, 23, 0x80000000},
        {0, 32, 0},           {1, 24, 0},           {2, 0xFFFFFFFF, 0},
        {255, 255, 0},        {3, 0x80000000, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(gpio_line_bit(c.grp, c.pin), c.bit) << "grp " << c.grp << " pin " << c.pin;
}

TEST(GpioNoAccess, OutOfRangeLinesOnlyLog)
{
    const std::string tag = kTag;
    static const GpioLine board_line = {255, 255, 1};
    const struct {
        const char *name;
        std::function<int()> op;
        int rc;
        std::string out;
    } cases[] = {
        {"no line", [] { g_signal_line = nullptr; return signal_set(1); }, 0, ""},
        {"board line",
         [] {
             g_signal_line = &board_line;
             return signal_set(1);
         },
         0, tag + "gpio_set_dir:gpio grp overflow\n" + tag + "gpio_set_state:gpio grp overflow\n"},
        {"state group 11", [] { return gpio_set_state(11, 0, 1); }, -1,
         tag + "gpio_set_state:gpio grp overflow\n"},
        {"state pin 24 odd group", [] { return gpio_set_state(3, 24, 1); }, -1,
         tag + "gpio_set_state:gpio pin overflow\n"},
        {"state negative pin", [] { return gpio_set_state(2, -1, 0); }, -1,
         tag + "gpio_set_state:gpio pin overflow\n"},
        {"dir group 11",
         [] {
             gpio_set_dir(11, 0);
             return 0;
         },
         0, tag + "gpio_set_dir:gpio grp overflow\n"},
        {"dir pin 32",
         [] {
             gpio_set_dir(2, 32);
             return 0;
         },
         0, tag + "gpio_set_dir:gpio pin overflow\n"},
        {"signal pin 40",
         [] {
             static const GpioLine line = {4, 40, 1};
             g_signal_line = &line;
             return signal_set(0);
         },
         0, tag + "gpio_set_dir:gpio pin overflow\n" + tag + "gpio_set_state:gpio pin overflow\n"},
    };
    for (const auto &c : cases) {
        const Guarded got = run_without_files(c.op);
        EXPECT_EQ(got.rc, c.rc) << c.name;
        EXPECT_EQ(got.out, c.out) << c.name;
    }
}

TEST(SignalPlay, KeepsItsTimingWithoutALine)
{
    using Clock = std::chrono::steady_clock;
    g_signal_line = nullptr;
    const struct {
        const char *pattern;
        long min_ms;
    } cases[] = {{"", 0}, {"0", 200}, {"x", 500}};
    for (const auto &c : cases) {
        const auto start = Clock::now();
        EXPECT_EQ(signal_play(c.pattern), 0);
        const long ms = static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
        EXPECT_GE(ms, c.min_ms) << '"' << c.pattern << '"';
        EXPECT_LT(ms, c.min_ms + 400) << '"' << c.pattern << '"';
    }
}
