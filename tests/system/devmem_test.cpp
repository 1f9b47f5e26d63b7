// The board's register accessor against the sandbox's /dev/mem (a sparse
// 1 GiB file at the real physical offsets): the word that holds an address
// at its place in the page, and a plain line when /dev/mem is missing.
#include "board.h"

#include <gtest/gtest.h>

namespace hwtest {
namespace {

class DevmemTest : public BoardTest {};

TEST_F(DevmemTest, OneWordAtItsPhysicalAddress)
{
    const RunResult run = board.Run(
        "d() { $HW_RUNNER /sbin/devmem \"$@\"; echo \" rc=$?\"; }\n"
        "d 0x1B070006 0x12345678; d 0x1B070007; d 0x1B071FFC 0xA5A5A5A5\n"
        "/usr/bin/od -An -tx4 -v -j $((0x1B070000)) -N 12 /dev/mem\n"
        "/usr/bin/od -An -tx4 -v -j $((0x1B071FF8)) -N 12 /dev/mem\n"
        "mv /dev/mem /tmp/mem; d 0x1B070000");
    EXPECT_EQ(run.out, " rc=0\n0x12345678\n rc=0\n rc=0\n 00000000 12345678 00000000\n"
                       " 00000000 a5a5a5a5 00000000\ncannot open /dev/mem. rc=1\n")
        << run.err;
}

} // namespace
} // namespace hwtest
