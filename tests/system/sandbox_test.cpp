// A check of the board sandbox itself (scripts/sandbox, board.h), so a
// failing system test points at the program, not at them: a run that
// outlives its time-out is killed whole, and leaves neither a process nor
// a mount behind on the host.
#include "board.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace hwtest {
namespace {

class SandboxTest : public BoardTest {};

TEST_F(SandboxTest, RunIsKilledWholeAfterItsTimeOut)
{
    RunOptions options;
    options.timeout_s = 1;
    RunResult r = board.Run("mount -t tmpfs none /tmp && sleep 3599 & sleep 3599", options);
    EXPECT_EQ(r.status, -1);
    // SIGKILL is delivered at once, but give the kernel a moment to reap.
    bool left = true;
    for (int i = 0; i < 20 && left; ++i, usleep(100 * 1000))
        left = std::system("pgrep -x -f 'sleep 3599' >/dev/null") == 0;
    EXPECT_FALSE(left) << "a process of the sandbox outlived it";
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);)
        EXPECT_EQ(line.find(" " + board.root() + "/"), std::string::npos) << line;
}

} // namespace
} // namespace hwtest
