// System tests of the command line on the real binary in the
// board sandbox: the argument echo, help, version, the debug word and the
// two store-path scans. The program never exits after a start, so its
// output is read from /tmp/hw.out while it still runs (Board::Boot).
#include "board.h"

#include <gtest/gtest.h>

#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace hwtest {
namespace {

const std::vector<std::string> kHelp = {
    "support cmd list:",
    "help: show this menu",
    "version: show version",
    "debug: work with debug info output",
    "dev3_file=xxxxxx: save device info to file xxxx, xxxx must include absolute path, if use "
    "mtdblock, set xxxxx like this: /dev/mtdblock3",
};

// "hw_start version : 3.0.0, build time Apr 24 2025 09:52:18"; __DATE__
// pads a one-digit day with a blank ("Nov  3 2025").
const std::regex kVersionLine(
    "hw_start version : 3\\.0\\.0, build time "
    "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-9]{4} "
    "[0-2][0-9]:[0-5][0-9]:[0-6][0-9]");

const std::string kTag = "[bdsetup] NOTICE! ";

std::vector<std::string> Echo(const std::vector<std::string> &args)
{
    std::vector<std::string> lines = {"argc = " + std::to_string(args.size() + 1)};
    for (std::size_t i = 0; i < args.size(); ++i)
        lines.push_back("argv" + std::to_string(i + 1) + " = " + args[i]);
    return lines;
}

std::string Joined(const std::vector<std::string> &args)
{
    std::string text;
    for (const std::string &a : args)
        text += (text.empty() ? "" : " ") + ShellQuote(a);
    return text;
}

// An expected line; "<ptr>" in it stands for a non-null %p pointer.
bool LineMatches(const std::string &expected, const std::string &line)
{
    std::size_t at = expected.find("<ptr>");
    if (at == std::string::npos)
        return line == expected;
    std::string head = expected.substr(0, at);
    std::string tail = expected.substr(at + 5);
    if (line.size() < head.size() + tail.size() + 3 || line.compare(0, head.size(), head) != 0 ||
        line.compare(line.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    std::string ptr = line.substr(head.size(), line.size() - head.size() - tail.size());
    return std::regex_match(ptr, std::regex("0x[0-9a-f]+"));
}

// Checks that `expected` appear among `lines` in this order (others may come
// between them).
::testing::AssertionResult HasInOrder(const std::vector<std::string> &lines,
                                      const std::vector<std::string> &expected)
{
    std::size_t pos = 0;
    for (const std::string &want : expected) {
        while (pos < lines.size() && !LineMatches(want, lines[pos]))
            ++pos;
        if (pos == lines.size())
            return ::testing::AssertionFailure() << "missing (or out of order): \"" << want << "\"";
        ++pos;
    }
    return ::testing::AssertionSuccess();
}

int CountContaining(const std::vector<std::string> &lines, const std::string &text)
{
    int n = 0;
    for (const std::string &line : lines)
        n += line.find(text) != std::string::npos ? 1 : 0;
    return n;
}

// --- words that end the program: help and version ---------------------------

struct ExitCase {
    const char *name;
    std::vector<std::string> args;
    bool help; // the help text; else the version line
};

void PrintTo(const ExitCase &c, std::ostream *os) { *os << c.name; }

class CliExitTest : public BoardTest, public ::testing::WithParamInterface<ExitCase> {};

TEST_P(CliExitTest, PrintsAndExitsZero)
{
    const ExitCase &c = GetParam();
    RunResult r = board.Run("hw " + Joined(c.args));
    EXPECT_EQ(r.status, 0) << r.err;

    std::vector<std::string> lines = Lines(r.out);
    std::vector<std::string> want = Echo(c.args);
    std::size_t echo_size = want.size();
    if (c.help) {
        want.insert(want.end(), kHelp.begin(), kHelp.end());
        EXPECT_EQ(lines, want) << r.out;
    } else {
        ASSERT_EQ(lines.size(), echo_size + 1) << r.out;
        EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + echo_size), want);
        EXPECT_TRUE(std::regex_match(lines.back(), kVersionLine)) << lines.back();
    }
    ASSERT_FALSE(r.out.empty());
    EXPECT_EQ(r.out.back(), '\n');
    // Nothing of the start-up ran: no shell command, no started program.
    EXPECT_TRUE(board.ShellLog().empty());
    EXPECT_FALSE(board.Exists("/var/run/vrn_ddns_client.args"));
}

const ExitCase kExitCases[] = {
    {"help", {"help"}, true},
    {"version", {"version"}, false},
    {"version_then_help", {"version", "help"}, true}, // help wins wherever it stands
    {"help_then_version", {"help", "version"}, true},
    {"debug_version", {"debug", "version"}, false}, // debug has no visible effect
    {"debug_help", {"debug", "help"}, true},
    {"help_after_others", {"foo", "dev3_file=/tmp/a", "help"}, true},
    {"version_after_others", {"dev_file=/tmp/b", "x", "version"}, false},
};

INSTANTIATE_TEST_SUITE_P(Cli, CliExitTest, ::testing::ValuesIn(kExitCases),
                         [](const ::testing::TestParamInfo<ExitCase> &info) {
                             return std::string(info.param.name);
                         });

// --- starts without debug ------------------------------------------------------

class CliStartTest : public BoardTest {};

TEST_F(CliStartTest, NoArgumentsEchoesOnlyArgcAndReadsTheFlashStore)
{
    board.PutRecord(MakeRecord(0x851, "NOARGS_BOARD", "02:00:00:00:00:42"));
    board.Boot({});
    ASSERT_TRUE(board.Alive()) << board.Output() << board.Err();

    std::vector<std::string> lines = Lines(board.Output());
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "argc = 1");
    EXPECT_EQ(CountContaining(lines, "argv"), 0) << board.Output();
    EXPECT_EQ(CountContaining(lines, kTag), 0) << board.Output();
    // The default store, /dev/mtdblock3, was read: its MAC is on eth0 and
    // its board name went to the DDNS client.
    EXPECT_EQ(board.Read("/tmp/eth0.mac"), "02:00:00:00:00:42\n");
    std::vector<std::string> ddns = board.ProgramArgs("vrn_ddns_client");
    ASSERT_EQ(ddns.size(), 2u);
    EXPECT_EQ(ddns[1], "dev_type=NOARGS_BOARD");
}

TEST_F(CliStartTest, WordsThatAreNotExactAreOnlyEchoed)
{
    std::vector<std::string> args = {"Help", "versions", "xdebug", "debug2", "-debug", ""};
    board.Boot(args);
    EXPECT_TRUE(board.Alive()) << board.Output();
    std::vector<std::string> lines = Lines(board.Output());
    std::vector<std::string> echo = Echo(args);
    ASSERT_GE(lines.size(), echo.size()) << board.Output();
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + echo.size()), echo);
    EXPECT_EQ(CountContaining(lines, kTag), 0) << board.Output();
    EXPECT_EQ(CountContaining(lines, "support cmd list:"), 0);
    EXPECT_EQ(CountContaining(lines, "hw_start version"), 0);
    EXPECT_FALSE(board.ProgramArgs("gui").empty());
}

TEST_F(CliStartTest, StorePathWithoutDebugPrintsNoDebugLine)
{
    board.Put("/tmp/rec", MakeRecord(0x851, "FROM_FILE", "02:00:00:00:00:43"));
    board.Boot({"dev3_file=/tmp/rec"});
    EXPECT_TRUE(board.Alive());
    EXPECT_EQ(CountContaining(Lines(board.Output()), kTag), 0) << board.Output();
    std::vector<std::string> ddns = board.ProgramArgs("vrn_ddns_client");
    ASSERT_EQ(ddns.size(), 2u);
    EXPECT_EQ(ddns[1], "dev_type=FROM_FILE");
}

// --- the debug word and the store-path scans ------------------------------------

// One start with `debug` among the arguments: the lines that must appear,
// in this order, and texts that no line may contain.
struct ScanCase {
    const char *name;
    std::vector<std::string> args;
    std::vector<std::string> in_order; // full lines; "<ptr>" = a %p pointer
    std::vector<std::string> absent;
    std::string record_path; // when set, a record naming FROM_<path> goes there
    std::string board_name;  // when set, the name the DDNS client must get
};

void PrintTo(const ScanCase &c, std::ostream *os) { *os << c.name; }

std::string Main(const std::string &message) { return kTag + "main:" + message; }
std::string SetDev(const std::string &path)
{
    return kTag + "SetDevFile:set dev info file " + path;
}

const std::string kLong200 = "/tmp/" + std::string(195, 'd');
const std::string kLong127 = kLong200.substr(0, 127);
const std::string kFlashRead = kTag + "do_read_dev_mtd:enter!";

class CliScanTest : public BoardTest, public ::testing::WithParamInterface<ScanCase> {};

TEST_P(CliScanTest, DebugLines)
{
    const ScanCase &c = GetParam();
    board.PutRecord(MakeRecord(0x851, "FROM_FLASH", "02:00:00:00:00:44"));
    if (!c.record_path.empty())
        board.Put(c.record_path, MakeRecord(0x851, "FROM_FILE", "02:00:00:00:00:45"));
    board.Boot(c.args);
    ASSERT_TRUE(board.Alive()) << board.Output() << board.Err();

    std::vector<std::string> lines = Lines(board.Output());
    std::vector<std::string> want = Echo(c.args);
    want.insert(want.end(), c.in_order.begin(), c.in_order.end());
    EXPECT_TRUE(HasInOrder(lines, want)) << board.Output();
    // The echo comes first, before any debug line.
    for (std::size_t i = 0; i < Echo(c.args).size() && i < lines.size(); ++i)
        EXPECT_EQ(lines[i], Echo(c.args)[i]);
    for (const std::string &text : c.absent)
        EXPECT_EQ(CountContaining(lines, text), 0) << "\"" << text << "\" in:\n" << board.Output();
    if (!c.board_name.empty()) {
        std::vector<std::string> ddns = board.ProgramArgs("vrn_ddns_client");
        ASSERT_EQ(ddns.size(), 2u) << board.Output();
        EXPECT_EQ(ddns[1], "dev_type=" + c.board_name);
    }
}

const ScanCase kScanCases[] = {
    {"debug_alone",
     {"debug"},
     {Main("arg1 = debug, file = (nil)"), Main("arg1 = debug, file = (nil)"), kFlashRead},
     {"SetDevFile", "dev file"},
     "",
     "FROM_FLASH"},
    {"debug_last_still_logs_scans",
     {"dev3_file=/tmp/rec", "debug"},
     {Main("arg1 = dev3_file=/tmp/rec, file = <ptr>"), Main("dev file = dev3_file=/tmp/rec"),
      Main("dev file1 = /tmp/rec"), Main("arg1 = dev3_file=/tmp/rec, file = (nil)"),
      Main("arg2 = debug, file = (nil)"), SetDev("/tmp/rec")},
     {"do_read_dev_mtd"},
     "/tmp/rec",
     "FROM_FILE"},
    {"dev3_file_path",
     {"debug", "dev3_file=/tmp/rec"},
     {Main("arg1 = debug, file = (nil)"), Main("arg2 = dev3_file=/tmp/rec, file = <ptr>"),
      Main("dev file = dev3_file=/tmp/rec"), Main("dev file1 = /tmp/rec"),
      Main("arg1 = debug, file = (nil)"), Main("arg2 = dev3_file=/tmp/rec, file = (nil)"),
      SetDev("/tmp/rec"), kTag + "do_read_file:read device info  file /tmp/rec success"},
     {"do_read_dev_mtd"},
     "/tmp/rec",
     "FROM_FILE"},
    {"word_inside_argument",
     {"debug", "xdev3_file_a=/tmp/p"},
     {Main("arg2 = xdev3_file_a=/tmp/p, file = <ptr>"), Main("dev file = dev3_file_a=/tmp/p"),
      Main("dev file1 = /tmp/p"), SetDev("/tmp/p")},
     {"do_read_dev_mtd"},
     "/tmp/p",
     "FROM_FILE"},
    {"no_equals_ends_the_scan",
     {"debug", "dev3_file", "dev3_file=/tmp/a"},
     // The dev3_file scan stops at argument 2: argument 3 is examined only
     // by the dev_file= scan.
     {Main("arg1 = debug, file = (nil)"), Main("arg2 = dev3_file, file = <ptr>"),
      Main("dev file = dev3_file"), Main("arg1 = debug, file = (nil)"),
      Main("arg2 = dev3_file, file = (nil)"), Main("arg3 = dev3_file=/tmp/a, file = (nil)"),
      kFlashRead},
     {"dev file1", "SetDevFile", "dev file = dev3_file=", "/tmp/a, file = 0x"},
     "/tmp/a",
     "FROM_FLASH"},
    {"dev_file_replaces_dev3_file",
     {"debug", "dev3_file=/tmp/a", "dev_file=/tmp/b"},
     {Main("arg2 = dev3_file=/tmp/a, file = <ptr>"), Main("dev file1 = /tmp/a"),
      Main("arg1 = debug, file = (nil)"), Main("arg2 = dev3_file=/tmp/a, file = (nil)"),
      Main("arg3 = dev_file=/tmp/b, file = <ptr>"), Main("dev file = dev_file=/tmp/b"),
      Main("dev file1 = /tmp/b"), SetDev("/tmp/b")},
     {SetDev("/tmp/a"), "do_read_dev_mtd"},
     "/tmp/b",
     "FROM_FILE"},
    {"dev_file_inside_argument",
     {"debug", "mydev_file=/tmp/b"},
     {Main("arg2 = mydev_file=/tmp/b, file = <ptr>"), Main("dev file = dev_file=/tmp/b"),
      Main("dev file1 = /tmp/b"), SetDev("/tmp/b")},
     {"do_read_dev_mtd"},
     "/tmp/b",
     "FROM_FILE"},
    {"empty_path_keeps_default_store",
     {"debug", "dev3_file="},
     {Main("arg2 = dev3_file=, file = <ptr>"), Main("dev file = dev3_file="),
      Main("dev file1 = "), kFlashRead},
     {"SetDevFile"},
     "",
     "FROM_FLASH"},
    // The scan logs all 200 characters, then keeps 127 in dev_file_path;
    // SetDevFile logs what it is given, which is that 127-character copy,
    // and the store opens it.
    {"long_path_cut_to_127",
     {"debug", "dev3_file=" + kLong200},
     {Main("dev file1 = " + kLong200), SetDev(kLong127),
      kTag + "do_read_file:open file " + kLong127 + " failed"},
     {"do_read_dev_mtd", SetDev(kLong200)},
     "",
     ""},
    {"long_path_reads_the_cut_file",
     {"debug", "dev3_file=" + kLong200},
     {Main("dev file1 = " + kLong200), SetDev(kLong127),
      kTag + "do_read_file:read device info  file " + kLong127 + " success"},
     {"do_read_dev_mtd", SetDev(kLong200)},
     kLong127,
     "FROM_FILE"},
};

INSTANTIATE_TEST_SUITE_P(Cli, CliScanTest, ::testing::ValuesIn(kScanCases),
                         [](const ::testing::TestParamInfo<ScanCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
