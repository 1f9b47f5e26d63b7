// Beep pattern timing through the board object, whose own line (group 255)
// the register code refuses, so only time passes. Each case runs in a child
// that can open no file: a fault that reaches a register prints "cannot
// open /dev/mem." instead of touching the host's memory.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ax630c_qm/device.h"
#include "ax630c_qm/signal.h"
#include "log/log.h"

// Lower bounds exact, upper bounds generous for a busy machine.
TEST(SignalPattern, BuzzerAndPlayKeepTheirTiming)
{
    CDevice *dev = CreateDevice("");
    const std::string tag = "[bdsetup] NOTICE! Buzzer:type_";
    const struct {
        const char *name;
        std::function<void()> op;
        long min_ms;
        std::string out;
    } rows[] = {
        {"code 4", [dev] { dev->Buzzer(4); }, 1300, ""},
        {"code 12", [dev] { dev->Buzzer(12); }, 1900, ""},
        {"code 13", [dev] { set_debug_flag(1), dev->Buzzer(13); }, 0, tag + "13 not support!\n"},
        {"code -1", [dev] { set_debug_flag(1), dev->Buzzer(-1); }, 0, tag + "-1 not support!\n"},
        {"empty", [] { signal_play(""); }, 0, ""},
        {"2 is long", [] { signal_play("2"); }, 500, ""},
        {"x is long", [] { signal_play("x"); }, 500, ""},
    };
    for (const auto &r : rows) {
        std::FILE *out = std::tmpfile();
        const auto start = std::chrono::steady_clock::now();
        if (fork() == 0) {
            dup2(fileno(out), STDOUT_FILENO);
            const rlimit none = {0, 0};
            setrlimit(RLIMIT_NOFILE, &none);
            r.op();
            std::fflush(stdout);
            _exit(0);
        }
        wait(nullptr);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now() - start).count();
        std::string text;
        std::rewind(out);
        for (int c; (c = std::fgetc(out)) != EOF;)
            text += static_cast<char>(c);
        std::fclose(out);
        EXPECT_EQ(text, r.out) << r.name;
        EXPECT_GE(ms, r.min_ms) << r.name;
        EXPECT_LE(ms, r.min_ms * 13 / 10 + 300) << r.name;
    }
    dev->~CDevice();
    std::free(dev);
}
