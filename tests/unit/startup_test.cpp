// The status display through a recording board, msleep's split, and the
// board object's operations that need no record.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "app/startup.h"
#include "ax630c_qm/device.h"
#include "log/log.h"

namespace {

std::string g_log; // B/b Buzzer on/off, I/i Indicator on/off, a wait as its ms

class RecordingBoard : public CDevice {
public:
    int CheckDevice() override { return 0; }
    int GetGuid(GUID *) override { return 0; }
    int SetDevFile(const char *) override { return 0; }
    int ReadDevInfo(dev_info *) override { return 0; }
    int SaveDevInfo(const dev_info *) override { return 0; }
    int CreateWorkModeID(std::uint32_t) override { return 0; }
    void Indicator(int on) override { g_log += on != 0 ? "I" : "i"; }
    int Buzzer(std::int32_t on) override
    {
        g_log += on != 0 ? "B" : "b";
        return 0;
    }
};

std::string Show(std::uint32_t code)
{
    RecordingBoard board;
    g_log.clear();
    auto wait = [](std::uint32_t ms) { return g_log += std::to_string(ms), 0; };
    EXPECT_EQ(show_result_with(code, &board, wait), 0);
    return g_log;
}

} // namespace

// One pass on the buzzer, then one on the indicator; codes above 12 only log.
TEST(ShowResult, CallsAndWaitsInOrder)
{
    EXPECT_EQ(Show(4), "B100b100B100b100B100b100B100b100B400b100"
                       "I100i100I100i100I100i100I100i100I400i100");
    EXPECT_EQ(Show(12), "B100b100B400b100B100b100B400b100B400b100"
                        "I100i100I400i100I100i100I400i100I400i100");
    set_debug_flag(1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Show(13), "");
    EXPECT_EQ(Show(0xFFFFFFFFu), "");
    set_debug_flag(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[bdsetup] NOTICE! show_result:type_13 not support!\n"
              "[bdsetup] NOTICE! show_result:type_-1 not support!\n");
}

TEST(Msleep, SplitsIntoSecondsAndMicroseconds)
{
    std::string got;
    for (std::uint32_t ms : {0u, 999u, 1000u, 1500u, 0xFFFFFFFFu})
        got += std::to_string(msleep_split(ms).sec) + "." + std::to_string(msleep_split(ms).usec) +
               " ";
    EXPECT_EQ(got, "0.0 0.999000 1.0 1.500000 4294967.295000 ");
    EXPECT_EQ(msleep(0), 0);
}

// The profile's signal line, the default store kept for an empty path, a
// zero GUID in all 24 bytes.
TEST(BoardObject, RecordFreeOperations)
{
    g_signal_line = nullptr;
    CDevice *dev = CreateDevice("");
    const auto *board = static_cast<CAX620Q *>(dev);
    ASSERT_NE(g_signal_line, nullptr);
    EXPECT_EQ(std::memcmp(g_signal_line, &kAX620QProfile.signal_line, sizeof(GpioLine)), 0);
    EXPECT_EQ(dev->CheckDevice(), 0);
    EXPECT_EQ(dev->SetDevFile(""), 0);
    EXPECT_STREQ(board->dev_file_path(), "/dev/mtdblock3");
    GUID guid;
    std::memset(&guid, 0x77, sizeof guid);
    EXPECT_EQ(dev->GetGuid(&guid), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&guid), 24), std::string(24, '\0'));
    dev->~CDevice();
    std::free(dev);
}
