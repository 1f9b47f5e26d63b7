// A save through the board object, as a provisioning program makes one
// (tests/tools/record_io): the store written whole and synced, then eth0
// given the record's MAC, the default gateway found in real routing tables
// put back, and /config/mac rewritten. Commands are checked as /bin/sh got
// them (the sandbox's logging shell); routes are set up with the host's
// iproute2 (`hip`) whatever the board's tools are.
#include "board.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace hwtest {
namespace
{

using Str = std::string;
using Strings = std::vector<Str>;

const Str kTag = "[bdsetup] NOTICE! ";
const Str kSandboxMac = "02:00:00:00:00:01";
const Str kSandboxGw = "192.168.77.1";
const Str kUpperMac = "02:AB:CD:EF:01:23";

struct SaveRow {
    const char *name;
    Str setup;            // after the table is reset to the sandbox's
    Str gw;               // behind "route add default gw  "
    Str mac = kUpperMac;  // the record's
    Str word = kUpperMac; // the MAC as one shell word
    Str store = "/tmp/store.rec";
};

const SaveRow kSaveRows[] = {
    // A failed save sets nothing and leaves the MAC file.
    {"failed_save", "", "", kUpperMac, kUpperMac, "/tmp/missing/store.rec"},
    // eth0 already carries the address: all seven commands all the same.
    {"via_gateway", "", kSandboxGw, kSandboxMac, kSandboxMac},
    {"no_default", "hip route del default", ""},
    // Added in the other order: the kernel dumps the higher metric later.
    {"two_metrics",
     "hip route del default; hip route add default via 192.168.77.3 metric 50\n"
     "hip route add default via 192.168.77.4 metric 7",
     "192.168.77.3"},
    {"device_only", "hip route del default; hip route add default dev eth0", "0.0.0.0"},
    {"slash1", "hip route del default; hip route add 0.0.0.0/1 via 192.168.77.5", "192.168.77.5"},
    {"default_after_slash1", "hip route add 0.0.0.0/1 via 192.168.77.5", kSandboxGw},
    {"network_route", "hip route del default; hip route add 10.1.0.0/16 via 192.168.77.6", ""},
    {"other_tables",
     "hip route del default; hip route add default via 192.168.77.9 table 100\n"
     "hip route add 0.0.0.0/1 via 192.168.77.11 table 200",
     ""},
    // Dumped after the IPv4 routes; read as IPv4 it would give 254.128.0.0.
    {"ipv6_default", "hip -6 route add ::/0 via fe80::1 dev eth0", kSandboxGw},
    {"hostile_mac", "", kSandboxGw, "x;touch /tmp/pwned 'q'", "'x;touch /tmp/pwned '\\''q'\\'''"},
};

// The tool's output with the shell log interleaved: a command (NUL-ended)
// as "sh: CMD", a line as it is; debug lines other than the MAC's dropped.
Strings Items(const Str &bytes)
{
    Strings items;
    Str cur;
    for (char ch : bytes) {
        if (ch != '\0' && ch != '\n') {
            cur += ch;
            continue;
        }
        if (cur.rfind(kTag, 0) != 0 || cur.find("mac_addr:") != Str::npos)
            items.push_back(ch == '\0' ? "sh: " + cur : cur);
        cur.clear();
    }
    return items;
}

class SaveTest : public BoardTest {
};

TEST_F(SaveTest, RestoresGatewayAndMacFile)
{
    board.Put("/config/mac", "stale\n");
    Str script = "hip() ( PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec ip \"$@\" )\n"
                 "ln -sf /proc/self/fd/1 /var/log/sh.log\n";
    Strings want;
    for (const SaveRow &r : kSaveRows) {
        board.Put("/tmp/" + Str(r.name) + ".rec", MakeRecord(0x851, "IPC", r.mac));
        script += "echo '@@ " + Str(r.name) +
                  "'\n"
                  "hip -4 route flush table all proto boot; hip -6 route flush proto boot\n"
                  "hip route add default via " +
                  kSandboxGw +
                  "\n"
                  "( set -e; " +
                  r.setup +
                  "\n) || echo 'setup failed'\n"
                  "$HW_RUNNER /sbin/record_io save debug " +
                  r.store + " /tmp/" + r.name +
                  ".rec\n"
                  "printf 'mac file: '; cat /config/mac\n";
        want.push_back("@@ " + Str(r.name));
        if (r.store != "/tmp/store.rec") {
            want.insert(want.end(), {"record_io save: -1", "mac file: stale"});
            continue;
        }
        for (const Str &cmd : {Str("ifconfig eth0 down"), "ifconfig eth0 hw ether " + r.word,
                               Str("ifconfig eth0 up"), "route add default gw  " + r.gw})
            want.push_back("sh: " + cmd);
        for (const Str &cmd :
             {Str("rm /config/mac"), Str("touch /config/mac"), "echo " + r.word + " > /config/mac"})
            want.insert(want.end(), {"sh: " + cmd, kTag + "restore_mac_addr:excute " + cmd});
        want.insert(want.end(), {"record_io save: 0", "mac file: " + r.mac});
    }
    const RunResult run = board.Run(script);
    EXPECT_EQ(Items(run.out), want) << run.err;
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a MAC text ran as a command";
}

// Both stores give the saved record back whole: a longer record file is
// replaced by one of 280 bytes; on a partition without its MTD device
// (strace -P: the calls on it alone) the save is one write of the record
// and an fsync, the bytes behind it stay, and the read only reads; one
// shorter than a record reads as a failure. No /config: the MAC file
// cannot be written, the saves stand all the same.
TEST_F(SaveTest, SavedRecordIsSyncedAndReadsBackWhole)
{
    Str rec = MakeRecord(0x1234abcd, "SAVED_NAME", kSandboxMac, "P2P-SAVED");
    for (int i = 132; i < 280; ++i) // reserved bytes, carried as they are
        rec[i] = static_cast<char>(i * 7 + 1);
    const Str tail(744, '\x5a');
    board.Put("/tmp/new.rec", rec);
    board.Put("/data/rec.bin", Str(1000, 'o'));
    board.PutRecord(MakeRecord(0x851, "OLD", kSandboxMac) + tail);
    const RunResult run = board.Run(
        "rm -rf /config\n"
        "for s in /data/rec.bin /dev/mtdblock3; do\n"
        "  t=/tmp/trace.${s##*/}\n"
        "  e='-qq -e signal=none -e trace=read,write,pwrite64,writev,fsync,fdatasync,ftruncate'\n"
        "  strace $e -P $s -o $t $HW_RUNNER /sbin/record_io save $s /tmp/new.rec\n"
        "  strace $e -P $s -o $t.r $HW_RUNNER /sbin/record_io read $s $t.bin\n"
        "done >/tmp/out 2>/dev/null\n"
        "cp /dev/mtdblock3 /tmp/mtd.saved; head -c 50 /tmp/new.rec >/dev/mtdblock3\n"
        "$HW_RUNNER /sbin/record_io read /dev/mtdblock3 /tmp/short.bin >>/tmp/out; true\n");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(board.Read("/tmp/out"), "record_io save: 0\nrecord_io read: 0\n"
                                      "record_io save: 0\nrecord_io read: 0\n"
                                      "record_io read: -1\n");
    EXPECT_TRUE(board.Read("/data/rec.bin") == rec) << "one whole record, the old bytes gone";
    EXPECT_TRUE(board.Read("/tmp/mtd.saved") == rec + tail) << "the bytes behind it stay";
    for (const Str trace : {"/tmp/trace.rec.bin", "/tmp/trace.mtdblock3"})
        EXPECT_TRUE(board.Read(trace + ".bin") == rec) << "the read gives the saved 280 bytes";
    const std::regex call(R"(^(\w+)\(.*\) += (-?\d+)$)");
    Str calls;
    for (const Str &line :
         Lines(board.Read("/tmp/trace.mtdblock3") + board.Read("/tmp/trace.mtdblock3.r")))
        calls += std::regex_replace(line, call, "$1 = $2; ");
    EXPECT_EQ(calls, "write = 280; fsync = 0; read = 280; ");
}

// devinfo as root beside an unprivileged user (nobody): links that nobody
// planted in the sticky /tmp are not followed (the root-only file they
// name stays as it was), a link root made in its own directory is; new
// files are 0600; nobody's flock on the record or the partition stops no
// save; sets run at once, and one held at its rename, each see the other's.
TEST_F(SaveTest, SavesFollowNoPlantedLinkAndTakeALockOnlyWritersHold)
{
    const char *env = std::getenv("HW_DEVINFO_BIN"); // the ARM build's under scripts/cross-test
    std::ifstream in(env != nullptr && *env != '\0' ? env : HW_DEVINFO_BIN_DEFAULT,
                     std::ios::binary);
    board.Put("/sbin/devinfo", Str(std::istreambuf_iterator<char>(in), {}), 0755);
    board.Put("/etc/secret", "SECRET", 0600);
    board.Put("/config/rec", MakeRecord(0x851, "IPC", kSandboxMac), 0640);
    board.Put("/tmp/rec", MakeRecord(0x851, "IPC", kSandboxMac));
    const RunResult r =
        board.Run(R"sh(nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
dv() { $HW_RUNNER /sbin/devinfo "$@"; }
nobody ln -s /etc/secret /tmp/bak.lnk; nobody ln -s /etc/secret /tmp/new.lnk
dv set --no-apply --backup /tmp/bak.lnk /tmp/rec board_name=B; echo "backup $?"
dv create /tmp/new.lnk --from /tmp/rec; echo "create $?"
mkdir -p /mnt/mtd; ln -s /config/rec /mnt/mtd/rec; dv set --no-apply /mnt/mtd/rec board_name=L
echo "root's link $? $(readlink /mnt/mtd/rec) $(stat -c %a /config/rec)"
dv create /tmp/fresh --from /tmp/rec; echo "new file $(stat -c %a /tmp/fresh)"
nobody flock /tmp/rec sleep 60 & nobody flock /dev/mtdblock3 sleep 60 & sleep 0.3
dv set --no-apply /tmp/rec board_id=5; echo "nobody's flock $?"; dv set board_id=5 2>&1
for i in $(seq 20); do dv set --no-apply /tmp/rec board_name=N$i || echo "N$i failed"; done & a=$!
for i in $(seq 20); do dv set --no-apply /tmp/rec p2p_id=P$i || echo "P$i failed"; done; wait $a
dv get board_name /tmp/rec; dv get p2p_id /tmp/rec
r=renameat,renameat2; ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0 \
  strace -f -qq -o /dev/null -e trace=$r -e inject=$r:delay_enter=1500000 \
  $HW_RUNNER /sbin/devinfo set --no-apply /tmp/rec p2p_id=SLOW & s=$!
sleep 0.5; dv set --no-apply /tmp/rec board_id=7; echo "waited $?"; wait $s; echo "renamed $?"
dv get p2p_id /tmp/rec; dv get board_id /tmp/rec; stat -c %a /tmp/rec
)sh");
    const Str refused = ": a symbolic link on its way belongs to another user, in a world-writable "
                        "sticky directory: not followed";
    EXPECT_EQ(r.out, "backup 1\ncreate 1\nroot's link 0 /config/rec 640\nnew file 600\n"
                     "nobody's flock 0\ndevinfo: /dev/mtdblock3: no MTD character device "
                     "/dev/mtd3: No such file or directory; nothing written\nN20\nP20\n"
                     "waited 0\nrenamed 0\nSLOW\n0x7\n644\n");
    EXPECT_EQ(r.err, "devinfo: /tmp/bak.lnk" + refused +
                         "\ndevinfo: no backup in /tmp/bak.lnk: /tmp/rec left as it was\n"
                         "devinfo: /tmp/new.lnk" +
                         refused + "; nothing written\n");
    EXPECT_EQ(board.Read("/etc/secret"), "SECRET");
    EXPECT_EQ(board.Read("/config/rec"), MakeRecord(0x851, "L", kSandboxMac));
}

} // namespace
} // namespace hwtest
