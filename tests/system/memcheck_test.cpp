// The whole start-up under valgrind's memcheck in the board sandbox: no
// invalid read or write, no use of uninitialised bytes, no lost block. The
// program never exits, so it is stopped with SIGTERM once the GUI has been
// started, and valgrind's closing summary is read from its log.
#include "board.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace hwtest
{
namespace
{

// Runs `args` under memcheck, waits for the boot to finish, stops it and
// prints "skip: why" instead when memcheck cannot run this binary.
std::string MemcheckScript(const std::string &args)
{
    return "if [ -n \"$HW_RUNNER\" ]; then echo 'skip: the binary runs under an emulator'; exit 0; "
           "fi\n"
           "if grep -q __asan_init /mnt/mtd/app/hw_start; then\n"
           "    echo 'skip: an AddressSanitizer build cannot run under valgrind'; exit 0\n"
           "fi\n"
           "valgrind --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect"
           " --track-origins=yes --log-file=/tmp/vg.log /mnt/mtd/app/hw_start " +
           args +
           " >/tmp/hw.out 2>/tmp/hw.err &\n"
           "pid=$!\n"
           "i=0\n"
           "while [ ! -e /var/run/gui.args ] && [ $i -lt 300 ]; do sleep 0.1; i=$((i+1)); done\n"
           "sleep 0.5\n"
           "kill -0 $pid && echo running\n"
           "kill -TERM $pid\n"
           "wait $pid\n";
}

struct MemcheckCase {
    const char *name;
    std::string record; // empty: the sandbox's sample record
    std::vector<std::string> flags;
    std::string args;
    std::string file; // when set, the record goes to this file instead
};

// The case's name alone in test output.
void PrintTo(const MemcheckCase &c, std::ostream *os)
{
    *os << c.name;
}

class MemcheckTest : public BoardTest, public ::testing::WithParamInterface<MemcheckCase>
{
};

TEST_P(MemcheckTest, BootHasNoMemoryError)
{
    const MemcheckCase &c = GetParam();
    if (!c.file.empty())
        board.Put(c.file, c.record);
    else if (!c.record.empty())
        board.PutRecord(c.record);
    RunOptions options;
    options.flags = c.flags;
    options.timeout_s = 120;
    RunResult r = board.Run(MemcheckScript(c.args), options);
    if (r.out.rfind("skip: ", 0) == 0)
        GTEST_SKIP() << r.out.substr(6);

    const std::string log = board.Read("/tmp/vg.log");
    EXPECT_EQ(r.out, "running\n") << "the program must still run when stopped\n"
                                  << r.err << board.Err();
    EXPECT_FALSE(board.ProgramArgs("gui").empty()) << "the boot did not get to the GUI";
    EXPECT_NE(log.find("Process terminating with default action of signal 15"), std::string::npos)
        << log;
    EXPECT_NE(log.find("ERROR SUMMARY: 0 errors from 0 contexts"), std::string::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Boots, MemcheckTest,
    ::testing::Values(
        // The sample record: the MAC differs from eth0's, so the gateway
        // lookup, the address change and every boot step run.
        MemcheckCase{"SampleRecordWithDebugLines", "", {}, "debug", ""},
        // Erased flash, no eth0: the failing MAC read and an empty table.
        MemcheckCase{
            "ErasedFlashWithoutEth0", std::string(280, '\xff'), {"--no-eth0"}, "debug", ""},
        // A record file named on the command line.
        MemcheckCase{"RecordFileFromTheCommandLine",
                     MakeRecord(0x99, "FILE_BOARD", "02:00:00:00:00:02", "P2P"),
                     {},
                     "debug dev3_file=/config/dev_info",
                     "/config/dev_info"}),
    [](const ::testing::TestParamInfo<MemcheckCase> &info) {
        return std::string(info.param.name);
    });

} // namespace
} // namespace hwtest
