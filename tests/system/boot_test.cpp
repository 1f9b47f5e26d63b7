// System tests of the boot on the real binary in the board sandbox: the
// shared identity block as another process of the board reads it (inside
// the sandbox's IPC namespace, through shm_dump), the work-mode marker
// under /firmware, the order of the boot's steps, and the two programs it
// starts with the board name as exactly one argument, whatever the name.
#include "board.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace {

const std::string kTag = "[bdsetup] NOTICE! ";
// eth0's address at the start of a run: records carrying it start no
// network command, so the shell log holds the boot's commands alone.
const std::string kSandboxMac = "02:00:00:00:00:01";
const std::vector<std::string> kGuiArgs = {"/mnt/mtd/app"};
const std::string kGuiCommand = "cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &";

std::string DdnsCommand(const std::string &word)
{
    return "cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=" + word + " &";
}

std::vector<std::string> DdnsArgs(const std::string &name)
{
    return {"/mnt/mtd/app", "dev_type=" + name};
}

// The 96 bytes of the block for a board name of at most 31 characters:
// magic, zero GUID, run mode 0, the name zero-padded, flag, zero reserve.
std::string Block(const std::string &name)
{
    std::string block(96, '\0');
    block.replace(0, 4, "\x28\x95\x27\x95", 4);
    block.replace(32, name.size(), name);
    block.replace(64, 4, "\x02\xde\xcf\x78", 4);
    return block;
}

// The messages of `func`'s debug lines, in order.
std::vector<std::string> Notices(const std::string &out, const std::string &func)
{
    std::vector<std::string> messages;
    const std::string head = kTag + func + ":";
    for (const std::string &line : Lines(out))
        if (line.rfind(head, 0) == 0)
            messages.push_back(line.substr(head.size()));
    return messages;
}

// The shell log without the MAC set-up's commands (records with an empty
// or foreign MAC text start them before the boot).
std::vector<std::string> BootCommands(const Board &board)
{
    std::vector<std::string> commands;
    for (const std::string &c : board.ShellLog())
        if (c.rfind("ifconfig ", 0) != 0 && c.rfind("route ", 0) != 0)
            commands.push_back(c);
    return commands;
}

// "shmid=N size=N mode=0NNN" of shm_dump: the id, or "" when it is not that.
std::string ShmId(const std::string &info, const std::string &size_mode)
{
    std::smatch m;
    if (!std::regex_match(info, m, std::regex("shmid=([0-9]+) " + size_mode + "\n")))
        return "";
    return m[1];
}

// --- the shared identity block ------------------------------------------------

class IdentityBlockTest : public BoardTest {};

TEST_F(IdentityBlockTest, FreshBootInOrderThenASecondStartReusesTheSegment)
{
    board.PutRecord(MakeRecord(0x851, "IPC_BOARD_1", kSandboxMac));
    board.Put("/tmp/rec2", MakeRecord(0x851, "SECOND_START", kSandboxMac));
    BootOptions options;
    // After the dump: the first instance ends, a second one starts on the
    // same board (segment, /firmware/851) with another record.
    options.after = "kill \"$HW_PID\"; wait \"$HW_PID\"\n"
                    "rm -f /var/run/gui.args /var/run/vrn_ddns_client.args\n"
                    "hw debug dev3_file=/tmp/rec2 >/tmp/hw2.out 2>&1 &\n"
                    "n=0; while [ ! -e /var/run/gui.args ] && [ $n -lt 100 ]; do"
                    " sleep 0.1; n=$((n + 1)); done; sleep 0.2\n"
                    "$HW_RUNNER /sbin/shm_dump /tmp/shm2.bin >/tmp/shm2.info 2>&1\n";
    board.Boot({"debug"}, options);

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    const std::string id = ShmId(board.Read("/tmp/shm.info"), "size=96 mode=0604");
    ASSERT_NE(id, "") << board.Read("/tmp/shm.info");
    EXPECT_EQ(board.Read("/tmp/shm.bin"), Block("IPC_BOARD_1"));

    // From the store's read on: the boot's debug lines in this order, and
    // no other debug line (the attach address varies).
    std::vector<std::string> notices;
    for (const std::string &line : Lines(board.Output()))
        if (line.rfind(kTag, 0) == 0)
            notices.push_back(std::regex_replace(line.substr(kTag.size()),
                                                 std::regex("shared_memory = 0x[0-9a-f]+ "),
                                                 "shared_memory = 0x* "));
    const auto read = std::find(notices.begin(), notices.end(), "do_read_dev_mtd:enter!");
    EXPECT_EQ(std::vector<std::string>(read, notices.end()),
              (std::vector<std::string>{
                  "do_read_dev_mtd:enter!",
                  "boot:begin write_shmem1",
                  "write_shmem1:creat_shm ok, shmid = " + id + ", shared_memory = 0x* !!",
                  "write_shmem1:shmem_info.run_mode = 0x0 !!",
                  "write_shmem1:shmem_info.guid.Data1 = 0x0 !!",
                  "write_shmem1:shmem_info.guid.Data2 = 0x0 !!",
                  "write_shmem1:shmem_info.guid.Data3 = 0x0 !!",
                  "write_shmem1:shmem_info.name = IPC_BOARD_1",
                  "boot:begin CreateWorkModeID",
                  "CreateWorkModeID:begin firmware",
                  "CreateWorkModeID:begin remove",
                  "CreateWorkModeID:begin touch",
                  "boot:begin boot",
              }))
        << board.Output();
    // The DDNS client writes to the program's output, the GUI to the console.
    EXPECT_NE(board.Output().find("vrn_ddns_client started\n"), std::string::npos);
    EXPECT_EQ(board.Read("/dev/console"), "gui started\n");

    // The second start: same segment, written again; its own marker remade.
    EXPECT_EQ(board.Read("/tmp/shm2.info"), board.Read("/tmp/shm.info"));
    EXPECT_EQ(board.Read("/tmp/shm2.bin"), Block("SECOND_START"));
    const std::string second = board.Read("/tmp/hw2.out");
    const std::vector<std::string> shm2 = Notices(second, "write_shmem1");
    ASSERT_FALSE(shm2.empty()) << second;
    EXPECT_EQ(shm2[0].rfind("creat_shm ok, shmid = " + id + ",", 0), 0u) << second;
    EXPECT_EQ(Notices(second, "CreateWorkModeID"),
              (std::vector<std::string>{"begin firmware", "begin remove", "remove /firmware/851",
                                        "begin touch"}));
    EXPECT_EQ(board.ShellLog(),
              (std::vector<std::string>{"mkdir /firmware", "touch /firmware/851",
                                        DdnsCommand("IPC_BOARD_1"), kGuiCommand,
                                        "touch /firmware/851", DdnsCommand("SECOND_START"),
                                        kGuiCommand}));
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"), DdnsArgs("SECOND_START"));
    EXPECT_EQ(board.ProgramArgs("gui"), kGuiArgs);
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), "851\n");
}

TEST_F(IdentityBlockTest, SmallerSegmentOfTheKeyFailsTheWriteButNotTheBoot)
{
    board.PutRecord(MakeRecord(0x851, "IPC_BOARD_1", kSandboxMac));
    BootOptions options;
    options.before = "$HW_RUNNER /sbin/shm_dump --create 16 >/tmp/pre.info";
    board.Boot({"debug"}, options);

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    EXPECT_EQ(Notices(board.Output(), "write_shmem1"), std::vector<std::string>{"shmget error !!"})
        << board.Output();
    const std::string id = ShmId(board.Read("/tmp/shm.info"), "size=16 mode=0604");
    EXPECT_NE(id, "") << board.Read("/tmp/shm.info");
    EXPECT_EQ(board.Read("/tmp/pre.info"), "shmid=" + id + "\n");
    EXPECT_EQ(board.Read("/tmp/shm.bin"), std::string(16, '\0')) << "nothing written";
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), "851\n");
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"), DdnsArgs("IPC_BOARD_1"));
    EXPECT_EQ(board.ProgramArgs("gui"), kGuiArgs);
}

// --- what the record gives the block, the marker and the DDNS client -----------

std::string WithField(std::string rec, std::size_t offset, const std::string &bytes)
{
    rec.replace(offset, bytes.size(), bytes);
    return rec;
}

const std::string kName31 = "BOARD_NAME_OF_31_CHARACTERS_XYZ";

struct RecordCase {
    const char *name;
    std::string record;
    bool firmware_dir; // /firmware exists before the boot
    std::vector<std::pair<std::string, std::string>> markers; // already in it
    std::string board_name; // the text the boot takes from the record
    std::string marker;     // the one the boot makes
    std::string listing;    // ls -A /firmware afterwards
    bool removes_own;       // "remove /firmware/851"
};

void PrintTo(const RecordCase &c, std::ostream *os) { *os << c.name; }

const std::string kOld = "left by an earlier boot";

const RecordCase kRecordCases[] = {
    {"NoFirmwareDirectory", MakeRecord(0x851, "IPC", kSandboxMac), false, {}, "IPC", "851",
     "851\n", false},
    {"OwnMarkerRemovedAndMadeAgain", MakeRecord(0x851, "IPC", kSandboxMac), true,
     {{"851", kOld}}, "IPC", "851", "851\n", true},
    {"OtherIdRemovesOwnMarker", MakeRecord(0xABCDEF, "IPC", kSandboxMac), true, {{"851", kOld}},
     "IPC", "abcdef", "abcdef\n", true},
    {"MarkerOfAnotherIdStays", MakeRecord(0x851, "IPC", kSandboxMac), true, {{"abcdef", kOld}},
     "IPC", "851", "851\nabcdef\n", false},
    {"IdZero", MakeRecord(0, "IPC", kSandboxMac), true, {}, "IPC", "0", "0\n", false},
    {"AllZeroRecord", std::string(280, '\0'), false, {}, "", "0", "0\n", false},
    {"ErasedPartition", std::string(280, '\xff'), true, {}, "", "ffffffff", "ffffffff\n", false},
    {"Name31Characters", MakeRecord(0x851, kName31, kSandboxMac), true, {}, kName31, "851",
     "851\n", false},
    // 32 name bytes without a NUL: no text at all, and nothing of the MAC
    // field behind it.
    {"Name32BytesUnterminated",
     WithField(MakeRecord(0x851, "", kSandboxMac), 36, std::string(32, 'N')), true, {}, "", "851",
     "851\n", false},
    // Bytes behind the terminator stay out of the block.
    {"BytesBehindTheTerminator",
     WithField(MakeRecord(0x851, "", kSandboxMac), 36,
               std::string("SHORT\0", 6) + std::string(26, '\xab')),
     true, {}, "SHORT", "851", "851\n", false},
};

class IdentityRecordTest : public BoardTest, public ::testing::WithParamInterface<RecordCase> {};

TEST_P(IdentityRecordTest, BlockMarkerAndPrograms)
{
    const RecordCase &c = GetParam();
    board.PutRecord(c.record);
    if (c.firmware_dir)
        board.MakeDir("/firmware");
    for (const auto &[file, content] : c.markers)
        board.Put("/firmware/" + file, content);
    board.Boot({"debug"});

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    EXPECT_EQ(board.Read("/tmp/shm.bin"), Block(c.board_name));
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), c.listing);
    EXPECT_EQ(board.Read("/firmware/" + c.marker), "") << "an empty, new marker";
    for (const auto &[file, content] : c.markers) {
        if (file != "851") {
            EXPECT_EQ(board.Read("/firmware/" + file), content) << file;
        }
    }

    std::vector<std::string> notices = {"begin firmware", "begin remove"};
    if (c.removes_own)
        notices.push_back("remove /firmware/851");
    notices.push_back("begin touch");
    EXPECT_EQ(Notices(board.Output(), "CreateWorkModeID"), notices);

    std::vector<std::string> commands;
    if (!c.firmware_dir)
        commands.push_back("mkdir /firmware");
    commands.push_back("touch /firmware/" + c.marker);
    commands.push_back(DdnsCommand(c.board_name));
    commands.push_back(kGuiCommand);
    EXPECT_EQ(BootCommands(board), commands);
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"), DdnsArgs(c.board_name));
    EXPECT_EQ(board.ProgramArgs("gui"), kGuiArgs);
}

INSTANTIATE_TEST_SUITE_P(Boot, IdentityRecordTest, ::testing::ValuesIn(kRecordCases),
                         [](const ::testing::TestParamInfo<RecordCase> &info) {
                             return std::string(info.param.name);
                         });

// --- board names that the shell must not read as code --------------------------

std::string Repeat(const std::string &text, int times)
{
    std::string out;
    for (int i = 0; i < times; ++i)
        out += text;
    return out;
}

struct NameCase {
    const char *name;
    std::string board_name;
    std::string word; // as it stands in the DDNS client's command
};

void PrintTo(const NameCase &c, std::ostream *os) { *os << c.name; }

const NameCase kNameCases[] = {
    {"Semicolon", "x;touch /tmp/pwned", "'x;touch /tmp/pwned'"},
    {"CommandSubstitution", "$(touch /tmp/pwned)", "'$(touch /tmp/pwned)'"},
    {"Backquotes", "`touch /tmp/pwned`", "'`touch /tmp/pwned`'"},
    {"SingleQuotes", "a';touch /tmp/pwned;'b", "'a'\\'';touch /tmp/pwned;'\\''b'"},
    {"DoubleQuotes", "\"$(touch /tmp/pwned)\"", "'\"$(touch /tmp/pwned)\"'"},
    {"Newline", "a\ntouch /tmp/pwned", "'a\ntouch /tmp/pwned'"},
    {"BlanksGlobRedirect", "a b * >/tmp/pwned|&", "'a b * >/tmp/pwned|&'"},
    {"TabAndUtf8", "caf\xc3\xa9\t1", "'caf\xc3\xa9\t1'"},
    {"LeadingDashAndEveryPlainCharacter", "-rf_Az.09:/+=,@", "-rf_Az.09:/+=,@"},
    // The longest quoted word there can be: 2 + 31 * 4 characters.
    {"ThirtyOneSingleQuotes", std::string(31, '\''), "'" + Repeat("'\\''", 31) + "'"},
};

class IdentityNameTest : public BoardTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(IdentityNameTest, DdnsClientGetsTheNameAsOneArgument)
{
    const NameCase &c = GetParam();
    board.PutRecord(MakeRecord(0x851, c.board_name, kSandboxMac));
    board.MakeDir("/firmware");
    board.Boot({});

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"), DdnsArgs(c.board_name));
    EXPECT_EQ(board.ProgramArgs("gui"), kGuiArgs);
    EXPECT_EQ(board.ShellLog(), (std::vector<std::string>{"touch /firmware/851",
                                                          DdnsCommand(c.word), kGuiCommand}));
    EXPECT_FALSE(board.Exists("/tmp/pwned"));
    EXPECT_EQ(board.Read("/tmp/shm.bin"), Block(c.board_name));
}

INSTANTIATE_TEST_SUITE_P(Boot, IdentityNameTest, ::testing::ValuesIn(kNameCases),
                         [](const ::testing::TestParamInfo<NameCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
