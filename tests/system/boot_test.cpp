// The board's start, one table: each row is what the board holds and how
// the program is started (arguments, record, files, eth0, routes, the
// shared segment), then what the board must show afterwards: the output
// behind the argument echo, the commands /bin/sh got, the started
// programs' arguments and ignored signals, the shared block's bytes, the
// work-mode markers, eth0 and the default route, and every store as it
// was. Some rows also run under valgrind's memcheck.
//
// The table runs in the sandbox, or (HW_BACKEND=virt|sabrelite) on an
// emulated board: there one boot runs every row (BoardTable) before the
// tests read each row's results. A row a board cannot set up says why.
// On a board, /dev/console is a regular file for each row (the GUI's
// output) and rows run without memcheck (the image has no valgrind).
#include "board.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <memory>
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
const Str kDdns = "vrn_ddns_client started";
const Str kName31 = "BOARD_NAME_OF_31_CHARACTERS_XYZ";
// eth0 already carries the record's MAC: no network command unless a row wants them.
// The partition is larger than the record; the bytes behind it are never touched.
const Str kFlash = MakeRecord(0x851, "FROM_FLASH_0123456789", kSandboxMac) + Str(64, 'Z');
const Str kFile = MakeRecord(0x2222, "FROM_FILE_0123456789", kSandboxMac);
const Str kFirmwareFile = "a regular file where the marker directory belongs\n";
const Str kFlashRead = "do_read_dev_mtd:enter!";
const Str kFileRead = "do_read_file:read device info  file /tmp/rec success";

// A record text as one shell word: bare when it is only letters, digits
// and "._-:/+=,@", else in single quotes.
Str Word(const Str &text)
{
    return std::regex_match(text, std::regex("[A-Za-z0-9._:/+=,@-]*")) ? text : ShellQuote(text);
}

// A record text field as the board takes it: up to the first NUL, nothing
// at all when its 32 bytes hold none.
Str TextField(const Str &rec, std::size_t offset)
{
    const std::size_t nul = rec.substr(offset, 32).find('\0');
    return nul == Str::npos ? "" : rec.substr(offset, nul);
}

struct Row {
    explicit Row(Str row_name) : name(std::move(row_name)) {}

    Str name;
    std::optional<Str> record = kFlash;                             // /dev/mtdblock3
    std::vector<std::pair<Str, Str>> files = {{"/tmp/rec", kFile}}; // left as they were
    std::vector<std::pair<Str, Str>> puts;                          // put, then checked by `is`
    Str before, after;                                              // shell around the start
    Strings flags, args;
    Str until = kUntilGuiStarted;
    // What the start takes from the record.
    Str board_name = "FROM_FLASH_0123456789", mac = kSandboxMac, marker = "851";
    Str markers = "851\n"; // ls /firmware ("" for no check)
    // eth0's address at the start ("" for none), the gateway put back.
    Str eth0 = kSandboxMac, gw = kSandboxGw;
    Strings lines;     // the output right behind the echo, tags kept
    bool exits = false; // help and version: status 0, nothing else runs
    Str shm = "size=96 mode=0604";
    bool block_written = true, memcheck = false;
    std::vector<std::pair<Str, Str>> shows, is; // a file contains / equals a text
    std::vector<std::pair<Str, Str>> same;      // two files equal
    Str not_on_board;                           // why a board cannot set the row up

    Row &Record(std::optional<Str> r) { record = std::move(r); return *this; }
    Row &File(Str path, Str bytes) { files.emplace_back(path, bytes); return *this; }
    Row &Puts(Str path, Str bytes) { puts.emplace_back(path, bytes); return *this; }
    Row &Before(Str s) { before += s + "\n"; return *this; }
    Row &After(Str s) { after += s + "\n"; return *this; }
    Row &Args(Strings a) { args = std::move(a); return *this; }
    Row &Until(Str u) { until = std::move(u); return *this; }
    Row &Takes(Str n, Str m, Str id) { board_name = n, mac = m, marker = id, markers = id + "\n"; return *this; }
    Row &Markers(Str listing) { markers = std::move(listing); return *this; }
    Row &Eth0(Str start) { flags.insert(flags.end(), {"--mac", start}), eth0 = start; return *this; }
    Row &Gw(Str g) { gw = std::move(g); return *this; }
    Row &NoEth0() { flags.push_back("--no-eth0"), eth0 = "", gw = ""; return *this; }
    Row &Lines(Strings l) { lines = std::move(l); return *this; }
    Row &Exits() { exits = true; return *this; }
    Row &Shm(Str info, bool written) { shm = std::move(info), block_written = written; return *this; }
    Row &Memcheck() { memcheck = true; return *this; }
    Row &Shows(Str path, Str text) { shows.emplace_back(path, text); return *this; }
    Row &Out(Str text) { return Shows("/tmp/hw.out", text); }
    Row &Log(Str func_message) { return Out(kTag + func_message + "\n"); }
    Row &Is(Str path, Str bytes) { is.emplace_back(path, bytes); return *this; }
    Row &Same(Str a, Str b) { same.emplace_back(a, b); return *this; }
    Row &NotOnBoard(Str why) { not_on_board = std::move(why); return *this; }
};

void PrintTo(const Row &r, std::ostream *os) { *os << r.name; }

Row Texts(const char *row, const Str &name, const Str &mac)
{
    return Row(row).Record(MakeRecord(0x851, name, mac)).Takes(name, mac, "851");
}

// A row whose start reads the record file /tmp/rec (or one the row adds).
Row FromFile(const char *row, Strings args)
{
    return Row(row).Args(std::move(args)).Takes("FROM_FILE_0123456789", kSandboxMac, "2222");
}

// What /bin/sh must have been given, in order.
Strings Commands(const Row &r, bool had_firmware)
{
    Strings cmds;
    if (r.mac != r.eth0)
        cmds = {"ifconfig eth0 down", "ifconfig eth0 hw ether " + Word(r.mac), "ifconfig eth0 up",
                "route add default gw  " + r.gw};
    if (!had_firmware)
        cmds.push_back("mkdir /firmware");
    cmds.push_back("touch /firmware/" + r.marker);
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=" + Word(r.board_name) +
                   " &");
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &");
    return cmds;
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

// eth0's address after the start: the record's, when ifconfig takes it.
Str Eth0After(const Row &r)
{
    if (r.eth0.empty())
        return "";
    if (r.mac == r.eth0 || !std::regex_match(r.mac, std::regex("([0-9a-fA-F]{2}:){5}[0-9a-fA-F]{2}")))
        return r.eth0 + "\n";
    Str lower = r.mac;
    for (char &c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower + "\n";
}

// --- the rows ---------------------------------------------------------------------

Row RandomRecord(const char *name)
{
    std::mt19937 rng(20250424u); // mt19937's output is the same everywhere
    Str rec(280, '\0');
    for (char &c : rec)
        c = static_cast<char>(rng() & 0xff);
    for (std::size_t field : {36u, 68u, 100u})
        rec[field + 1 + rng() % 31] = '\0';
    rec.replace(32, 4, "\x51\x08\0\0", 4);
    return Row(name).Record(rec).Takes(TextField(rec, 36), TextField(rec, 68), "851");
}

Strings ManyArgs(int count)
{
    Strings args;
    for (int i = 1; i <= count; ++i)
        args.push_back("arg" + std::to_string(i));
    args.back() = "dev_file=/tmp/rec"; // found behind 9,999 others
    return args;
}

// `count` default routes in tables of their own: the lookup's dump covers
// every table and must fit 8192 bytes. One `ip` each: BusyBox's has no -batch.
Str OtherTables(int count)
{
    return "i=0; while [ $i -lt " + std::to_string(count) +
           " ]; do i=$((i + 1)); ip route add default via 192.168.77.$((i % 250 + 2))"
           " table $((i + 500)); done"; // BusyBox ip: table ids below 1024
}

const Str kPath127 = "/data/" + Str(121, 'p');
const Str kOld = "left by an earlier boot";
// A first start on the same board, from another record; the row's start is the second.
const Str kFirstStart = "hw dev3_file=/tmp/first >/dev/null 2>&1 & p=$!; n=0\n"
                        "while [ ! -e /var/run/gui.args ] && [ $n -lt 100 ]; do sleep 0.1; "
                        "n=$((n + 1)); done; kill $p; wait $p\n"
                        "$HW_RUNNER /sbin/shm_dump /tmp/shm0.bin >/tmp/shm0.info\n"
                        "rm -f /var/run/*.args /var/log/sh.log; : >/dev/console";

const Row kRows[] = {
    // --- the command line ---
    Row("NoArguments").Lines({kDdns}),
    Row("HelpWinsOverAnEarlierVersion").Args({"version", "debug", "help"}).Exits()
        .Lines({"support cmd list:", "help: show this menu", "version: show version",
                "debug: work with debug info output",
                "dev3_file=xxxxxx: save device info to file xxxx, xxxx must include absolute path,"
                " if use mtdblock, set xxxxx like this: /dev/mtdblock3"}),
    // Before any scan, so the debug word shows nothing.
    Row("VersionEndsBeforeTheScans").Args({"debug", "dev3_file=/tmp/rec", "version"}).Exits()
        .Lines({"<version>"}),
    Row("WordsThatAreNotExactAreOnlyEchoed").Args({"Help", "versions", "xdebug", "debug2", ""})
        .Lines({kDdns}),
    FromFile("StorePathWithoutDebug", {"dev3_file=/tmp/rec=1"}).File("/tmp/rec=1", kFile)
        .Lines({kDdns}).Memcheck(),
    FromFile("WordInsideAnArgumentAndDebugLast", {"xdev3_file_a=/tmp/rec", "debug"})
        .Lines({kTag + "main:arg1 = xdev3_file_a=/tmp/rec, file = <ptr>",
                kTag + "main:dev file = dev3_file_a=/tmp/rec", kTag + "main:dev file1 = /tmp/rec",
                kTag + "main:arg1 = xdev3_file_a=/tmp/rec, file = (nil)",
                kTag + "main:arg2 = debug, file = (nil)",
                kTag + "SetDevFile:set dev info file /tmp/rec", kTag + kFileRead}),
    Row("NoEqualsEndsTheFirstScan").Args({"debug", "dev3_file", "dev3_file=/tmp/rec"})
        .Lines({kTag + "main:arg1 = debug, file = (nil)", kTag + "main:arg2 = dev3_file, file = <ptr>",
                kTag + "main:dev file = dev3_file", kTag + "main:arg1 = debug, file = (nil)",
                kTag + "main:arg2 = dev3_file, file = (nil)",
                kTag + "main:arg3 = dev3_file=/tmp/rec, file = (nil)", kTag + kFlashRead}),
    FromFile("DevFileReplacesDev3File", {"debug", "dev3_file=/tmp/a", "mydev_file=/tmp/rec"})
        .Lines({kTag + "main:arg1 = debug, file = (nil)",
                kTag + "main:arg2 = dev3_file=/tmp/a, file = <ptr>",
                kTag + "main:dev file = dev3_file=/tmp/a", kTag + "main:dev file1 = /tmp/a",
                kTag + "main:arg1 = debug, file = (nil)",
                kTag + "main:arg2 = dev3_file=/tmp/a, file = (nil)",
                kTag + "main:arg3 = mydev_file=/tmp/rec, file = <ptr>",
                kTag + "main:dev file = dev_file=/tmp/rec", kTag + "main:dev file1 = /tmp/rec",
                kTag + "SetDevFile:set dev info file /tmp/rec", kTag + kFileRead}),
    Row("EmptyPathKeepsTheFlash").Args({"debug", "dev3_file="}).Log("main:dev file1 = ")
        .Log(kFlashRead),
    FromFile("TenThousandArguments", ManyArgs(10000)),
    Row("NotUtf8").Args({"debug", "\xff\xfe", "caf\xe9", "\xc3\x28\xa0\xa1", "dev3_file=/data/\xff.rec"})
        .File("/data/\xff.rec", MakeRecord(0x851, "FROM_\xe9T\xe9", kSandboxMac))
        .Takes("FROM_\xe9T\xe9", kSandboxMac, "851")
        .Log("do_read_file:read device info  file /data/\xff.rec success"),
    // The scan logs the whole path; the store gets its first 127 characters.
    Row("StorePath128CharactersCutTo127").Args({"debug", "dev3_file=" + kPath127 + "q"})
        .File(kPath127 + "q", MakeRecord(0x851, "NOT_CUT", kSandboxMac))
        .File(kPath127, MakeRecord(0x851, "CUT_TO_127", kSandboxMac))
        .Takes("CUT_TO_127", kSandboxMac, "851")
        .Log("main:dev file1 = " + kPath127 + "q").Log("SetDevFile:set dev info file " + kPath127),

    // --- the stores: "/dev/mtd" anywhere selects the flash, and that is mtdblock3 ---
    Row("DevMtdInsideAPathReadsMtdblock3").Args({"debug", "dev3_file=/data/dev/mtd.bin"})
        .File("/data/dev/mtd.bin", kFile).Log(kFlashRead),
    FromFile("UpperCaseDevMtdIsAFile", {"debug", "dev3_file=/DEV/MTDBLOCK3"})
        .File("/DEV/MTDBLOCK3", kFile).Log("do_read_file:read device info  file /DEV/MTDBLOCK3 success"),
    Row("MissingFile").Args({"debug", "dev3_file=/data/none.bin"}).Takes("", "", "0")
        .Log("do_read_file:open file /data/none.bin failed"),
    // The mac field came as zeros too: it differs from eth0's.
    Row("EmptyFileCountsAsRead").Args({"debug", "dev3_file=/data/empty.bin"}).File("/data/empty.bin", "")
        .Takes("", "", "0").Log("do_read_file:read device info  file /data/empty.bin success"),
    FromFile("File100BytesGivesTheFieldsInThem", {"dev3_file=/data/short.bin"})
        .File("/data/short.bin", kFile.substr(0, 100)),
    // The name's first 14 characters came, the zeros start-up put there follow.
    Row("Partition50BytesKeepsWhatCame").Args({"debug"}).Record(kFlash.substr(0, 50))
        .Takes("FROM_FLASH_012", "", "851").Log("do_read_dev_mtd:rd_size = 50 err")
        .NotOnBoard("an MTD partition is whole erase blocks: the read gets its 280 bytes"),
    Row("ErasedPartition").Record(Str(280, '\xff')).Takes("", "", "ffffffff"),
    RandomRecord("RandomBytes"),
    Row("NoPartition").Record(std::nullopt).Takes("", "", "0").Args({"debug"})
        .Log("do_read_dev_mtd:device /dev/mtdblock3 open failed"),
    // open succeeds, read fails: the file store counts it as read.
    Row("RecordFileIsADirectory").File("/data/recdir/inside", "x").Takes("", "", "0")
        .Args({"debug", "dev3_file=/data/recdir"})
        .Log("do_read_file:read device info  file /data/recdir success"),

    // --- the boot: the whole output in order, the markers, then a second start ---
    Texts("FreshBootInOrder", kName31, kOtherMac).Args({"debug"}).Memcheck()
        .Puts("/firmware/851", kOld).File("/firmware/1234", kOld).Markers("1234\n851\n")
        .Is("/firmware/851", "")
        .Lines({kTag + "main:arg1 = debug, file = (nil)", kTag + "main:arg1 = debug, file = (nil)",
                kTag + kFlashRead,
                kTag + "sync_mac_addr:mac not match, dev_info mac = " + kOtherMac +
                    ", eth0 mac = " + kSandboxMac + ", restore it",
                kTag + "boot:begin write_shmem1",
                kTag + "write_shmem1:creat_shm ok, shmid = <id>, shared_memory = 0x* !!",
                kTag + "write_shmem1:shmem_info.run_mode = 0x0 !!",
                kTag + "write_shmem1:shmem_info.guid.Data1 = 0x0 !!",
                kTag + "write_shmem1:shmem_info.guid.Data2 = 0x0 !!",
                kTag + "write_shmem1:shmem_info.guid.Data3 = 0x0 !!",
                kTag + "write_shmem1:shmem_info.name = " + kName31,
                kTag + "boot:begin CreateWorkModeID", kTag + "CreateWorkModeID:begin firmware",
                kTag + "CreateWorkModeID:begin remove",
                kTag + "CreateWorkModeID:remove /firmware/851", kTag + "CreateWorkModeID:begin touch",
                kTag + "boot:begin boot", kDdns}),
    // Same segment, written again; the board's own marker goes, the record's is made.
    Row("SecondStartReusesTheSegment").Record(MakeRecord(0xabcdef, "SECOND", kSandboxMac))
        .Takes("SECOND", kSandboxMac, "abcdef").Puts("/tmp/first", MakeRecord(0x851, "FIRST", kSandboxMac))
        .File("/firmware/1234", kOld).Before(kFirstStart).Markers("1234\nabcdef\n")
        .Same("/tmp/shm0.info", "/tmp/shm.info"),

    // --- the file system and the shared segment ---
    // /firmware exists, so no mkdir; touch fails under it.
    Row("FirmwareIsARegularFile").Puts("/firmware", kFirmwareFile).Markers("")
        .Is("/firmware", kFirmwareFile).Shows("/tmp/hw.err", "/firmware/851"),
    Row("SmallerSegment").Before("$HW_RUNNER /sbin/shm_dump --create 16 >/dev/null")
        .Args({"debug"}).Shm("size=16 mode=0604", false).Log("write_shmem1:shmget error !!"),

    // --- the network ---
    Texts("UpperCaseMacIsSetAgain", kName31, "02:AA:BB:CC:DD:0E").Eth0("02:aa:bb:cc:dd:0e"),
    Texts("EmptyMac", kName31, ""),
    Texts("NoEth0", "X", kOtherMac).NoEth0().Memcheck()
        .Out("init_private_ip get mac failed: No such device \n"),
    // Taking a link down drops the routes through it: none to put back.
    Texts("Eth0AlreadyDown", "X", kOtherMac).Before("ip link set eth0 down").Gw(""),
    Texts("DefaultRoutesIn100OtherTables", "X", kOtherMac).Before(OtherTables(100)),
    // Their dump no longer fits the lookup's buffer: the lookup fails.
    Texts("DefaultRoutesIn300OtherTables", "X", kOtherMac).Before(OtherTables(300)).Gw("")
        .Out("Read From Socket Failed.../n").Shows("/tmp/hw.err", "Error in recieved packet"),

    // --- record texts the shell must not read as code: each tries to make /tmp/pwned ---
    Texts("ShellSyntax", "a b*>/tmp/pwned|&;$(id)", "$(touch /tmp/pwned);`id`"),
    Texts("OperatorsWithoutBlanks", "x;true", "x|true"),
    Texts("OneBlank", "two words", "02:00:00:00:00:01 "),
    Texts("QuotesAndNewlines", "a'b\"c';touch /tmp/pwned;'\n", "\"`touch /tmp/pwned`\"'\n"),
    // A tab and UTF-8 are quoted, the plain characters stay bare.
    Texts("TabUtf8AndPlainCharacters", "-n\tcaf\xc3\xa9", "-rf_Az.09:/+=,@"),
    // The longest quoted word there can be: 2 + 31 * 4 characters.
    Texts("ThirtyOneSingleQuotes", Str(31, '\''), Str(31, '\'')),
};

// --- the table --------------------------------------------------------------------

// Output lines with what varies from run to run replaced.
Strings Normalised(const Str &out, const Str &shmid)
{
    const std::regex ptr("file = 0x[0-9a-f]+$"), address("memory = 0x[0-9a-f]+ "),
        version("hw_start version : 3\\.0\\.0, build time "
                "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] "
                "[0-9]{4} [0-2][0-9]:[0-5][0-9]:[0-6][0-9]");
    Strings lines;
    for (Str line : Lines(out)) {
        line = std::regex_replace(line, ptr, "file = <ptr>");
        line = std::regex_replace(line, address, "memory = 0x* ");
        if (!shmid.empty())
            line = std::regex_replace(line, std::regex("shmid = " + shmid + ","), "shmid = <id>,");
        lines.push_back(std::regex_match(line, version) ? "<version>" : line);
    }
    return lines;
}

// Runs the start under memcheck; /tmp/vg.skip when it cannot.
const Str kMemcheck =
    "hw() {\n  if [ -n \"$HW_RUNNER\" ] || grep -q __asan_init /mnt/mtd/app/hw_start; then\n"
    "    : >/tmp/vg.skip; exec /sbin/hw \"$@\"; fi\n"
    "  exec valgrind --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect"
    " --track-origins=yes --log-file=/tmp/vg.log /mnt/mtd/app/hw_start \"$@\"\n}";

// What a row puts on the board and how it starts.
struct Start {
    Strings args;
    BootOptions options;
    bool had_firmware = false;
};

Start Prepare(const Row &r, Board &board, bool memcheck)
{
    Start start;
    if (r.record)
        board.PutRecord(*r.record);
    for (const auto &[path, bytes] : r.files)
        board.Put(path, bytes);
    for (const auto &[path, bytes] : r.puts) {
        board.Put(path, bytes);
        start.had_firmware = start.had_firmware || path.rfind("/firmware", 0) == 0;
    }
    for (const auto &file : r.files)
        start.had_firmware = start.had_firmware || file.first.rfind("/firmware/", 0) == 0;
    memcheck = memcheck && r.memcheck;
    BootOptions &options = start.options;
    options.flags = r.flags;
    options.until = r.exits ? "! hw_alive" : r.until;
    options.timeout_s = memcheck ? 120 : 60;
    options.before = (r.record ? "" : "rm -f /dev/mtdblock3\n") + (memcheck ? kMemcheck + "\n" : "") + r.before;
    options.after = (memcheck ? "kill -TERM $HW_PID; wait $HW_PID\n" : "") + r.after;
    start.args = r.args;
    return start;
}

class BootTest : public BoardTest, public ::testing::WithParamInterface<Row> {
protected:
    // On a board: every row set up, then one boot runs them all.
    static void SetUpTestSuite()
    {
        if (Backend().empty() || geteuid() != 0)
            return;
        std::vector<TableRow> rows;
        for (const Row &r : kRows) {
            if (!r.not_on_board.empty())
                continue;
            Shown &shown = table_[r.name];
            shown.board = std::make_unique<Board>();
            Start start = Prepare(r, *shown.board, false);
            shown.had_firmware = start.had_firmware;
            rows.push_back({r.name, shown.board.get(), start.args, start.options});
        }
        run_ = BoardTable(Backend(), rows);
        for (const TableRow &row : rows)
            table_[row.name].shown = row.shown;
    }
    static void TearDownTestSuite() { table_.clear(); }

    struct Shown {
        std::unique_ptr<Board> board;
        bool had_firmware = false, shown = false;
    };
    static std::map<Str, Shown> table_;
    static RunResult run_;
};
std::map<Str, BootTest::Shown> BootTest::table_;
RunResult BootTest::run_;

TEST_P(BootTest, BoardShowsWhatTheStartDid)
{
    const Row &r = GetParam();
    const Str backend = Backend();
    SCOPED_TRACE("on " + (backend.empty() ? Str("the sandbox") : backend) + ", row " + r.name);
    const Board *shown = &board;
    bool had_firmware = false;
    if (backend.empty()) {
        const Start start = Prepare(r, board, true);
        const RunResult run = board.Boot(start.args, start.options);
        ASSERT_NE(run.status, -1) << run.err;
        had_firmware = start.had_firmware;
    } else {
        if (!r.not_on_board.empty())
            GTEST_SKIP() << backend << " cannot set this row up: " << r.not_on_board;
        const auto row = table_.find(r.name);
        ASSERT_TRUE(row != table_.end() && row->second.shown)
            << backend << " showed nothing of this row; the run ended with status " << run_.status
            << ":\n" << run_.out.substr(run_.out.size() - std::min<std::size_t>(run_.out.size(), 3000))
            << run_.err;
        shown = row->second.board.get();
        had_firmware = row->second.had_firmware;
    }
    const Board &b = *shown;

    // The echo of every argument, byte for byte, then the row's lines.
    const Str info = b.Read("/tmp/shm.info");
    std::smatch id;
    std::regex_search(info, id, std::regex("shmid=([0-9]+)"));
    Strings want = {"argc = " + std::to_string(r.args.size() + 1)};
    for (std::size_t i = 0; i < r.args.size(); ++i)
        want.push_back("argv" + std::to_string(i + 1) + " = " + r.args[i]);
    want.insert(want.end(), r.lines.begin(), r.lines.end());
    Strings got = Normalised(b.Output(), id.empty() ? "" : Str(id[1]));
    got.resize(std::min(got.size(), want.size()));
    EXPECT_EQ(got, want) << b.Output().substr(0, 2000);
    for (const auto &[path, text] : r.shows)
        EXPECT_NE(b.Read(path).find(text), Str::npos) << path << ":\n" << b.Read(path);
    for (const auto &[path, bytes] : r.is)
        EXPECT_TRUE(b.Read(path) == bytes) << path;
    for (const auto &[x, y] : r.same)
        EXPECT_EQ(b.Read(x), b.Read(y)) << x << " and " << y;
    const Str err = b.Err();
    for (const char *crash : {"Segmentation", "Aborted", "Sanitizer", "runtime error"})
        EXPECT_EQ(err.find(crash), Str::npos) << err;
    if (r.exits) {
        EXPECT_EQ(b.Read("/tmp/hw.status"), "0\n");
        EXPECT_TRUE(b.ShellLog().empty()) << "nothing of the start-up ran";
        return;
    }

    // Resident; every step ran: exactly these commands, nothing else.
    EXPECT_TRUE(b.Alive()) << "status " << b.Read("/tmp/hw.status") << "\n" << err;
    EXPECT_EQ(b.ShellLog(), Commands(r, had_firmware));
    EXPECT_FALSE(b.Exists("/tmp/pwned")) << "a record text ran as a command";
    EXPECT_EQ(b.ProgramArgs("vrn_ddns_client"), (Strings{"/mnt/mtd/app", "dev_type=" + r.board_name}));
    EXPECT_EQ(b.ProgramArgs("gui"), Strings{"/mnt/mtd/app"});
    EXPECT_EQ(b.Read("/dev/console"), "gui started\n");
    // SIGPIPE (signal 13, bit 12 of the mask) reaches the programs ignored.
    EXPECT_EQ(std::stoull("0" + b.Read("/var/run/gui.sigign"), nullptr, 16) >> 12 & 1, 1u);
    if (!r.markers.empty()) {
        EXPECT_EQ(b.Read("/tmp/firmware.ls"), r.markers);
    }
    EXPECT_TRUE(std::regex_match(info, std::regex("shmid=[0-9]+ " + r.shm + "\n"))) << info;
    const Str shm = b.Read("/tmp/shm.bin");
    EXPECT_EQ(shm, r.block_written ? Block(r.board_name) : Str(shm.size(), '\0'));
    EXPECT_EQ(b.Read("/tmp/eth0.mac"), Eth0After(r));
    if (!r.gw.empty()) {
        EXPECT_NE(b.Read("/tmp/routes").find("default via " + r.gw + " "), Str::npos)
            << b.Read("/tmp/routes");
    }

    // Nothing lost: every store as it was before the start.
    EXPECT_TRUE(!r.record || b.Read("/dev/mtdblock3") == *r.record) << "partition changed";
    EXPECT_EQ(b.Read("/tmp/part.after"), b.Read("/tmp/part.before")) << "a board's whole partition";
    for (const auto &[path, bytes] : r.files)
        EXPECT_TRUE(b.Read(path) == bytes) << path << " changed";
    if (r.memcheck && backend.empty() && !b.Exists("/tmp/vg.skip")) {
        const Str log = b.Read("/tmp/vg.log");
        EXPECT_NE(log.find("terminating with default action of signal 15"), Str::npos) << log;
        EXPECT_NE(log.find("ERROR SUMMARY: 0 errors from 0 contexts"), Str::npos) << log;
    }
}

INSTANTIATE_TEST_SUITE_P(Boot, BootTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row> &info) { return info.param.name; });

// The board may carry no C++ runtime: a static binary needs no library, a
// dynamic one the C library alone.
TEST(Binary, NeedsNothingButTheCLibrary)
{
    const char *env = std::getenv("HW_START_BIN");
    const Str bin = ShellQuote(env != nullptr && *env != '\0' ? env : HW_START_BIN_DEFAULT);
    const Str others = "readelf -d " + bin + " | grep '(NEEDED)' | grep -v '\\[libc\\.so'";
    EXPECT_EQ(std::system(("readelf -h " + bin + " >/dev/null && ! " + others).c_str()), 0) << others;
}

} // namespace
} // namespace hwtest
