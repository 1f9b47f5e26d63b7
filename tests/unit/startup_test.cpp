// Start-up pieces that need no board: the argument scans, the status
// display through a recording board, msleep's split, the shared block's
// bytes and the record-free operations of the board object.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/args.h"
#include "app/shmem.h"
#include "app/startup.h"
#include "ax630c_qm/device.h"
#include "ax630c_qm/gpio.h"
#include "log/log.h"

namespace {

struct Argv {
    explicit Argv(std::vector<std::string> a) : args(std::move(a))
    {
        args.insert(args.begin(), "hw_start");
        for (auto &s : args)
            ptrs.push_back(&s[0]);
    }
    int argc() const { return static_cast<int>(ptrs.size()); }
    char *const *argv() const { return ptrs.data(); }
    std::vector<std::string> args;
    std::vector<char *> ptrs;
};

std::string store_path(const std::vector<std::string> &args)
{
    Argv a(args);
    char path[kPathSize] = {};
    scan_store_path(a.argc(), a.argv(), "dev3_file", path);
    scan_store_path(a.argc(), a.argv(), "dev_file=", path);
    return path;
}

// Records every call and every wait, in order.
class RecordingBoard : public CDevice {
public:
    int CheckDevice() override { return 0; }
    int GetGuid(GUID *) override { return 0; }
    int SetDevFile(const char *) override { return 0; }
    int ReadDevInfo(dev_info *) override { return 0; }
    int SaveDevInfo(const dev_info *) override { return 0; }
    int CreateWorkModeID(std::uint32_t) override { return 0; }
    void Indicator(int on) override { log.push_back("I" + std::to_string(on)); }
    int Buzzer(std::int32_t code) override
    {
        log.push_back("B" + std::to_string(code));
        return 0;
    }
    static std::vector<std::string> log;
};
std::vector<std::string> RecordingBoard::log;

int record_sleep(std::uint32_t ms)
{
    RecordingBoard::log.push_back(std::to_string(ms));
    return 0;
}

std::vector<std::string> show(std::uint32_t code)
{
    RecordingBoard board;
    RecordingBoard::log.clear();
    EXPECT_EQ(show_result_with(code, &board, record_sleep), 0);
    return RecordingBoard::log;
}

} // namespace

TEST(Args, WordsMatchWholeArgumentsOnly)
{
    Argv a({"xhelp", "version", "help"});
    EXPECT_EQ(find_word(a.argc(), a.argv(), "help"), 3);
    EXPECT_EQ(find_word(a.argc(), a.argv(), "version"), 2);
    EXPECT_EQ(find_word(a.argc(), a.argv(), "debug"), 0);
    Argv self({});
    self.ptrs[0] = const_cast<char *>("help");
    EXPECT_EQ(find_word(self.argc(), self.argv(), "help"), 0) << "own name never matches";
}

TEST(Args, StorePathScans)
{
    EXPECT_EQ(store_path({"xdev3_file_a=/tmp/p"}), "/tmp/p");
    EXPECT_EQ(store_path({"dev3_file", "dev3_file=/tmp/a"}), "") << "first match ends the scan";
    EXPECT_EQ(store_path({"dev3_file=/tmp/a", "dev_file=/tmp/b"}), "/tmp/b");
    EXPECT_EQ(store_path({"dev_file=/tmp/b", "dev3_file=/tmp/a"}), "/tmp/b");
    EXPECT_EQ(store_path({"dev3_file="}), "");
    EXPECT_EQ(store_path({"dev3_file_x=a=b"}), "a=b") << "text after the first '='";
    EXPECT_EQ(store_path({"a=1dev3_file"}), "") << "'=' before the match does not count";
    EXPECT_EQ(store_path({"dev3_file=" + std::string(200, 'p')}), std::string(127, 'p'));
}

TEST(ShowResult, PlaysEachCharacterOnBuzzerThenIndicator)
{
    const std::vector<std::string> expect1 = {"B1", "400", "B0", "100"};
    const auto log = show(1);
    ASSERT_EQ(log.size(), 40u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(std::vector<std::string>(log.begin() + 4 * i, log.begin() + 4 * i + 4), expect1);
        EXPECT_EQ(log[20 + 4 * i], "I1");
        EXPECT_EQ(log[22 + 4 * i], "I0");
    }
    // Code 4 is "00001": four short beeps and a long one per pass.
    const auto log4 = show(4);
    ASSERT_EQ(log4.size(), 40u);
    EXPECT_EQ(log4[1], "100");
    EXPECT_EQ(log4[17], "400");
    EXPECT_EQ(log4[37], "400");
}

TEST(ShowResult, CodesAboveTwelveShowNothing)
{
    set_debug_flag(1);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(show(13).empty());
    EXPECT_TRUE(show(0xFFFFFFFFu).empty());
    const std::string out = testing::internal::GetCapturedStdout();
    set_debug_flag(0);
    EXPECT_EQ(out, "[bdsetup] NOTICE! show_result:type_13 not support!\n"
                   "[bdsetup] NOTICE! show_result:type_-1 not support!\n");
}

TEST(Msleep, SplitsIntoSecondsAndMicroseconds)
{
    const struct {
        std::uint32_t ms;
        long sec, usec;
    } cases[] = {{0, 0, 0}, {999, 0, 999000}, {1000, 1, 0}, {1500, 1, 500000},
                 {0xFFFFFFFFu, 4294967, 295000}};
    for (const auto &c : cases) {
        EXPECT_EQ(msleep_split(c.ms).sec, c.sec) << c.ms;
        EXPECT_EQ(msleep_split(c.ms).usec, c.usec) << c.ms;
    }
    EXPECT_EQ(msleep(0), 0);
}

TEST(LogNotice, SilentWhenOffTaggedWhenOn)
{
    testing::internal::CaptureStdout();
    log_notice("write_shmem1", "x %d\n", 1);
    set_debug_flag(1);
    log_notice("write_shmem1", "x %d\n", 2);
    log_notice_line("boot", "begin write_shmem1");
    set_debug_flag(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[bdsetup] NOTICE! write_shmem1:x 2\n[bdsetup] NOTICE! boot:begin write_shmem1\n");
}

TEST(SharedBlock, BytesAsReadersSeeThem)
{
    GUID guid;
    std::memset(&guid, 0, sizeof guid);
    guid.Data1 = 0x1122334455667788ULL;
    const shmem_info b = make_shmem_info(0, std::string(40, 'n').c_str(), &guid);
    const auto *p = reinterpret_cast<const unsigned char *>(&b);
    const unsigned char head[] = {0x28, 0x95, 0x27, 0x95, 0x88, 0x77, 0x66, 0x55};
    EXPECT_EQ(std::memcmp(p, head, sizeof head), 0);
    EXPECT_EQ(std::string(b.name), std::string(31, 'n'));
    const unsigned char flag[] = {0x02, 0xDE, 0xCF, 0x78};
    EXPECT_EQ(std::memcmp(p + 64, flag, 4), 0);
    for (int i = 68; i < 96; ++i)
        ASSERT_EQ(p[i], 0) << i;
}

TEST(BoardObject, RecordFreeOperations)
{
    g_signal_line = nullptr;
    CDevice *dev = CreateDevice("");
    ASSERT_NE(dev, nullptr);
    auto *board = static_cast<CAX620Q *>(dev);
    ASSERT_NE(g_signal_line, nullptr) << "constructor points the signal line at the profile";
    EXPECT_EQ(g_signal_line->grp, 255u);
    EXPECT_EQ(dev->CheckDevice(), 0);

    set_debug_flag(1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(dev->SetDevFile(""), 0);
    EXPECT_STREQ(board->dev_file_path(), "/dev/mtdblock3");
    const std::string long_path = "/" + std::string(199, 'd');
    EXPECT_EQ(dev->SetDevFile(long_path.c_str()), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    set_debug_flag(0);
    EXPECT_EQ(board->dev_file_path(), long_path.substr(0, 127));
    EXPECT_EQ(out, "[bdsetup] NOTICE! SetDevFile:set dev info file " + long_path + "\n");

    GUID guid;
    std::memset(&guid, 0x77, sizeof guid);
    EXPECT_EQ(dev->GetGuid(&guid), 0);
    const GUID zero{};
    EXPECT_EQ(std::memcmp(&guid, &zero, sizeof guid), 0);
    // The factory places the object in malloc'ed memory.
    dev->~CDevice();
    std::free(dev);
}
