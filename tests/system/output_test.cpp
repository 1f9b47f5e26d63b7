// What a board's log sees of the program: the shipped binary's run-time
// needs, and standard output reaching a file or pipe at once and in order
// with what the started programs print, while the program still runs.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "board.h"

namespace {

using hwtest::Board;
using hwtest::BoardTest;
using hwtest::Lines;

std::string binary_under_test()
{
    const char *env = std::getenv("HW_START_BIN");
    return env != nullptr && *env != '\0' ? env : HW_START_BIN_DEFAULT;
}

std::string needed_libraries(const std::string &path)
{
    FILE *p = popen(("readelf -d '" + path + "' 2>&1").c_str(), "r");
    std::string out;
    char buf[512];
    while (p != nullptr && std::fgets(buf, sizeof buf, p) != nullptr) {
        const std::string line = buf;
        if (line.find("(NEEDED)") != std::string::npos)
            out += line.substr(line.find('['));
    }
    if (p != nullptr)
        pclose(p);
    return out;
}

class OutputTest : public BoardTest {};

} // namespace

TEST(Binary, NeedsNothingButTheCLibrary)
{
    // The board may carry no C++ runtime: a static binary needs nothing,
    // a dynamic one the C library alone.
    const std::string needed = needed_libraries(binary_under_test());
    EXPECT_TRUE(needed.empty() || needed.rfind("[libc.so", 0) == 0) << needed;
    EXPECT_EQ(needed.find("libstdc++"), std::string::npos) << needed;
    EXPECT_EQ(needed.find("libgcc_s"), std::string::npos) << needed;
    EXPECT_EQ(needed.find('\n'), needed.rfind('\n')) << "one library at most: " << needed;
}

TEST_F(OutputTest, LinesReachAPipeInOrderWithStartedPrograms)
{
    // Standard output goes through a pipe into a file that is read while
    // the program idles: every line is there, and the started DDNS
    // client's line follows "begin boot" directly.
    const auto run = board.Run(
        "hw debug 2>&1 | cat >/tmp/pipe.out &\n"
        "i=0; while [ ! -e /var/run/gui.args ] && [ $i -lt 100 ]; do sleep 0.1; i=$((i+1)); done\n"
        "sleep 0.3; cp /tmp/pipe.out /tmp/seen.out\n");
    ASSERT_EQ(run.status, 0) << run.err;
    const auto lines = Lines(board.Read("/tmp/seen.out"));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "argc = 2");
    std::size_t begin_boot = lines.size();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] == "[bdsetup] NOTICE! boot:begin boot")
            begin_boot = i;
    }
    ASSERT_LT(begin_boot + 1, lines.size()) << board.Read("/tmp/seen.out");
    EXPECT_EQ(lines[begin_boot + 1], "vrn_ddns_client started");
    // The MAC set-up ran before: its debug line sits above the boot's.
    EXPECT_LT(board.Read("/tmp/seen.out").find("sync_mac_addr:mac not match"),
              board.Read("/tmp/seen.out").find("boot:begin write_shmem1"));
}
