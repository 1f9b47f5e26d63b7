// Bad input on the real binary in the board sandbox: whatever the flash,
// the file system, the kernel or the command line hands it, the program
// says what went wrong where it has a line for it, runs every later step
// of the start, stays resident and leaves the stores it reads as they
// were. One table, one row per kind of bad input; then a save over a
// stale store and a read back, watched with strace.
#include "board.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace {

using Str = std::string;
using Strings = std::vector<Str>;

const Str kTag = "[bdsetup] NOTICE! ";
const Str kSandboxMac = "02:00:00:00:00:01"; // eth0 at the start of a run
const Str kSandboxGw = "192.168.77.1";
const Str kOtherMac = "02:12:34:56:78:9a";
const Str kName = "BAD_INPUT";
// eth0 already carries its MAC: no network command, unless a row wants them.
const Str kRecord = MakeRecord(0x851, kName, kSandboxMac);
const Str kFirmwareFile = "a regular file where the marker directory belongs\n";

// A record text field as the board takes it: up to the first NUL, and
// nothing at all when its 32 bytes hold none.
Str TextField(const Str &rec, std::size_t offset)
{
    const std::size_t nul = rec.substr(offset, 32).find('\0');
    return nul == Str::npos ? "" : rec.substr(offset, nul);
}

// A text as one shell word: bare when it is only letters, digits and
// "._-:/+=,@", else in single quotes.
Str Word(const Str &text)
{
    return std::regex_match(text, std::regex("[A-Za-z0-9._:/+=,@-]*")) ? text : ShellQuote(text);
}

// The 96 bytes of the shared block for a board name of at most 31 characters.
Str Block(const Str &name)
{
    Str block(96, '\0');
    block.replace(0, 4, "\x28\x95\x27\x95", 4);
    block.replace(32, name.size(), name);
    block.replace(64, 4, "\x02\xde\xcf\x78", 4);
    return block;
}

// One row: what the board holds and how the program is started, then what
// the board must show afterwards.
struct Row {
    explicit Row(Str row_name) : name(std::move(row_name)) {}

    Str name;
    std::optional<Str> record = kRecord; // /dev/mtdblock3
    std::vector<std::pair<Str, Str>> files; // more files, all left as they were
    Str before;    // shell, in the sandbox, before the start
    Strings flags; // sandbox flags
    Strings args;
    std::optional<Strings> argv; // what the program gets when `before` redefines `hw`
    Str until = kUntilGuiStarted;
    // What the start takes from the record.
    Str board_name = kName, mac = kSandboxMac, marker = "851";
    // eth0's address at the start ("" for no eth0), the gateway the lookup
    // finds for the MAC set-up to put back.
    Str eth0 = kSandboxMac, gw = kSandboxGw;
    bool firmware_file = false; // kFirmwareFile where /firmware belongs
    bool programs = true;       // the stand-ins are there and start
    Str shm = "size=96 mode=0604";
    bool block_written = true;
    std::vector<std::pair<Str, Str>> shows; // texts that board files must contain

    Row &Record(std::optional<Str> r) { record = std::move(r); return *this; }
    Row &File(Str path, Str bytes) { files.emplace_back(path, bytes); return *this; }
    Row &Before(Str s) { before += s + "\n"; return *this; }
    Row &Args(Strings a) { args = std::move(a); return *this; }
    Row &Argv(Strings a) { argv = std::move(a); return *this; }
    Row &Until(Str u) { until = std::move(u); return *this; }
    Row &Takes(Str n, Str m, Str id) { board_name = n, mac = m, marker = id; return *this; }
    Row &Gw(Str g) { gw = std::move(g); return *this; }
    Row &NoEth0() { flags.push_back("--no-eth0"), eth0 = "", gw = ""; return *this; }
    Row &FirmwareFile() { firmware_file = true; return *this; }
    Row &NoPrograms() { programs = false; return *this; }
    Row &Shm(Str info, bool written) { shm = info, block_written = written; return *this; }
    Row &Shows(Str path, Str text) { shows.emplace_back(path, text); return *this; }
    Row &Out(Str text) { return Shows("/tmp/hw.out", text); }
    Row &Err(Str text) { return Shows("/tmp/hw.err", text); }
    Row &Log(Str func_message) { return Out(kTag + func_message + "\n"); }
};

void PrintTo(const Row &r, std::ostream *os) { *os << r.name; }

// A record with these texts, taken as they stand.
Row Texts(const char *row, const Str &name, const Str &mac)
{
    return Row(row).Record(MakeRecord(0x851, name, mac)).Takes(name, mac, "851");
}

// What /bin/sh must have been given, in order.
Strings Commands(const Row &r)
{
    Strings cmds;
    if (r.mac != r.eth0)
        cmds = {"ifconfig eth0 down", "ifconfig eth0 hw ether " + Word(r.mac), "ifconfig eth0 up",
                "route add default gw  " + r.gw};
    if (!r.firmware_file)
        cmds.push_back("mkdir /firmware");
    cmds.push_back("touch /firmware/" + r.marker);
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=" + Word(r.board_name) +
                   " &");
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &");
    return cmds;
}

// --- the rows -------------------------------------------------------------------

// 280 bytes from a fixed seed (mt19937's output is the same everywhere) but
// board id 0x851, each text field given a NUL at a random place: texts of
// random bytes for the shell, ifconfig and the DDNS client.
Row RandomRecord(const char *name)
{
    std::mt19937 rng(20250424u);
    Str rec(280, '\0');
    for (char &c : rec)
        c = static_cast<char>(rng() & 0xff);
    for (std::size_t field : {36u, 68u, 100u})
        rec[field + 1 + rng() % 31] = '\0';
    rec.replace(32, 4, "\x51\x08\0\0", 4);
    return Row(name).Record(rec).Takes(TextField(rec, 36), TextField(rec, 68), "851");
}

const Str kPath127 = "/data/" + Str(121, 'p');
// A single argument of 1 MiB never reaches a program: execve refuses any
// argument longer than 128 KiB less its NUL (MAX_ARG_STRLEN) with E2BIG.
// Eight of the longest are 1 MiB less 8 bytes; each is one digit and this.
const Str kBigArg = [] {
    Str s(131070, ' ');
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char>('!' + i % 94); // printable, quotes and $ among them
    return s;
}();

// `count` arguments: "1" + kBigArg ..., or "arg1" ... and a store path last.
Strings ManyArgs(int count, bool big)
{
    Strings args;
    for (int i = 1; i <= count; ++i)
        args.push_back(big ? std::to_string(i) + kBigArg : "arg" + std::to_string(i));
    if (!big)
        args.back() = "dev_file=/data/ten.rec"; // found behind 9,999 others
    return args;
}

// `count` default routes in tables of their own: the lookup's dump covers
// every table, and must fit 8192 bytes.
Str OtherTables(int count)
{
    return "hip() ( PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec ip \"$@\" )\ni=0; while [ $i -lt " +
           std::to_string(count) +
           " ]; do i=$((i + 1)); echo \"route add default via 192.168.77.$((i % 250 + 2))"
           " table $((i + 1000))\"; done | hip -batch - >/dev/null";
}

const Row kRows[] = {
    // --- the record ---
    Row("ErasedPartition").Record(Str(280, '\xff')).Takes("", "", "ffffffff"),
    RandomRecord("RandomBytes"),
    Row("NoPartition").Record(std::nullopt).Takes("", "", "0").Args({"debug"})
        .Log("do_read_dev_mtd:device /dev/mtdblock3 open failed"),
    Row("EmptyPartition").Record("").Takes("", "", "0").Args({"debug"})
        .Log("do_read_dev_mtd:rd_size = 0 err"),
    // open succeeds, read fails: the file store counts it as read.
    Row("RecordFileIsADirectory").File("/data/recdir/inside", "x").Takes("", "", "0")
        .Args({"debug", "dev3_file=/data/recdir"})
        .Log("do_read_file:read device info  file /data/recdir success"),

    // --- the file system ---
    // /firmware exists, so no mkdir; touch fails under it.
    Row("FirmwareIsARegularFile").FirmwareFile().Err("/firmware/851").Err("Not a directory"),
    Row("ProgramsMissing").Before("rm -f /mnt/mtd/app/vrn_ddns_client /mnt/mtd/app/gui")
        .Until("[ -s /dev/console ] && [ -s /tmp/hw.err ]").NoPrograms()
        .Err("/mnt/mtd/app/vrn_ddns_client: not found")
        .Shows("/dev/console", "/mnt/mtd/app/gui: not found"),

    // --- the shared segment, there before the start ---
    Row("SmallerSegment").Before("$HW_RUNNER /sbin/shm_dump --create 16 >/dev/null")
        .Args({"debug"}).Shm("size=16 mode=0604", false).Log("write_shmem1:shmget error !!"),
    // Root's CAP_IPC_OWNER passes every access check of System V IPC: a
    // segment whose bits refuse writing is written, and its bits stay.
    Row("SegmentRefusesWriting").Before("$HW_RUNNER /sbin/shm_dump --create 96 0400 >/dev/null")
        .Shm("size=96 mode=0400", true),

    // --- the network ---
    Texts("NoEth0", kName, kOtherMac).NoEth0()
        .Out("init_private_ip get mac failed: No such device \n"),
    // Taking a link down drops the routes through it, the default route
    // too: the lookup finds none, and none is put back.
    Texts("Eth0AlreadyDown", kName, kOtherMac).Before("ip link set eth0 down").Gw(""),
    Texts("DefaultRoutesIn100OtherTables", kName, kOtherMac).Before(OtherTables(100)),
    // Their dump no longer fits the lookup's buffer: the lookup fails.
    Texts("DefaultRoutesIn300OtherTables", kName, kOtherMac).Before(OtherTables(300)).Gw("")
        .Out("Read From Socket Failed.../n").Err("Error in recieved packet"),

    // --- the command line ---
    Row("TenThousandArguments").Args(ManyArgs(10000, false))
        .File("/data/ten.rec", MakeRecord(0x10000, "TEN_THOUSAND", kSandboxMac))
        .Takes("TEN_THOUSAND", kSandboxMac, "10000"),
    Row("EightLongestArgumentsMakeOneMiB").File("/tmp/big.arg", kBigArg).Argv(ManyArgs(8, true))
        .Before("hw() { a=$(cat /tmp/big.arg); exec /sbin/hw \"1$a\" \"2$a\" \"3$a\" \"4$a\""
                " \"5$a\" \"6$a\" \"7$a\" \"8$a\"; }"),
    Row("NotUtf8")
        .Args({"debug", "\xff\xfe", "caf\xe9", "\xc3\x28\xa0\xa1", "\xed\xa0\x80",
               "dev3_file=/data/\xff\xe9.rec"})
        .File("/data/\xff\xe9.rec", MakeRecord(0x851, "FROM_\xe9T\xe9", kSandboxMac))
        .Takes("FROM_\xe9T\xe9", kSandboxMac, "851")
        .Log("do_read_file:read device info  file /data/\xff\xe9.rec success"),
    // The scan logs the whole path; the store gets its first 127 characters.
    Row("StorePath128CharactersCutTo127").Args({"debug", "dev3_file=" + kPath127 + "q"})
        .File(kPath127 + "q", MakeRecord(0x851, "NOT_CUT", kSandboxMac))
        .File(kPath127, MakeRecord(0x851, "CUT_TO_127", kSandboxMac))
        .Takes("CUT_TO_127", kSandboxMac, "851")
        .Log("main:dev file1 = " + kPath127 + "q").Log("SetDevFile:set dev info file " + kPath127),

    // --- record texts the shell must not read as code: each tries to make /tmp/pwned ---
    Texts("ShellSyntax", "a b*>/tmp/pwned|&;$(id)", "$(touch /tmp/pwned);`id`"),
    Texts("QuotesAndNewlines", "a'b\"c';touch /tmp/pwned;'\n", "\"`touch /tmp/pwned`\"'\n"),
    // A tab and UTF-8 are quoted, the plain characters stay bare.
    Texts("TabUtf8AndPlainCharacters", "-n\tcaf\xc3\xa9", "-rf_Az.09:/+=,@"),
    // The longest quoted word there can be: 2 + 31 * 4 characters.
    Texts("ThirtyOneSingleQuotes", Str(31, '\''), Str(31, '\'')),
};

// --- the table --------------------------------------------------------------------

class BadInputTest : public BoardTest, public ::testing::WithParamInterface<Row> {};

TEST_P(BadInputTest, BoardShowsItAndGoesOn)
{
    const Row &r = GetParam();
    if (r.record)
        board.PutRecord(*r.record);
    for (const auto &[path, bytes] : r.files)
        board.Put(path, bytes);
    if (r.firmware_file)
        board.Put("/firmware", kFirmwareFile);
    BootOptions options;
    options.flags = r.flags;
    options.until = r.until;
    options.before = (r.record ? "" : "rm -f /dev/mtdblock3\n") + r.before;
    const RunResult run = board.Boot(r.args, options);
    ASSERT_NE(run.status, -1) << run.err;

    // Resident, and nothing crashed or tripped a sanitizer.
    const Str err = board.Err();
    EXPECT_TRUE(board.Alive()) << "status " << board.Read("/tmp/hw.status") << "\n" << err;
    for (const char *crash : {"Segmentation", "Aborted", "Sanitizer", "runtime error"})
        EXPECT_EQ(err.find(crash), Str::npos) << err;

    // The echo of every argument comes first, byte for byte; then the lines
    // the board has for the input.
    const Strings argv = r.argv.value_or(r.args);
    Strings echo = {"argc = " + std::to_string(argv.size() + 1)};
    for (std::size_t i = 0; i < argv.size(); ++i)
        echo.push_back("argv" + std::to_string(i + 1) + " = " + argv[i]);
    const Strings lines = Lines(board.Output());
    EXPECT_TRUE(lines.size() >= echo.size() && std::equal(echo.begin(), echo.end(), lines.begin()))
        << "the echo of the arguments: " << board.Output().substr(0, 300);
    for (const auto &[path, text] : r.shows)
        EXPECT_NE(board.Read(path).find(text), Str::npos) << path << ":\n" << board.Read(path);

    // Every later step ran: exactly these commands, nothing else (what
    // ifconfig and route then make of eth0 is theirs).
    EXPECT_EQ(board.ShellLog(), Commands(r));
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a record text ran as a command";
    if (r.programs) {
        EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
                  (Strings{"/mnt/mtd/app", "dev_type=" + r.board_name}));
        EXPECT_EQ(board.ProgramArgs("gui"), Strings{"/mnt/mtd/app"});
    }
    EXPECT_EQ(board.Read(r.firmware_file ? "/firmware" : "/tmp/firmware.ls"),
              r.firmware_file ? kFirmwareFile : r.marker + "\n");
    const Str shm_info = board.Read("/tmp/shm.info");
    EXPECT_TRUE(std::regex_match(shm_info, std::regex("shmid=[0-9]+ " + r.shm + "\n"))) << shm_info;
    const Str shm = board.Read("/tmp/shm.bin");
    EXPECT_EQ(shm, r.block_written ? Block(r.board_name) : Str(shm.size(), '\0'));

    // Nothing lost: every store as it was before the start.
    EXPECT_TRUE(!r.record || board.Read("/dev/mtdblock3") == *r.record) << "partition changed";
    for (const auto &[path, bytes] : r.files)
        EXPECT_TRUE(board.Read(path) == bytes) << path << " changed";
}

INSTANTIATE_TEST_SUITE_P(BadInput, BadInputTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row> &info) { return info.param.name; });

// --- a save over a stale store, then a read back, through the board object -----

class BadInputSaveTest : public BoardTest {};

TEST_F(BadInputSaveTest, SavedRecordIsSyncedAndReadsBackWhole)
{
    Str rec = MakeRecord(0x1234abcd, "SAVED_NAME", kSandboxMac, "P2P-SAVED");
    for (int i = 132; i < 280; ++i) // reserved bytes, carried as they are
        rec[i] = static_cast<char>(i * 7 + 1);
    const Str tail(744, '\x5a');
    board.Put("/tmp/new.rec", rec);
    board.Put("/data/rec.bin", Str(1000, 'o')); // longer: the save truncates it
    board.PutRecord(kRecord + tail);

    // strace -P: the calls on the store alone. No /config: the MAC file
    // cannot be written, the saves stand all the same.
    const RunResult run = board.Run(
        "rm -rf /config\n"
        "for s in /data/rec.bin /dev/mtdblock3; do\n"
        "  t=/tmp/trace.${s##*/}\n"
        "  e='-qq -e signal=none -e trace=read,write,pwrite64,writev,fsync,fdatasync,ftruncate'\n"
        "  strace $e -P $s -o $t $HW_RUNNER /sbin/record_io save $s /tmp/new.rec\n"
        "  strace $e -P $s -o $t.r $HW_RUNNER /sbin/record_io read $s $t.bin\n"
        "done >/tmp/out 2>&1\n");
    ASSERT_EQ(run.status, 0) << run.err;

    const Strings out = Lines(board.Read("/tmp/out"));
    EXPECT_EQ(std::count(out.begin(), out.end(), "record_io save: 0"), 2) << board.Read("/tmp/out");
    EXPECT_EQ(std::count(out.begin(), out.end(), "record_io read: 0"), 2);
    EXPECT_FALSE(board.Exists("/config"));
    EXPECT_TRUE(board.Read("/data/rec.bin") == rec) << "one whole record, the old bytes gone";
    EXPECT_TRUE(board.Read("/dev/mtdblock3") == rec + tail) << "the bytes behind it stay";
    for (const Str trace : {"/tmp/trace.rec.bin", "/tmp/trace.mtdblock3"}) {
        EXPECT_TRUE(board.Read(trace + ".bin") == rec) << "the read gives the saved 280 bytes";
        // The save writes the record and syncs it; the read only reads it.
        const std::regex call(R"(^(\w+)\(.*\) += (-?\d+)$)");
        Str calls;
        for (const Str &line : Lines(board.Read(trace) + board.Read(trace + ".r")))
            calls += std::regex_replace(line, call, "$1 = $2; ");
        EXPECT_EQ(calls, "write = 280; fsync = 0; read = 280; ") << trace;
    }
}

} // namespace
} // namespace hwtest
