// devinfo on the board sandbox: the real binary (as /sbin/devinfo) against
// record files, the flash partition /dev/mtdblock3, eth0, /config/mac and
// the shared block a booted hw_start wrote; saves killed or failed at each
// system call (strace -e inject); and a C program reading that block
// through hw_start/shmem_info.h alone.
#include "devinfo_fixture.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace
{

// create writes the image hw_start reads; show, get and --json give every field back, escaped;
// a record with a bad magic and a full p2p_id shows all 32 bytes and nothing behind them.
TEST_F(DevinfoTest, CreateThenShowAndGetRoundTripEveryField)
{
    const Str name = "cam\t\x01\x7f\xc3\xa9\\\"q'", shown = R"(cam\x09\x01\x7f\xc3\xa9\\"q')";
    board.Put("/tmp/hostile", Patch(Patch(kRec, 0, "", 8), 100, Str(32, 'P')));
    const RunResult r = Sh(
        "devinfo create /tmp/rec --board-id 0x1234abcd --board-name " + ShellQuote(name) +
        " --mac 02:aa:bb:cc:dd:ee --p2p-id=P2P-0042 --guid 0102030405060708090A0B0C0D0E0F10"
        "1112131415161718 && devinfo show /tmp/rec && devinfo verify /tmp/rec && for f in "
        "magic_ok guid board_id board_name mac p2p_id; do printf %s= $f; devinfo get $f /tmp/rec;"
        " done && devinfo show --json /tmp/rec && devinfo show --json /tmp/hostile && devinfo "
        "create /tmp/img --from /tmp/rec --partition-size 12288 --erase-size 0x1000");
    const Str text = "magic_ok=yes\nguid=" + kGuid + "\nboard_id=0x1234abcd\nboard_name=" + shown +
                     "\nmac=02:aa:bb:cc:dd:ee\np2p_id=P2P-0042\n";
    EXPECT_EQ(r.out, text + text + R"({"magic_ok":true,"guid":")" + kGuid +
                         R"(","board_id":"0x1234abcd","board_name":"cam\\x09\\x01\\x7f\\xc3)"
                         R"(\\xa9\\\\\"q'","mac":"02:aa:bb:cc:dd:ee","p2p_id":"P2P-0042"})"
                         "\n"
                         R"({"magic_ok":false,"guid":")" +
                         kGuid +
                         R"(","board_id":"0x851","board_name":"IPC_AX620Q","mac":)"
                         R"("02:12:34:56:78:9a","p2p_id":")" +
                         Str(32, 'P') + "\"}\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(board.Read("/tmp/rec"),
              Patch(MakeRecord(0x1234abcd, name, "02:aa:bb:cc:dd:ee", "P2P-0042"), 8,
                    kRec.substr(8, 24), 24));
    EXPECT_TRUE(board.ShellLog().empty()) << "create touches no network";
    // The image for a flash programmer: the record block, the copy (sequence 1, the record twice,
    // no tail), erased bytes.
    const Str img = board.Read("/tmp/img"), rec = board.Read("/tmp/rec");
    ASSERT_EQ(img.size(), 12288u);
    EXPECT_EQ(img.substr(0, 4096), rec + Str(4096 - 280, '\xff'));
    EXPECT_EQ(img.substr(4096, 28),
              Str("DIC1\1\0 \0\1\0\0\0\x18\1\0\0\0\0\0\0\x30\2\0\0\0\0\0\0", 28));
    EXPECT_EQ(img.substr(4096 + 32, 560), rec + rec);
    EXPECT_EQ(img.substr(4096 + 592), Str(12288 - 4096 - 592, '\xff'));
}

// verify flags each kind of problem on stdout; each refusal and usage error exits with its
// status and its reason on stderr alone; no store changes. A reader's shared lock keeps set and
// create out. With standard descriptors closed, neither program gets a byte into a store.
TEST_F(DevinfoTest, VerifyFlagsEachProblemAndRefusalsLeaveStoresByteIdentical)
{
    std::map<Str, Str> stores = {{"/tmp/rec", kRec},
                                 {"/tmp/locked", kRec},
                                 {"/tmp/short", kRec.substr(0, 279)},
                                 {"/tmp/bad_magic", Patch(kRec, 0, "", 8)},
                                 {"/tmp/upper", Mac("02:12:34:56:78:9A")},
                                 {"/dev/mtdblock3", Patch(kRec, 0, "magic?", 8)},
                                 {"/tmp/erased", Str(280, '\xff')},
                                 {"/tmp/name32", Patch(kRec, 36, Str(32, 'N'))},
                                 {"/tmp/p2p32", Patch(kRec, 100, Str(32, 'P'))},
                                 {"/tmp/odd", Str(300, 'o')}};
    // Partition images: record block erased, a byte of the copy changed, another record.
    board.Put("/tmp/r", kRec);
    Sh("devinfo create /tmp/i --from /tmp/r --partition-size 8192 --erase-size 4096");
    const Str img = board.Read("/tmp/i");
    stores["/tmp/torn.img"] = Str(4096, '\xff') + img.substr(4096);
    stores["/tmp/bad_copy.img"] = Patch(img, 4096 + 40, "X", 1);
    stores["/tmp/other.img"] = Patch(img, 36, "OTHER");
    struct Row {
        Str args;
        int status;
        Str want; // part of stdout for verify, else of stderr
    };
    std::vector<Row> rows = {
        {"verify /tmp/rec", 0, ""},
        {"verify /tmp/short", 1, "size: the store holds 279 bytes; a record is 280\n"},
        {"verify /tmp/bad_magic", 1, "magic: 0x0000000000000000 is not 0xfedcba9801234567\n"},
        {"verify /tmp/erased", 1,
         "magic: 0xffffffffffffffff is not 0xfedcba9801234567\n"
         "board_name: no NUL within its 32 bytes\nmac: no NUL within"
         " its 32 bytes\np2p_id: no NUL"},
        {"verify /tmp/name32", 1, "board_name: no NUL within its 32 bytes\n"},
        {"verify /tmp/p2p32", 1, "p2p_id: no NUL within its 32 bytes\n"},
        {"verify /tmp/torn.img", 1, "record_block: erased; the copy saved at sequence 1 holds"},
        {"verify /tmp/bad_copy.img", 1, "copy: damaged"},
        {"verify /tmp/other.img", 1, "copy: the copy saved at sequence 1 holds another record"},
        {"set /tmp/odd board_name=X", 1, "it holds 300 bytes, neither a 280-byte record nor a"},
        {"set --no-apply /tmp/locked board_id=7", 1, "/tmp/locked: locked by another process"},
        {"create /tmp/locked --board-id 1 --board-name a --mac 02:00:00:00:00:01", 1,
         "locked by another process"},
        {"set --no-apply /tmp/locked board_id=7 2>&-", 1, ""},
        {"set board_id=7 2>&-", 1, ""},
        {"set --no-apply /tmp/locked board_id=7 <&- >&- 2>&-", 1, ""},
        {"set /tmp/rec mac=02:AA:BB:CC:DD:EE", 1, "mac: \"02:AA:BB:CC:DD:EE\" has upper-case"},
        {"set /tmp/rec " + ShellQuote("mac=02:aa:bb:cc:dd:ee\x1b[2J"), 1, "ee\\x1b[2J\" is not"},
        // A refused value keeps the whole set out, the good ones before it too.
        {"set /tmp/rec board_id=7 board_name=" + Str(32, 'n'), 1, "32 characters, at most 31 fit"},
        {"set /tmp/rec board_id=4294967296", 1, "\"4294967296\" is not a 32-bit number"},
        {"set /tmp/rec guid=" + kGuid + "0", 1, "is not 48 hexadecimal digits"},
        {"set /tmp/bad_magic board_name=X", 1, "magic: 0x0000000000000000"},
        {"set /tmp/short board_name=X", 1, "it holds 279 bytes, neither a 280-byte record nor"},
        // A broken field that set does not replace is refused too.
        {"set /tmp/upper board_name=X", 1, "name the field to replace it"},
        {"set /tmp/none board_name=X", 1, "cannot open /tmp/none"},
        {"set board_name=X", 1, "/dev/mtdblock3: locked by another process"}, // the default store
        {"set /tmp/rec magic_ok=yes", 2, "FIELD is one of guid board_id"},
        {"set /tmp/rec mac=02:00:00:00:00:09 mac=02:00:00:00:00:08", 2, "mac given twice"},
        {"set --bogus /tmp/rec board_id=1", 2, "unknown option '--bogus'"},
        {"create /tmp/new --from /tmp/upper", 1, "mac: \"02:12:34:56:78:9A\" has upper-case"},
        {"create /tmp/new --from /tmp/rec --partition-size 4096 --erase-size 4096", 1, "2 or more"},
        {"create /tmp/new --board-id 1 --board-name a --mac 01:00:00:00:00:01", 1, "multicast"},
        {"create /tmp/new --board-id 1 --mac 02:00:00:00:00:01", 2, "--board-name is required"},
        {"", 2, "usage: devinfo COMMAND"},
        {"set /tmp/rec", 2, "nothing to set"},
    };
    // verify on a record holding the MAC text: "" for one it accepts, else why not.
    const std::pair<Str, Str> macs[] = {{"fe:ff:ff:ff:ff:ff", ""},
                                        {"00:11:22:33:44:55", ""},
                                        {"02:00:00:00:00:00", ""},
                                        {"", "is empty"},
                                        {"0A:12:34:56:78:9a", "has upper-case"},
                                        {"02:12:34:56:78:9A", "has upper"},
                                        {"00:00:00:00:00:00", "is the all-zero address"},
                                        {"33:33:00:00:00:01", "is a multicast"},
                                        {"ff:ff:ff:ff:ff:ff", "is the broadcast address"},
                                        {"02-12:34:56:78:9a", "is not six"},
                                        {"02:12:34:56:78-9a", "is not six"},
                                        {"02:12:34:56:78:9a0", "is not six"},
                                        {"02:12:34:56:78:9g", "is not six"},
                                        {" 2:12:34:56:78:9a", "is not six"}};
    for (const auto &[mac, why] : macs) {
        const Str path = "/tmp/m" + std::to_string(stores.size());
        stores[path] = Mac(mac);
        const Str want = why.empty() ? why : "mac: \"" + mac + "\" " + why;
        rows.push_back({"verify " + path, why.empty() ? 0 : 1, want});
    }
    // hw_start boots from either store with descriptors 0, 1 and 2 closed. Then all rows at once,
    // readers' locks on /tmp/locked and the flash held meanwhile.
    Str script =
        kPrelude + R"(for s in /tmp/rec /dev/mtdblock3; do hw debug dev3_file=$s <&- >&- 2>&- &
  until [ -e /var/run/gui.args ]; do sleep 0.1; done; kill $!; rm /var/run/gui.args; done
rm /var/log/sh.log; for s in /tmp/.locked.lock /dev/.mtdblock3.lock; do flock -s $s sleep 60 & done
sleep 0.5; mkdir /tmp/o
)";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Str o = "/tmp/o/" + std::to_string(i);
        script += "(devinfo >" + o + ".out 2>" + o + ".err " + rows[i].args + "; echo $? >" + o +
                  ") & p=\"$p $!\"\n";
    }
    script += "wait $p\n";
    for (const auto &[path, bytes] : stores)
        board.Put(path, bytes);
    EXPECT_EQ(board.Run(script).status, 0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Str o = "/tmp/o/" + std::to_string(i), out = board.Read(o + ".out");
        const Str err = board.Read(o + ".err");
        const bool verify = rows[i].args.rfind("verify", 0) == 0;
        const Str &said = verify ? out : err;
        EXPECT_EQ(board.Read(o), std::to_string(rows[i].status) + "\n") << rows[i].args << said;
        EXPECT_NE(said.find(rows[i].want), Str::npos) << rows[i].args << "\n" << said;
        EXPECT_EQ(verify ? err : out, "") << rows[i].args;
    }
    for (const auto &[path, bytes] : stores)
        EXPECT_EQ(board.Read(path), bytes) << path;
    for (const char *path : {"/tmp/none", "/tmp/new", "/config/mac"})
        EXPECT_FALSE(board.Exists(path)) << path;
    EXPECT_TRUE(board.ShellLog().empty()) << "no refusal runs a command";
}

// set saves as the board does (eth0, /config/mac, the gateway back) and keeps guid, p2p_id and
// reserved; --no-apply and --force write the record's bytes alone; a set that changes nothing
// does nothing. Without an MTD device (as here) a flash save is refused and recover has nothing
// to do; both leave the partition as it was.
TEST_F(DevinfoTest, SetChangesTheFieldsAndEth0CarriesTheMac)
{
    const Str tail(744, 'Z'); // the partition is larger than the record
    board.Put("/tmp/rec", kRec);
    board.Put("/tmp/bad_magic", Patch(kRec, 0, "", 8));
    board.PutRecord(kRec + tail);
    RunResult r = Sh("devinfo set /tmp/rec board_name=NEW=NAME mac=02:00:00:00:aa:bb "
                     "board_id=4294967295; echo rc=$?; cat /sys/class/net/eth0/address; "
                     "ip -4 route show table main | grep ^default | cut -d' ' -f1-5");
    EXPECT_EQ(r.out, "rc=0\n02:00:00:00:aa:bb\ndefault via 192.168.77.1 dev eth0\n") << r.err;
    const Str want = Patch(Patch(Patch(kRec, 36, "NEW=NAME"), 68, "02:00:00:00:aa:bb"), 32,
                           "\xff\xff\xff\xff", 4);
    EXPECT_EQ(board.Read("/tmp/rec"), want);
    EXPECT_EQ(board.Read("/config/mac"), "02:00:00:00:aa:bb\n");

    board.Remove("/config/mac");
    board.Remove("/var/log/sh.log");
    // A user who may not write the stores reads them.
    r = Sh("nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups $HW_RUNNER /sbin/devinfo "
           "\"$@\"; }\ndevinfo set --no-apply /tmp/rec mac=02:00:00:00:cc:dd p2p_id=P2 && devinfo "
           "set --force --no-apply /tmp/bad_magic board_name=X && nobody get board_name "
           "/tmp/bad_magic && devinfo set /tmp/rec p2p_id=P2 && cat /sys/class/net/eth0/address; "
           "devinfo set /dev/mtdblock7 board_name=FLASH; echo $?; devinfo recover && devinfo "
           "recover /tmp/rec; echo $?; nobody get board_name");
    EXPECT_EQ(r.out, "X\n02:00:00:00:00:01\n1\n0\nIPC_AX620Q\n");
    EXPECT_EQ(r.err, "devinfo: /tmp/rec unchanged: it holds this record already\n"
                     "devinfo: /dev/mtdblock7 selects the flash store /dev/mtdblock3\n"
                     "devinfo: /dev/mtdblock3: no MTD character device /dev/mtd3: "
                     "No such file or directory; nothing written\n");
    EXPECT_EQ(board.Read("/tmp/rec"), Patch(Patch(want, 68, "02:00:00:00:cc:dd"), 100, "P2"));
    EXPECT_EQ(board.Read("/tmp/bad_magic"), Patch(kRec, 36, "X"));
    EXPECT_EQ(board.Read("/dev/mtdblock3"), kRec + tail);
    EXPECT_FALSE(board.Exists("/config/mac"));
    EXPECT_TRUE(board.ShellLog().empty())
        << "--no-apply, and a set that changes nothing, run no command";
}

// devinfo shm and the C reader print the block a boot wrote; before the boot there is none.
TEST_F(DevinfoTest, ShmAfterABootPrintsWhatHwStartWrote)
{
    board.PutRecord(MakeRecord(0x851, "SHM_BOARD", "02:00:00:00:00:07"));
    BootOptions options;
    options.before = kPrelude + "devinfo shm >/tmp/pre.out 2>/tmp/pre.err; echo $? >>/tmp/pre.out";
    options.after = "{ devinfo shm && devinfo shm --json && $HW_RUNNER /sbin/shm_reader_c; } "
                    ">/tmp/dv.out 2>&1; echo rc=$? >>/tmp/dv.out";
    board.Boot({}, options);
    ASSERT_TRUE(board.Alive()) << board.Output();
    EXPECT_EQ(board.Read("/tmp/pre.out"), "1\n");
    EXPECT_NE(board.Read("/tmp/pre.err").find("no shared identity block"), Str::npos);

    ASSERT_EQ(board.Read("/tmp/shm.bin").size(), 96u) << board.Read("/tmp/shm.info");
    const Str guid(48, '0'); // the board object's GUID, zero on this board
    const Str text =
        "magic=0x95279528\nguid=" + guid + "\nrun_mode=0x0\nname=SHM_BOARD\nflag=0x78cfde02\n";
    EXPECT_EQ(board.Read("/tmp/dv.out"),
              text + R"({"magic":"0x95279528","guid":")" + guid +
                  R"(","run_mode":"0x0","name":"SHM_BOARD","flag":"0x78cfde02"})"
                  "\n" +
                  text + "rc=0\n");
}

// A save of a record file killed (SIGKILL) or failed (EIO) at each system call from the store's
// open on - by devinfo set, without and with --backup, and by the board object's SaveDevInfo
// (record_io) - leaves the old record or the new one, whole; success means the new one; a failed
// open, read, write, fsync or rename is a failure with a message that, once devinfo's store may
// have changed, gives the command restoring it. The calls come in a safe order; a devinfo set
// that changes nothing moves no byte.
TEST_F(DevinfoTest, SaveLeavesTheOldOrTheNewRecordWholeWhateverFails)
{
    const Str fresh = Patch(kRec, 36, "NEW");
    for (const Str s : {"rec", "recb", "recs"}) {
        board.Put("/tmp/old." + s, kRec);
        board.Put("/tmp/new." + s, fresh);
    }
    board.Put("/tmp/IPC_AX620Q.rec", kRec);
    board.Put("/tmp/NEW.rec", fresh);
    const RunResult r =
        Sh(R"sh(t=openat,read,pread64,write,pwrite64,fsync,rename,renameat,renameat2,close,ioctl
run() { o=/tmp/old.${s##*/}; cp $o $s; rm -f /tmp/bak # LeakSanitizer cannot run under ptrace
  if [ $s = /tmp/recs ]; then c="/sbin/record_io save debug $s /tmp/$v.rec"
  else c="/sbin/devinfo set --no-apply $b $s board_name=$v"; fi
  ASAN_OPTIONS=detect_leaks=0 strace -qq -e signal=none -o /tmp/trace "$@" $HW_RUNNER $c \
    >/tmp/err 2>&1; rc=$?
  echo "$s $row $rc $({ cmp -s $s $o && echo old; } || { cmp -s $s /tmp/new.${s##*/} && echo new; } \
    || echo torn) $(tr '\n' ' ' </tmp/err)"; }
calls() { mawk -v s="\"${s##*/}\"" '{n = $1; sub(/\(.*/, "", n); k[n]++} index($0, s) {w = 1}
    w && !/write\([12],/ {print n, k[n]}' /tmp/trace >/tmp/calls; mawk '{sub(/64$/, "", $1)
    sub(/^p/, "", $1); sub(/^rename.*/, "rename", $1)} /^(p?read|p?write|fsync|rename|ioctl)/ {
    printf "%s ", $1} END {print ""}' /tmp/calls >>/tmp/moves; }
for s in /tmp/rec /tmp/recb /tmp/recs; do
  v=IPC_AX620Q row=same; run -e trace=$t; calls
  v=NEW row=clean; run -e trace=$t; calls; [ -z "$b" ] || cp /tmp/bak /tmp/backup
  while read n k; do for f in signal=KILL error=EIO; do row=$n:$f:when=$k; run -e trace=$n \
    -e inject=$row; done; done </tmp/calls
  b="--backup /tmp/bak"
done)sh");
    // Per pass of devinfo set, unchanged: the record read, nothing else. Changed: the backup
    // (second pass) and the record each written, synced, renamed, the directory synced and read
    // back. The board object saves every time, and reads nothing first.
    const Str saved = "write fsync rename fsync read read ";
    EXPECT_EQ(board.Read("/tmp/moves"), "read \nread " + saved + "\nread \nread " + saved + saved +
                                            "\n" + saved + "\n" + saved + "\n");
    for (const Str &line : Lines(r.out)) {
        std::istringstream in(line);
        Str s, row, state, said;
        int rc = -1;
        std::getline(in >> s >> row >> rc >> state, said);
        EXPECT_TRUE((state == "old" || state == "new") &&
                    (rc == 1 || rc == 137 || (rc == 0 && state == (row == "same" ? "old" : "new"))))
            << line;
        // From the record's bytes in the message, or (second pass) from --backup; the board
        // object's debug lines say what failed.
        const Str restore = s == "/tmp/rec" ? " | dd of=" + s : "dd if=/tmp/bak of=" + s;
        const Str told = s == "/tmp/recs" ? "do_save_file:"
                         : state == "old" ? "devinfo: "
                                          : restore;
        EXPECT_TRUE(rc != 1 || said.find(told) != Str::npos) << line;
        // An error of anything but a close is an error of the save.
        EXPECT_TRUE(rc == 1 || row.find("EIO") == Str::npos || !row.rfind("close", 0)) << line;
    }
    EXPECT_GT(Lines(r.out).size(), 60u) << r.out << r.err;
    EXPECT_EQ(board.Read("/tmp/backup"), kRec);
}

} // namespace
} // namespace hwtest
