// System tests of the boot on the real binary in the board sandbox: a
// start's whole output in order, the shared identity block as another
// process of the board reads it (inside the sandbox's IPC namespace,
// through shm_dump), the work-mode markers under /firmware and the two
// programs it starts; then a second start on the same board. And what the
// shipped binary needs of the board to run at all.
#include "board.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace hwtest {
namespace {

using Strings = std::vector<std::string>;

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kSandboxMac = "02:00:00:00:00:01"; // eth0 at the start of a run
const std::string kOtherMac = "02:12:34:56:78:9a";
const std::string kName31 = "BOARD_NAME_OF_31_CHARACTERS_XYZ";
const std::string kOld = "left by an earlier boot";
const std::string kGuiCommand = "cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &";

std::string DdnsCommand(const std::string &name)
{
    return "cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=" + name + " &";
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

class IdentityBlockTest : public BoardTest {};

TEST_F(IdentityBlockTest, FreshBootInOrderThenASecondStartReusesTheSegment)
{
    // The first start finds its own marker and one of another id; the
    // second start reads a record of a third id from a file.
    board.PutRecord(MakeRecord(0x851, kName31, kOtherMac));
    board.Put("/firmware/851", kOld);
    board.Put("/firmware/1234", kOld);
    board.Put("/tmp/rec2", MakeRecord(0xabcdef, "SECOND_START", kOtherMac));
    BootOptions options;
    // After the dump: the first instance ends, a second one starts on the
    // same board (segment, /firmware, eth0's new address).
    options.after = "cp /firmware/851 /tmp/851.first\n"
                    "kill \"$HW_PID\"; wait \"$HW_PID\"\n"
                    "rm -f /var/run/gui.args /var/run/vrn_ddns_client.args\n"
                    "hw debug dev3_file=/tmp/rec2 >/tmp/hw2.out 2>&1 &\n"
                    "n=0; while [ ! -e /var/run/gui.args ] && [ $n -lt 100 ]; do"
                    " sleep 0.1; n=$((n + 1)); done; sleep 0.2\n"
                    "$HW_RUNNER /sbin/shm_dump /tmp/shm2.bin >/tmp/shm2.info 2>&1\n";
    board.Boot({"debug"}, options);

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    const std::string info = board.Read("/tmp/shm.info");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(info, m, std::regex("shmid=([0-9]+) size=96 mode=0604\n")))
        << info;
    const std::string id = m[1];
    EXPECT_EQ(board.Read("/tmp/shm.bin"), Block(kName31)) << "31 characters and the NUL";

    // The whole output in order: the echo, the scans, the store's read, the
    // MAC set-up, the boot's steps; the DDNS client, which writes to the
    // program's output, right behind them: nothing waited in a buffer.
    Strings want = {"argc = 2", "argv1 = debug"};
    for (const std::string &notice : Strings{
             "main:arg1 = debug, file = (nil)", "main:arg1 = debug, file = (nil)",
             "do_read_dev_mtd:enter!",
             "sync_mac_addr:mac not match, dev_info mac = " + kOtherMac + ", eth0 mac = " +
                 kSandboxMac + ", restore it",
             "boot:begin write_shmem1",
             "write_shmem1:creat_shm ok, shmid = " + id + ", shared_memory = 0x* !!",
             "write_shmem1:shmem_info.run_mode = 0x0 !!",
             "write_shmem1:shmem_info.guid.Data1 = 0x0 !!",
             "write_shmem1:shmem_info.guid.Data2 = 0x0 !!",
             "write_shmem1:shmem_info.guid.Data3 = 0x0 !!",
             "write_shmem1:shmem_info.name = " + kName31, "boot:begin CreateWorkModeID",
             "CreateWorkModeID:begin firmware", "CreateWorkModeID:begin remove",
             "CreateWorkModeID:remove /firmware/851", "CreateWorkModeID:begin touch",
             "boot:begin boot"})
        want.push_back(kTag + notice);
    want.push_back("vrn_ddns_client started");
    Strings lines;
    const std::regex address("memory = 0x[0-9a-f]+ "); // the attach address varies
    for (const std::string &line : Lines(board.Output()))
        lines.push_back(std::regex_replace(line, address, "memory = 0x* "));
    EXPECT_EQ(lines, want);
    EXPECT_EQ(board.Read("/dev/console"), "gui started\n");
    // Its own marker made afresh, the other left.
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), "1234\n851\n");
    EXPECT_EQ(board.Read("/tmp/851.first"), "");

    // The second start: same segment, written again; the marker of the
    // board's own id removed, the one of the record's id made.
    EXPECT_EQ(board.Read("/tmp/shm2.info"), info);
    EXPECT_EQ(board.Read("/tmp/shm2.bin"), Block("SECOND_START"));
    const std::string second = board.Read("/tmp/hw2.out");
    EXPECT_NE(second.find(kTag + "write_shmem1:creat_shm ok, shmid = " + id + ","),
              std::string::npos)
        << second;
    EXPECT_NE(second.find(kTag + "CreateWorkModeID:remove /firmware/851\n"), std::string::npos);
    EXPECT_FALSE(board.Exists("/firmware/851"));
    EXPECT_EQ(board.Read("/firmware/abcdef"), "");
    EXPECT_TRUE(board.Exists("/firmware/abcdef"));
    EXPECT_EQ(board.Read("/firmware/1234"), kOld);
    EXPECT_EQ(board.ShellLog(),
              (Strings{"ifconfig eth0 down", "ifconfig eth0 hw ether " + kOtherMac,
                       "ifconfig eth0 up", "route add default gw  192.168.77.1",
                       "touch /firmware/851", DdnsCommand(kName31), kGuiCommand,
                       "touch /firmware/abcdef", DdnsCommand("SECOND_START"), kGuiCommand}));
    // Each started in the application directory, the name one argument.
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
              (Strings{"/mnt/mtd/app", "dev_type=SECOND_START"}));
    EXPECT_EQ(board.ProgramArgs("gui"), Strings{"/mnt/mtd/app"});
}

// The board may carry no C++ runtime: a static binary needs no library, a
// dynamic one the C library alone.
TEST(Binary, NeedsNothingButTheCLibrary)
{
    const char *env = std::getenv("HW_START_BIN");
    const std::string bin = ShellQuote(env != nullptr && *env != '\0' ? env : HW_START_BIN_DEFAULT);
    const std::string others = "readelf -d " + bin + " | grep '(NEEDED)' | grep -v '\\[libc\\.so'";
    EXPECT_EQ(std::system(("readelf -h " + bin + " >/dev/null && ! " + others).c_str()), 0)
        << others;
}

} // namespace
} // namespace hwtest
