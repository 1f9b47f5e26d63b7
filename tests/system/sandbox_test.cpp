// Checks of the board sandbox and its harness themselves (scripts/sandbox,
// board.h), so a failing system test points at the program, not at them.
#include "board.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace hwtest {
namespace {

class SandboxTest : public BoardTest {};

TEST_F(SandboxTest, RunGivesStatusAndOutputAndLogsOnlyShC)
{
    RunResult r = board.Run("echo out; echo err >&2; /bin/sh -c 'echo inner'; exit 7");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "out\ninner\n");
    EXPECT_EQ(r.err, "err\n");
    EXPECT_EQ(board.ShellLog(), (std::vector<std::string>{"echo inner"}));
}

TEST_F(SandboxTest, BoardLooksAsSpecified)
{
    RunResult r = board.Run("echo \"$PATH\"; "
                            "[ \"$HW_RUNNER\" = \"$(cat /etc/hw_start_runner)\" ] && echo runner; "
                            "cat /sys/class/net/eth0/address; ip -4 route show table main; "
                            "stat -c %s /dev/mem /dev/mtdblock3; test -f /dev/console && echo "
                            "console; test -e /firmware || echo nofw; ls /config | wc -l");
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::string> lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 10u) << r.out;
    EXPECT_EQ(lines[0], "/bin:/sbin:/usr/bin:/usr/sbin");
    EXPECT_EQ(lines[1], "runner"); // HW_RUNNER is what the note file says
    lines.erase(lines.begin(), lines.begin() + 1);
    EXPECT_EQ(lines[2].rfind("default via 192.168.77.1 dev eth0", 0), 0u) << lines[2];
    EXPECT_EQ(lines[3].rfind("192.168.77.0/24 dev eth0", 0), 0u) << lines[3];
    EXPECT_EQ(lines[4], "1073741824");
    EXPECT_EQ(lines[5], "280");
    EXPECT_EQ(lines[6], "console");
    EXPECT_EQ(lines[7], "nofw");
    EXPECT_EQ(lines[8], "0");
}

TEST_F(SandboxTest, OptionsChangeTheBoard)
{
    RunResult r = board.Run("test -d /firmware && echo fw; ls /sys/class/net | tr '\\n' ' '",
                            {{"--firmware", "--no-eth0"}});
    EXPECT_EQ(r.out, "fw\nlo ") << r.err;
    r = board.Run("cat /sys/class/net/eth0/address", {{"--mac", "02:aa:bb:cc:dd:ee"}});
    EXPECT_EQ(r.out, "02:aa:bb:cc:dd:ee\n") << r.err;
}

TEST_F(SandboxTest, BootDumpsTheBoardState)
{
    board.PutRecord(MakeRecord(0x851, "SBX_BOARD", "02:00:00:00:00:07"));
    RunResult r = board.Boot({}, {{}, "echo before >/tmp/before", "echo after >/tmp/after"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(board.Alive());
    EXPECT_EQ(board.Read("/tmp/hw.waited"), "yes\n");
    EXPECT_EQ(board.Read("/tmp/before"), "before\n");
    EXPECT_EQ(board.Read("/tmp/after"), "after\n");
    EXPECT_EQ(board.Read("/tmp/eth0.mac"), "02:00:00:00:00:07\n");
    EXPECT_NE(board.Read("/tmp/routes").find("default via 192.168.77.1 dev eth0"),
              std::string::npos)
        << board.Read("/tmp/routes");
    EXPECT_TRUE(std::regex_match(board.Read("/tmp/shm.info"),
                                 std::regex("shmid=[0-9]+ size=96 mode=0604\n")))
        << board.Read("/tmp/shm.info");
    EXPECT_EQ(board.Read("/tmp/shm.bin").size(), 96u);
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), "851\n");
    EXPECT_EQ(board.ProgramArgs("gui"), (std::vector<std::string>{"/mnt/mtd/app"}));
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
              (std::vector<std::string>{"/mnt/mtd/app", "dev_type=SBX_BOARD"}));
    EXPECT_EQ(board.Read("/dev/console"), "gui started\n");
    EXPECT_FALSE(board.ShellLog().empty());
}

TEST_F(SandboxTest, BootSeesTheProgramEnd)
{
    BootOptions options;
    options.until = kUntilExited;
    board.Boot({"version"}, options);
    EXPECT_FALSE(board.Alive());
    EXPECT_EQ(board.Read("/tmp/hw.waited"), "yes\n");
    EXPECT_EQ(board.Read("/tmp/hw.status"), "0\n");
    EXPECT_FALSE(board.Exists("/tmp/firmware.ls"));
}

// pids of processes whose command line is exactly `argv`.
std::string Pids(const std::vector<std::string> &argv)
{
    std::string want;
    for (const std::string &a : argv)
        want += a + '\0';
    std::string pids;
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream in(entry.path() / "cmdline", std::ios::binary);
        std::string cmdline((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (cmdline == want)
            pids += entry.path().filename().string() + " ";
    }
    return pids;
}

TEST_F(SandboxTest, RunIsKilledWholeAfterItsTimeOut)
{
    RunOptions options;
    options.timeout_s = 1;
    RunResult r = board.Run("sleep 3599 & sleep 3599", options);
    EXPECT_EQ(r.status, -1);
    // Nothing of the sandbox is left (SIGKILL is delivered at once, but
    // give the kernel a moment to reap).
    std::string left;
    for (int i = 0; i < 20; ++i) {
        left = Pids({"sleep", "3599"});
        if (left.empty())
            break;
        usleep(100 * 1000);
    }
    EXPECT_EQ(left, "");
}

} // namespace
} // namespace hwtest
