// System tests of the GPIO register code: tests/tools/gpio_drive runs the
// board library's operations in the board sandbox, whose /dev/mem is a
// sparse 1 GiB file standing in for physical memory; the registers are
// then read back from that file at their physical addresses.
#include "board.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace {

using Words = std::vector<std::pair<std::uint32_t, std::uint32_t>>; // address, value

const std::string kTag = "[bdsetup] NOTICE! ";

// `d ARGS` runs the driver and prints its exit status on a line of its own,
// right after whatever the library printed.
const std::string kDrive = "d() { $HW_RUNNER /sbin/gpio_drive \"$@\"; echo \"rc=$?\"; }\n";

constexpr std::uint32_t kPinmux6 = 0x282000A0;
constexpr std::uint32_t kPinmux4 = 0x282000D0;

struct Case {
    const char *name;
    Words preset;       // written into the stand-in memory before the run
    std::string script; // `d ...` lines
    std::string out;    // the script's whole standard output
    Words expect;       // registers afterwards
    bool unwritten;     // the memory file must still have no data at all
};

const Case kCases[] = {
    {"Group6Pin0On",
     {{kPinmux6, 0xFFFFFFFF}, {0x1B060008, 0x80000000}},
     "d signal 6 0 1 1",
     "rc=0\n",
     {{kPinmux6, 0xFFFFFFFD}, {0x1B060008, 0x80000001}, {0x1B060004, 0x1}, {0x1B060000, 0x1},
      {kPinmux4, 0}},
     false},
    {"Group4Pin0On",
     {{kPinmux4, 0x10}},
     "d signal 4 0 1 1",
     "rc=0\n",
     {{kPinmux4, 0x11}, {0x1B040008, 0x1}, {0x1B040004, 0x1}, {0x1B040000, 0x1}, {kPinmux6, 0}},
     false},
    {"UnlistedLineIsDrivenAllTheSame",
     {},
     "d debug signal 3 2 1 1",
     kTag + "gpio_func_enable:grp_3, pin_2 not find!\nrc=0\n",
     {{0x1B030008, 0x400}, {0x1B030004, 0x400}, {0x1B030000, 0x400}, {kPinmux6, 0}, {kPinmux4, 0}},
     false},
    {"ActiveLowLine",
     {{0x1B050000, 0xFFFFFFFF}},
     "d signal 5 3 0 1\nd read 0x1B050000 0\nd signal 5 3 0 0",
     "rc=0\n0xfffff7ff\nrc=0\nrc=0\n",
     {{0x1B050000, 0xFFFFFFFF}, {0x1B050008, 0x800}, {0x1B050004, 0x800}},
     false},
    {"StateOtherThanOneClears",
     {{0x1B020000, 0xF0}},
     "d state 2 3 1\nd read 0x1B020000 0\nd state 2 3 2",
     "rc=0\n0x000000f8\nrc=0\nrc=0\n",
     {{0x1B020000, 0xF0}},
     false},
    {"OutOfRangeLinesTouchNothing",
     {},
     "d debug state 11 0 1\nd debug signal 255 255 1 1\nd debug state 3 24 1",
     "" + kTag + "gpio_set_state:gpio grp overflow\nrc=1\n" + kTag +
         "gpio_set_dir:gpio grp overflow\n" + kTag + "gpio_set_state:gpio grp overflow\nrc=0\n" +
         kTag + "gpio_set_state:gpio pin overflow\nrc=1\n",
     {},
     true},
    {"UnalignedAddressUsesItsWord",
     {},
     "d write 0x1B000000 2 0x12345678\nd read 0x1B000003 0",
     "rc=0\n0x12345678\nrc=0\n",
     {{0x1B000000, 0x12345678}, {0x1B000004, 0}},
     false},
    {"PatternEndsWithTheLineOff",
     {{0x1B060000, 0xF0}},
     "d play 6 0 1 0101",
     "rc=0\n",
     {{0x1B060000, 0xF0}, {0x1B060008, 0x1}, {0x1B060004, 0x1}},
     false},
    {"NoMemoryDevice",
     {},
     "rm /dev/mem\nd read 0x1B000000 0\nd debug signal 6 0 1 1",
     // One failed open for the pin function, the direction and the level.
     "cannot open /dev/mem.rc=1\n"
     "cannot open /dev/mem.cannot open /dev/mem.cannot open /dev/mem.rc=0\n",
     {},
     false},
};

void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.name;
}

class GpioTest : public BoardTest, public ::testing::WithParamInterface<Case> {
protected:
    std::string MemPath() const { return board.root() + "/dev/mem"; }

    // A fresh all-zero stand-in memory (the sandbox keeps an existing one)
    // with the given words written into it.
    void PutMemory(const Words &words)
    {
        board.MakeDir("/dev");
        const int fd = open(MemPath().c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(ftruncate(fd, off_t{1} << 30), 0);
        for (const auto &[address, value] : words)
            ASSERT_EQ(pwrite(fd, &value, sizeof value, address), static_cast<ssize_t>(sizeof value));
        close(fd);
    }

    ::testing::AssertionResult HasWord(std::uint32_t address, std::uint32_t want) const
    {
        const int fd = open(MemPath().c_str(), O_RDONLY | O_CLOEXEC);
        std::uint32_t got = 0;
        const ssize_t n = fd < 0 ? -1 : pread(fd, &got, sizeof got, address);
        if (fd >= 0)
            close(fd);
        if (n != static_cast<ssize_t>(sizeof got))
            return ::testing::AssertionFailure() << "cannot read the word at " << std::hex << address;
        if (got != want)
            return ::testing::AssertionFailure()
                   << std::hex << "0x" << address << " holds 0x" << got << ", not 0x" << want;
        return ::testing::AssertionSuccess();
    }
};

TEST_P(GpioTest, RegistersAfterTheRun)
{
    const Case &c = GetParam();
    PutMemory(c.preset);
    const RunResult run = board.Run(kDrive + c.script + "\n");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, c.out) << run.err;
    for (const auto &[address, value] : c.expect)
        EXPECT_TRUE(HasWord(address, value));
    if (c.unwritten) {
        struct stat st = {};
        ASSERT_EQ(stat(MemPath().c_str(), &st), 0);
        EXPECT_EQ(st.st_blocks, 0) << "a register was written";
    }
}

INSTANTIATE_TEST_SUITE_P(Lines, GpioTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
