// The signal line and the status display without hardware: register
// traffic through a fake accessor (the board's goes to /dev/mem), waits
// through a recording sleep, and the board object's own line and memory.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstring>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "app/startup.h"
#include "ax630c_qm/device.h"
#include "ax630c_qm/gpio.h"
#include "ax630c_qm/signal.h"
#include "log/log.h"

namespace {

std::map<std::uint32_t, std::uint32_t> g_regs; // register address -> value
std::string g_log;                              // each write, a failure, each wait
int g_fail_at = 0;                              // this access fails (counted from 1)
std::string g_beeps;                            // S or L per on-time of level 0x1B060000
std::chrono::steady_clock::time_point g_on;

int FakeAccess(std::uint32_t address, bool write, std::uint32_t *value)
{
    if (--g_fail_at == 0)
        return g_log += "fail ", -1;
    if (!write)
        return *value = g_regs[address], 0;
    char item[32];
    std::snprintf(item, sizeof item, "%X=%X ", address, *value);
    g_log += item;
    if (address == 0x1B060000 && (*value & 1) != (g_regs[address] & 1)) {
        const auto now = std::chrono::steady_clock::now();
        if ((*value & 1) == 0)
            g_beeps += now - g_on > std::chrono::milliseconds(250) ? "L" : "S";
        g_on = now;
    }
    return g_regs[address] = *value, 0;
}

int FakeSleep(std::uint32_t ms) { return g_log += std::to_string(ms) + " ", 0; }

// What `op` wrote to the registers (after `preset`) and printed.
std::string Traffic(std::map<std::uint32_t, std::uint32_t> preset, const std::function<void()> &op,
                int fail_at = 0)
{
    g_regs = std::move(preset), g_log.clear(), g_fail_at = fail_at;
    g_register_access = FakeAccess;
    set_debug_flag(1);
    testing::internal::CaptureStdout();
    op();
    set_debug_flag(0);
    g_register_access = devmem_access;
    return g_log + testing::internal::GetCapturedStdout();
}

std::function<void()> Signal(GpioLine line, int on)
{
    return [line, on] {
        static GpioLine held;
        held = line, g_signal_line = &held;
        signal_set(on);
    };
}

const std::string kTag = "[bdsetup] NOTICE! ";

TEST(SignalLine, RegisterTraffic)
{
    const struct {
        const char *name;
        std::map<std::uint32_t, std::uint32_t> preset;
        std::function<void()> op;
        std::string want;
        int fail_at = 0;
    } rows[] = {
        {"no line yet", {}, [] { g_signal_line = nullptr, signal_set(1); }, ""},
        {"group 11", {}, Signal({11, 0, 1}, 1),
         kTag + "gpio_set_dir:gpio grp overflow\n" + kTag + "gpio_set_state:gpio grp overflow\n"},
        {"group 10, the last", {}, Signal({10, 1, 1}, 1),
         "1B0A0008=2 1B0A0004=2 1B0A0000=2 " + kTag + "gpio_func_enable:grp_10, pin_1 not find!\n"},
        {"group 6 pin 0: its pin function first",
         {{0x282000A0, 0xFFFFFFFF}, {0x1B060008, 0x80000000}}, Signal({6, 0, 1}, 1),
         "282000A0=FFFFFFFD 1B060008=80000001 1B060004=1 1B060000=1 "},
        {"group 4 pin 0", {{0x282000D0, 0x10}}, Signal({4, 0, 1}, 1),
         "282000D0=11 1B040008=1 1B040004=1 1B040000=1 "},
        {"odd group: a byte up", {}, Signal({3, 2, 1}, 1),
         "1B030008=400 1B030004=400 1B030000=400 " + kTag + "gpio_func_enable:grp_3, pin_2 not find!\n"},
        {"active low", {{0x1B050000, 0xFFFFFFFF}}, [] { Signal({5, 3, 0}, 1)(); Signal({5, 3, 0}, 0)(); },
         "1B050008=800 1B050004=800 1B050000=FFFFF7FF 1B050008=800 1B050004=800 1B050000=FFFFFFFF " +
             kTag + "gpio_func_enable:grp_5, pin_3 not find!\n" + kTag +
             "gpio_func_enable:grp_5, pin_3 not find!\n"},
        {"state 2 clears as 0 does", {{0x1B020000, 0xF8}}, [] { gpio_set_state(2, 3, 2); },
         "1B020000=F0 "},
        {"pins without a bit", {}, [] { gpio_set_state(1, 23, 1), gpio_set_state(1, 24, 1), gpio_set_state(2, 32, 1); },
         "1B010000=80000000 " + kTag + "gpio_set_state:gpio pin overflow\n" + kTag +
             "gpio_set_state:gpio pin overflow\n"},
        // 0x8 before 0x4; the first failed access ends the direction step.
        {"direction stops at a failure", {}, Signal({9, 0, 1}, 1), "1B090008=100 fail 1B090000=100 " + kTag +
             "gpio_func_enable:grp_9, pin_0 not find!\n", 3},
        // '0' is short, any other character long.
        {"a pattern's waits", {}, [] { g_signal_line = nullptr, signal_play("0x2", FakeSleep), signal_play("", FakeSleep); },
         "100 100 400 100 400 100 "},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Traffic(r.preset, r.op, r.fail_at), r.want) << r.name;
}

// Both passes of each status code through a recording board, with the
// waits recorded: B/b Buzzer on/off, I/i Indicator on/off.
class RecordingBoard : public CDevice {
public:
    int CheckDevice() override { return 0; }
    int GetGuid(GUID *) override { return 0; }
    int SetDevFile(const char *) override { return 0; }
    int ReadDevInfo(dev_info *) override { return 0; }
    int SaveDevInfo(const dev_info *) override { return 0; }
    int CreateWorkModeID(std::uint32_t) override { return 0; }
    void Indicator(int on) override { g_log += on != 0 ? "I" : "i"; }
    int Buzzer(std::int32_t on) override { return g_log += on != 0 ? "B" : "b", 0; }
};

TEST(StatusDisplay, EveryCodeShowsItsRowOnBuzzerThenIndicator)
{
    const char *rows[] = {"00000", "11111", "00010", "00011", "00001", "00100", "00101",
                          "00110", "00111", "01000", "01001", "01010", "01011"};
    RecordingBoard board;
    for (std::uint32_t code = 0; code < 13; ++code) {
        std::string want;
        for (const char *p : {"B", "I"})
            for (const char *c = rows[code]; *c != '\0'; ++c)
                want += p + std::string(*c == '0' ? "100 " : "400 ") +
                        static_cast<char>(std::tolower(*p)) + "100 ";
        g_log.clear();
        show_result(code, &board, FakeSleep);
        EXPECT_EQ(g_log, want) << code;
    }
    const std::string out = Traffic({}, [&board] { show_result(13, &board), show_result(0xFFFFFFFFu, &board); });
    EXPECT_EQ(out, kTag + "show_result:type_13 not support!\n" + kTag + "show_result:type_-1 not support!\n");
}

// The board object's Buzzer plays its code's row at the real pace, on the
// profile's line (which has no register); deleting it gives its memory to free.
TEST(BoardObject, BuzzerPlaysTheCodesRowAndTheObjectGoesBackToFree)
{
    CDevice *dev = CreateDevice("");
    ASSERT_NE(dev, nullptr);
    EXPECT_EQ(Traffic({}, [dev] { signal_set(1), dev->Buzzer(13), dev->Buzzer(-1); }),
              kTag + "gpio_set_dir:gpio grp overflow\n" + kTag + "gpio_set_state:gpio grp overflow\n" +
                  kTag + "Buzzer:type_13 not support!\n" + kTag + "Buzzer:type_-1 not support!\n");
    GUID guid;
    std::memset(&guid, 0x77, sizeof guid);
    EXPECT_EQ(dev->GetGuid(&guid), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&guid), 24), std::string(24, '\0'));
    const GpioLine line = {6, 0, 1};
    g_signal_line = &line, g_beeps.clear();
    Traffic({}, [dev] { dev->Buzzer(2); });
    EXPECT_EQ(g_beeps, "SSSLS");
    g_signal_line = nullptr;
    delete dev;
}

} // namespace
