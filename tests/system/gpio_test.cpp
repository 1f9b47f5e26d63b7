// The GPIO register code against the sandbox's /dev/mem (a sparse 1 GiB
// file at the real physical offsets), driven by tests/tools/gpio_drive and
// read back from the file with od. One sandbox run; each row its own group.
#include "board.h"

#include <gtest/gtest.h>

#include <string>

namespace hwtest {
namespace {

std::string N(const std::string &line) { return "[bdsetup] NOTICE! " + line + "\n"; }

const std::string kMemOpenFailed = "cannot open /dev/mem.";

// `d ARGS` runs the driver and prints rc=STATUS, `p ADDR VALUE` presets a
// word, `m ADDR N` prints N words from ADDR (level, 0x4, 0x8 for a group).
const struct {
    const char *name;
    std::string script, out;
} kRows[] = {
    // Lines without a bit touch no register: the file still has no block.
    {"no_bit",
     "d debug signal 255 255 1 1; d debug state 11 0 1; d debug state 2 32 1\n"
     "d debug signal 1 24 1 1; stat -c blocks=%b /dev/mem",
     N("gpio_set_dir:gpio grp overflow") + N("gpio_set_state:gpio grp overflow") + "rc=0\n" +
         N("gpio_set_state:gpio grp overflow") + "rc=1\n" + N("gpio_set_state:gpio pin overflow") +
         "rc=1\n" + N("gpio_set_dir:gpio pin overflow") + N("gpio_set_state:gpio pin overflow") +
         "rc=0\nblocks=0\n"},
    {"group6_pin0_on",
     "p 0x282000A0 0xFFFFFFFF; p 0x1B060008 0x80000000; d signal 6 0 1 1\n"
     "m 0x282000A0 1; m 0x1B060000 3",
     "rc=0\n fffffffd\n 00000001 00000001 80000001\n"},
    {"group4_pin0_on", "p 0x282000D0 0x10; d signal 4 0 1 1; m 0x282000D0 1; m 0x1B040000 3",
     "rc=0\n 00000011\n 00000001 00000001 00000001\n"},
    {"unlisted_odd_group", "d debug signal 3 2 1 1; m 0x1B030000 3",
     N("gpio_func_enable:grp_3, pin_2 not find!") + "rc=0\n 00000400 00000400 00000400\n"},
    {"active_low", "p 0x1B050000 0xFFFFFFFF; d signal 5 3 0 1; m 0x1B050000 1; d signal 5 3 0 0\n"
                   "m 0x1B050000 3",
     "rc=0\n fffff7ff\nrc=0\n ffffffff 00000800 00000800\n"},
    // Only state 1 sets; odd groups reach bit 31 with pin 23.
    {"state_2_clears",
     "p 0x1B020000 0xF0; d state 2 3 1; m 0x1B020000 1; d state 2 3 2; m 0x1B020000 1\n"
     "d state 1 23 1; m 0x1B010000 1",
     "rc=0\n 000000f8\nrc=0\n 000000f0\nrc=0\n 80000000\n"},
    {"unaligned_address", "d write 0x1B070000 2 0x12345678; d read 0x1B070003 0; m 0x1B070000 2",
     "rc=0\n0x12345678\nrc=0\n 12345678 00000000\n"},
    {"pattern_ends_off", "p 0x1B080000 0xF0; d play 8 0 1 00; m 0x1B080000 3",
     "rc=0\n 000000f0 00000001 00000001\n"},
    // The third open (second direction register) fails: 0x8 is set before 0x4.
    {"direction_order",
     "strace -f -qq -o /dev/null -P /dev/mem -e trace=openat -e inject=openat:error=EACCES:when=3"
     " $HW_RUNNER /sbin/gpio_drive signal 9 0 1 1; echo; m 0x1B090000 3",
     kMemOpenFailed + "\n 00000100 00000000 00000100\n"},
    // Each failed open says so, without a line end; the direction stops at its first.
    {"no_dev_mem",
     "mv /dev/mem /tmp/mem; d read 0x1B000000 0; d debug signal 6 0 1 1; mv /tmp/mem /dev/mem",
     kMemOpenFailed + "rc=1\n" + kMemOpenFailed + kMemOpenFailed + kMemOpenFailed + "rc=0\n"},
};

class GpioTest : public BoardTest {};

TEST_F(GpioTest, RegistersInTheStandInMemory)
{
    std::string script = "d() { $HW_RUNNER /sbin/gpio_drive \"$@\"; echo \"rc=$?\"; }\n"
                         "p() { $HW_RUNNER /sbin/gpio_drive write \"$1\" 0 \"$2\" >/dev/null; }\n"
                         "m() { /usr/bin/od -An -tx4 -v -j $(($1)) -N $(($2 * 4)) /dev/mem; }\n";
    std::string want;
    for (const auto &r : kRows) {
        script += "echo '## " + std::string(r.name) + "'\n" + r.script + "\n";
        want += "## " + std::string(r.name) + "\n" + r.out;
    }
    const RunResult run = board.Run(script);
    EXPECT_EQ(run.out, want) << run.err;
}

} // namespace
} // namespace hwtest
