// System tests of the command line on the real binary in the board
// sandbox: one table of arguments and the output lines that follow their
// echo, up to the program's exit (help, version) or up to the first line
// of the store's read (debug) or of the started DDNS client.
#include "board.h"

#include <gtest/gtest.h>

#include <ostream>
#include <regex>
#include <string>
#include <vector>

namespace hwtest {
namespace {

using Strings = std::vector<std::string>;

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kDdns = "vrn_ddns_client started";
const std::string kFlashRead = "do_read_dev_mtd:enter!";
const std::string kFileRead = "do_read_file:read device info  file /tmp/rec success";

const Strings kHelp = {
    "support cmd list:",
    "help: show this menu",
    "version: show version",
    "debug: work with debug info output",
    "dev3_file=xxxxxx: save device info to file xxxx, xxxx must include absolute path, if use "
    "mtdblock, set xxxxx like this: /dev/mtdblock3",
};

struct CliCase {
    const char *name;
    Strings args;
    // Behind the echo, debug lines without their tag; <ptr> stands for a
    // %p pointer, <version> for the version line.
    Strings lines;
    std::string dev_type; // the board name the DDNS client gets; "" when the program exits
};

void PrintTo(const CliCase &c, std::ostream *os) { *os << c.name; }

const CliCase kCases[] = {
    // No word is looked for: only "argc = 1" is echoed.
    {"NoArguments", {}, {kDdns}, "FROM_FLASH"},
    {"HelpWinsOverAnEarlierVersion", {"version", "debug", "help"}, kHelp, ""},
    // Before any scan, so the debug word shows nothing.
    {"VersionEndsBeforeTheScans", {"debug", "dev3_file=/tmp/rec", "version"}, {"<version>"}, ""},
    {"WordsThatAreNotExactAreOnlyEchoed",
     {"Help", "versions", "xdebug", "debug2", "-debug", ""}, {kDdns}, "FROM_FLASH"},
    {"StorePathWithoutDebug", {"dev3_file=/tmp/rec"}, {kDdns}, "FROM_FILE"},
    // Both scans log each argument they examine; the first stops at its match.
    {"WordInsideAnArgumentAndDebugLast", {"xdev3_file_a=/tmp/rec", "debug"},
     {"main:arg1 = xdev3_file_a=/tmp/rec, file = <ptr>", "main:dev file = dev3_file_a=/tmp/rec",
      "main:dev file1 = /tmp/rec", "main:arg1 = xdev3_file_a=/tmp/rec, file = (nil)",
      "main:arg2 = debug, file = (nil)", "SetDevFile:set dev info file /tmp/rec", kFileRead},
     "FROM_FILE"},
    {"NoEqualsEndsTheFirstScan", {"debug", "dev3_file", "dev3_file=/tmp/rec"},
     {"main:arg1 = debug, file = (nil)", "main:arg2 = dev3_file, file = <ptr>",
      "main:dev file = dev3_file", "main:arg1 = debug, file = (nil)",
      "main:arg2 = dev3_file, file = (nil)", "main:arg3 = dev3_file=/tmp/rec, file = (nil)",
      kFlashRead},
     "FROM_FLASH"},
    {"DevFileReplacesDev3File", {"debug", "dev3_file=/tmp/a", "mydev_file=/tmp/rec"},
     {"main:arg1 = debug, file = (nil)", "main:arg2 = dev3_file=/tmp/a, file = <ptr>",
      "main:dev file = dev3_file=/tmp/a", "main:dev file1 = /tmp/a",
      "main:arg1 = debug, file = (nil)", "main:arg2 = dev3_file=/tmp/a, file = (nil)",
      "main:arg3 = mydev_file=/tmp/rec, file = <ptr>", "main:dev file = dev_file=/tmp/rec",
      "main:dev file1 = /tmp/rec", "SetDevFile:set dev info file /tmp/rec", kFileRead},
     "FROM_FILE"},
    {"EmptyPathKeepsTheFlash", {"debug", "dev3_file="},
     {"main:arg1 = debug, file = (nil)", "main:arg2 = dev3_file=, file = <ptr>",
      "main:dev file = dev3_file=", "main:dev file1 = ", "main:arg1 = debug, file = (nil)",
      "main:arg2 = dev3_file=, file = (nil)", kFlashRead},
     "FROM_FLASH"},
};

class CliTest : public BoardTest, public ::testing::WithParamInterface<CliCase> {};

TEST_P(CliTest, OutputLines)
{
    const CliCase &c = GetParam();
    const std::string mac = "02:00:00:00:00:01"; // eth0's: no MAC set-up, no line of it
    board.PutRecord(MakeRecord(0x851, "FROM_FLASH", mac));
    board.Put("/tmp/rec", MakeRecord(0x851, "FROM_FILE", mac));
    BootOptions options;
    options.until = "[ -e /var/run/gui.args ] || ! hw_alive";
    board.Boot(c.args, options);

    Strings want = {"argc = " + std::to_string(c.args.size() + 1)};
    for (std::size_t i = 0; i < c.args.size(); ++i)
        want.push_back("argv" + std::to_string(i + 1) + " = " + c.args[i]);
    want.insert(want.end(), c.lines.begin(), c.lines.end());
    const std::regex ptr("file = 0x[0-9a-f]+$");
    // "hw_start version : 3.0.0, build time Apr 24 2025 09:52:18"; __DATE__
    // pads a one-digit day with a blank ("Nov  3 2025").
    const std::regex version("hw_start version : 3\\.0\\.0, build time "
                             "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] "
                             "[0-9]{4} [0-2][0-9]:[0-5][0-9]:[0-6][0-9]");
    Strings lines;
    for (std::string line : Lines(board.Output())) {
        if (line.rfind(kTag, 0) == 0)
            line = std::regex_replace(line.substr(kTag.size()), ptr, "file = <ptr>");
        lines.push_back(std::regex_match(line, version) ? "<version>" : line);
        if (line == kDdns || line.rfind("do_read_", 0) == 0)
            break;
    }
    EXPECT_EQ(lines, want) << board.Output();

    if (c.dev_type.empty()) {
        EXPECT_FALSE(board.Alive());
        EXPECT_EQ(board.Read("/tmp/hw.status"), "0\n");
        const std::string out = board.Output();
        EXPECT_TRUE(!out.empty() && out.back() == '\n') << "the last line ends";
        EXPECT_TRUE(board.ShellLog().empty()) << "nothing of the start-up ran";
    } else {
        EXPECT_TRUE(board.Alive()) << board.Err();
        EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
                  (Strings{"/mnt/mtd/app", "dev_type=" + c.dev_type}));
    }
}

INSTANTIATE_TEST_SUITE_P(Cli, CliTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CliCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
