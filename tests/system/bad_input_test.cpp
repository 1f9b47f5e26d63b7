// Bad input on the real binary in the board sandbox: whatever the flash,
// the file system, the kernel or the command line hands it, the program
// says what went wrong where it has a line for it, runs every later step
// of the start, stays resident and loses nothing: the stores it reads are
// byte-identical afterwards. One table, one row per kind of bad input;
// then a save and a read through the board object, watched with strace.
#include "board.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace {

using Strings = std::vector<std::string>;

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kSandboxMac = "02:00:00:00:00:01"; // eth0 at the start of a run
const std::string kSandboxGw = "192.168.77.1";
const std::string kOtherMac = "02:12:34:56:78:9a";
const std::string kName = "BAD_INPUT";
// eth0 already carries its MAC: no network command, unless a row wants them.
const std::string kRecord = MakeRecord(0x851, kName, kSandboxMac, "P2P-BAD-INPUT");
const std::string kNetRecord = MakeRecord(0x851, kName, kOtherMac);
const std::string kHip = "hip() ( PATH=/usr/sbin:/usr/bin:/sbin:/bin; exec ip \"$@\" )\n";

// The record's text field at `offset` as the board takes it: up to the
// first NUL, and nothing at all when its 32 bytes hold none.
std::string TextField(const std::string &rec, std::size_t offset)
{
    const std::string field = rec.substr(offset, 32);
    const std::size_t nul = field.find('\0');
    return nul == std::string::npos ? "" : field.substr(0, nul);
}

std::string MarkerOf(const std::string &rec)
{
    std::uint32_t id = 0;
    for (int i = 3; i >= 0; --i)
        id = (id << 8) | static_cast<unsigned char>(rec[32 + i]);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%x", id);
    return hex;
}

// A text as one shell word: bare when it is only letters, digits and
// "._-:/+=,@", else in single quotes.
std::string Word(const std::string &text)
{
    for (char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') ||
                           std::string("._-:/+=,@").find(c) != std::string::npos;
        if (!plain)
            return ShellQuote(text);
    }
    return text;
}

// The 96 bytes of the shared block for a board name of at most 31 characters.
std::string Block(const std::string &name)
{
    std::string block(96, '\0');
    block.replace(0, 4, "\x28\x95\x27\x95", 4);
    block.replace(32, name.size(), name);
    block.replace(64, 4, "\x02\xde\xcf\x78", 4);
    return block;
}

enum class Firmware { kMissing, kRegularFile };
const std::string kFirmwareFile = "a regular file where the marker directory belongs\n";

// One row: what the board holds and how the program is started, then what
// the board must show afterwards.
struct Row {
    explicit Row(std::string row_name) : name(std::move(row_name)) {}

    std::string name;
    // The board before the start.
    std::string record = kRecord; // /dev/mtdblock3
    std::vector<std::pair<std::string, std::string>> files;
    Firmware firmware = Firmware::kMissing;
    std::string before; // shell, in the sandbox, before the start
    Strings flags;      // sandbox flags
    Strings args;
    std::optional<Strings> argv; // what the program gets when `before` redefines `hw`
    std::string until = kUntilGuiStarted;
    // What the start takes from the record.
    std::string board_name = kName;
    std::string mac = kSandboxMac;
    std::string marker = "851";
    // The network: eth0's address at the start ("" when there is none), the
    // gateway put back when the address is set, eth0's address afterwards
    // and whether a default route is left.
    std::string eth0 = kSandboxMac;
    std::string gw = kSandboxGw;
    std::string eth0_after = kSandboxMac;
    bool default_route = true;
    bool programs = true; // the stand-ins are there and start
    std::string shm = "size=96 mode=0604";
    bool block_written = true;
    // Texts that board files must contain, in this order per file.
    std::vector<std::pair<std::string, std::string>> shows;
    // Paths that must be exactly as they were before the start.
    Strings stores = {"/dev/mtdblock3"};

    Row &Record(std::string r) { record = std::move(r); return *this; }
    Row &File(const std::string &path, const std::string &bytes)
    {
        files.emplace_back(path, bytes);
        return *this;
    }
    Row &Fw(Firmware f) { firmware = f; return *this; }
    Row &Before(const std::string &s) { before += s + "\n"; return *this; }
    Row &Flags(Strings f) { flags = std::move(f); return *this; }
    Row &Args(Strings a) { args = std::move(a); return *this; }
    Row &Argv(Strings a) { argv = std::move(a); return *this; }
    Row &Until(std::string u) { until = std::move(u); return *this; }
    Row &Takes(std::string n, std::string m, std::string id)
    {
        board_name = std::move(n);
        mac = std::move(m);
        marker = std::move(id);
        return *this;
    }
    Row &Net(std::string gateway, std::string after, bool route)
    {
        gw = std::move(gateway);
        eth0_after = std::move(after);
        default_route = route;
        return *this;
    }
    Row &NoEth0()
    {
        flags.push_back("--no-eth0");
        eth0 = "";
        return *this;
    }
    Row &NoPrograms() { programs = false; return *this; }
    Row &Shm(std::string info, bool written)
    {
        shm = std::move(info);
        block_written = written;
        return *this;
    }
    Row &Shows(const std::string &path, const std::string &text)
    {
        shows.emplace_back(path, text);
        return *this;
    }
    Row &Out(const std::string &text) { return Shows("/tmp/hw.out", text); }
    Row &Err(const std::string &text) { return Shows("/tmp/hw.err", text); }
    Row &Store(const std::string &path) { stores.push_back(path); return *this; }
};

void PrintTo(const Row &r, std::ostream *os) { *os << r.name; }

std::string Notice(const std::string &func_message) { return kTag + func_message + "\n"; }

// What /bin/sh must have been given, in order.
Strings Commands(const Row &r)
{
    Strings cmds;
    if (r.mac != r.eth0) {
        cmds.push_back("ifconfig eth0 down");
        cmds.push_back("ifconfig eth0 hw ether " + Word(r.mac));
        cmds.push_back("ifconfig eth0 up");
        cmds.push_back("route add default gw  " + r.gw);
    }
    if (r.firmware == Firmware::kMissing)
        cmds.push_back("mkdir /firmware");
    cmds.push_back("touch /firmware/" + r.marker);
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/vrn_ddns_client dev_type=" + Word(r.board_name) +
                   " &");
    cmds.push_back("cd /mnt/mtd/app/; /mnt/mtd/app/gui 1>/dev/console 2>&1 &");
    return cmds;
}

// Shell that writes the state of each store to /tmp/store.<i>.<tag>: what
// kind of thing it is, then its bytes or its listing.
std::string Snapshot(const Strings &stores, const std::string &tag)
{
    std::string s;
    for (std::size_t i = 0; i < stores.size(); ++i) {
        const std::string p = ShellQuote(stores[i]);
        s += "if [ -d " + p + " ]; then echo dir; ls -A " + p + "; elif [ -e " + p +
             " ]; then echo file; cat " + p + "; else echo none; fi >/tmp/store." +
             std::to_string(i) + "." + tag + " 2>&1\n";
    }
    return s;
}

// --- the rows -------------------------------------------------------------------

std::string WithBytes(std::string rec, std::size_t offset, const std::string &bytes)
{
    rec.replace(offset, bytes.size(), bytes);
    return rec;
}

// 280 bytes from a fixed seed (mt19937's output is the same everywhere).
// Random text fields mostly hold no NUL and so read as empty; with
// `terminated` each gets one at a random place, which leaves texts of
// random bytes for the shell, ifconfig and the DDNS client.
Row RandomBytes(const char *name, bool terminated)
{
    std::mt19937 rng(20250424u);
    std::string rec(280, '\0');
    for (char &c : rec)
        c = static_cast<char>(rng() & 0xff);
    if (terminated) {
        for (std::size_t field : {36u, 68u, 100u})
            rec[field + 1 + rng() % 31] = '\0';
    }
    return Row(name).Record(rec).Takes(TextField(rec, 36), TextField(rec, 68), MarkerOf(rec));
}

const std::string kPath127 = "/data/" + std::string(121, 'p');
const std::string kPath128 = kPath127 + "q";
// A single argument of 1 MiB never reaches a program: execve refuses any
// argument longer than 128 KiB less its NUL (MAX_ARG_STRLEN) with E2BIG.
// Eight of the longest are 1 MiB less 8 bytes; each is one digit and this.
const std::string kBigArg = [] {
    std::string s(131070, ' ');
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char>('!' + i % 94); // printable, quotes and $ among them
    return s;
}();

Strings TenThousandArgs()
{
    Strings args;
    for (int i = 1; i < 10000; ++i)
        args.push_back("arg" + std::to_string(i));
    args.push_back("dev_file=/data/ten.rec"); // found behind 9,999 others
    return args;
}

Strings BigArgv()
{
    Strings argv;
    for (char i = '1'; i <= '8'; ++i)
        argv.push_back(i + kBigArg);
    return argv;
}

// Each hostile text tries to create /tmp/pwned.
const std::string kMixed31Name = "-;touch /tmp/pwned;`id`$(id)'\"\n";
const std::string kMixed31Mac = "'$(touch /tmp/pwned)`x`;\"-\n'abc";
const std::string kQuotes31(31, '\'');

// The route dump a lookup gathers must fit 8192 bytes, and it covers every
// table: these routes make it far longer.
std::string Routes(const std::string &route_add_args, int count)
{
    return kHip + "i=0; while [ $i -lt " + std::to_string(count) +
           " ]; do i=$((i + 1)); echo \"route add " + route_add_args +
           "\"; done | hip -batch - >/dev/null";
}
const std::string kReadFailed = "Read From Socket Failed.../n";

// The shared segment of the block, made before the start.
std::string Segment(const std::string &size_mode)
{
    return "$HW_RUNNER /sbin/shm_dump --create " + size_mode + " >/dev/null";
}

const Row kRows[] = {
    // --- the record ---
    Row("ErasedPartition")
        .Record(std::string(280, '\xff'))
        .Args({"debug"})
        .Takes("", "", "ffffffff")
        .Out(Notice("do_read_dev_mtd:enter!")),
    RandomBytes("RandomBytes", false),
    RandomBytes("RandomBytesWithTerminatedTexts", true),
    Row("EveryTextFieldUnterminated")
        .Record(WithBytes(kRecord, 36,
                          std::string(32, 'N') + std::string(32, 'M') + std::string(32, 'P')))
        .Takes("", "", "851"),
    // open succeeds, read fails: the file store counts it as read.
    Row("RecordFileIsADirectory")
        .File("/data/recdir/inside", "x")
        .Args({"debug", "dev3_file=/data/recdir"})
        .Takes("", "", "0")
        .Out(Notice("do_read_file:read device info  file /data/recdir success"))
        .Store("/data/recdir"),
    Row("NoPartition")
        .Before("rm -f /dev/mtdblock3")
        .Args({"debug"})
        .Takes("", "", "0")
        .Out(Notice("do_read_dev_mtd:device /dev/mtdblock3 open failed")),
    Row("EmptyPartition")
        .Record("")
        .Args({"debug"})
        .Takes("", "", "0")
        .Out(Notice("do_read_dev_mtd:rd_size = 0 err")),

    // --- the file system ---
    // /firmware exists, so no mkdir; touch fails under it.
    Row("FirmwareIsARegularFile")
        .Fw(Firmware::kRegularFile)
        .Err("/firmware/851")
        .Err("Not a directory")
        .Store("/firmware"),
    // The boot never writes the MAC file: nothing makes /config.
    Row("NoConfigDirectory").Before("rm -rf /config").Store("/config"),
    // The sandbox's mount namespace is private, so the bind mount is too.
    Row("AppDirectoryReadOnly")
        .Before("mount --bind /mnt/mtd/app /mnt/mtd/app &&"
                " mount -o remount,bind,ro /mnt/mtd/app\n"
                "if touch /mnt/mtd/app/probe 2>/dev/null; then echo writable; else echo read-only;"
                " fi >/tmp/app.state")
        .Shows("/tmp/app.state", "read-only\n")
        .Store("/mnt/mtd/app"),
    Row("ProgramsMissing")
        .Before("rm -f /mnt/mtd/app/vrn_ddns_client /mnt/mtd/app/gui")
        .Until("[ -s /dev/console ] && [ -s /tmp/hw.err ]")
        .NoPrograms()
        .Err("/mnt/mtd/app/vrn_ddns_client: not found")
        .Shows("/dev/console", "/mnt/mtd/app/gui: not found"),

    // --- the shared segment ---
    Row("SmallerSegment")
        .Before(Segment("16"))
        .Args({"debug"})
        .Shm("size=16 mode=0604", false)
        .Out(Notice("write_shmem1:shmget error !!")),
    // The program runs as root, and root's CAP_IPC_OWNER passes every
    // access check of System V IPC: on the board a segment whose bits
    // refuse writing is written all the same, and its bits stay.
    Row("SegmentRefusesWritingRootWritesIt")
        .Before(Segment("96 0400"))
        .Args({"debug"})
        .Shm("size=96 mode=0400", true),
    // Without that capability the same segment refuses the program.
    Row("SegmentRefusesWritingWithoutIpcOwner")
        .Before(Segment("96 0400") + "\nhw() { exec setpriv --inh-caps=-ipc_owner"
                                     " --bounding-set=-ipc_owner /sbin/hw \"$@\"; }")
        .Args({"debug"})
        .Shm("size=96 mode=0400", false)
        .Out(Notice("write_shmem1:shmget error !!")),

    // --- the network ---
    Row("NoEth0")
        .NoEth0()
        .Record(kNetRecord)
        .Takes(kName, kOtherMac, "851")
        .Net("", "", false)
        .Out("init_private_ip get mac failed: No such device \n"),
    // Taking a link down drops the routes through it, the default route
    // too: the lookup finds none, and none is put back.
    Row("Eth0AlreadyDown")
        .Before("ip link set eth0 down")
        .Record(kNetRecord)
        .Takes(kName, kOtherMac, "851")
        .Net("", kOtherMac, false),
    Row("RouteDumpOver8192Bytes")
        .Before(Routes("10.1.$((i / 200)).$((i % 200)) dev eth0", 300))
        .Record(kNetRecord)
        .Takes(kName, kOtherMac, "851")
        .Net("", kOtherMac, false)
        .Out(kReadFailed)
        .Err("Error in recieved packet"),
    Row("DefaultRoutesIn100OtherTables")
        .Before(Routes("default via 192.168.77.$((i + 2)) table $((i + 1000))", 100))
        .Record(kNetRecord)
        .Takes(kName, kOtherMac, "851")
        .Net(kSandboxGw, kOtherMac, true),
    // Their dump no longer fits the lookup's buffer: the lookup fails.
    Row("DefaultRoutesIn300OtherTables")
        .Before(Routes("default via 192.168.77.$((i % 250 + 2)) table $((i + 1000))", 300))
        .Record(kNetRecord)
        .Takes(kName, kOtherMac, "851")
        .Net("", kOtherMac, false)
        .Out(kReadFailed)
        .Err("Error in recieved packet"),

    // --- the command line ---
    Row("TenThousandArguments")
        .Args(TenThousandArgs())
        .File("/data/ten.rec", MakeRecord(0x10000, "TEN_THOUSAND", kSandboxMac))
        .Takes("TEN_THOUSAND", kSandboxMac, "10000")
        .Store("/data/ten.rec"),
    Row("EightLongestArgumentsMakeOneMiB")
        .File("/tmp/big.arg", kBigArg)
        .Before("hw() { a=$(cat /tmp/big.arg); exec /sbin/hw \"1$a\" \"2$a\" \"3$a\" \"4$a\""
                " \"5$a\" \"6$a\" \"7$a\" \"8$a\"; }")
        .Argv(BigArgv()),
    Row("NotUtf8")
        .Args({"debug", "\xff\xfe", "caf\xe9", "\xc3\x28\xa0\xa1", "\xed\xa0\x80",
               "dev3_file=/data/\xff\xe9.rec"})
        .File("/data/\xff\xe9.rec", MakeRecord(0x851, "FROM_\xe9T\xe9", kSandboxMac))
        .Takes("FROM_\xe9T\xe9", kSandboxMac, "851")
        .Out(Notice("main:dev file1 = /data/\xff\xe9.rec"))
        .Out(Notice("do_read_file:read device info  file /data/\xff\xe9.rec success"))
        .Store("/data/\xff\xe9.rec"),
    Row("StorePath127Characters")
        .Args({"debug", "dev3_file=" + kPath127})
        .File(kPath127, MakeRecord(0x851, "PATH_127", kSandboxMac))
        .Takes("PATH_127", kSandboxMac, "851")
        .Out(Notice("SetDevFile:set dev info file " + kPath127))
        .Out(Notice("do_read_file:read device info  file " + kPath127 + " success"))
        .Store(kPath127),
    Row("StorePath128CharactersCutTo127")
        .Args({"debug", "dev3_file=" + kPath128})
        .File(kPath128, MakeRecord(0x851, "NOT_CUT", kSandboxMac))
        .File(kPath127, MakeRecord(0x851, "CUT_TO_127", kSandboxMac))
        .Takes("CUT_TO_127", kSandboxMac, "851")
        .Out(Notice("main:dev file1 = " + kPath128))
        .Out(Notice("SetDevFile:set dev info file " + kPath127))
        .Out(Notice("do_read_file:read device info  file " + kPath127 + " success"))
        .Store(kPath127)
        .Store(kPath128),

    // --- record texts the shell must not read as code ---
    Row("SemicolonAndLeadingDash")
        .Record(MakeRecord(0x851, "-n;touch /tmp/pwned", "-m;touch /tmp/pwned"))
        .Takes("-n;touch /tmp/pwned", "-m;touch /tmp/pwned", "851"),
    Row("LeadingDashBareWords")
        .Record(MakeRecord(0x851, "--help", "-a"))
        .Takes("--help", "-a", "851"),
    Row("SubstitutionAndBackquotes")
        .Record(MakeRecord(0x851, "$(touch /tmp/pwned)", "`touch /tmp/pwned`"))
        .Takes("$(touch /tmp/pwned)", "`touch /tmp/pwned`", "851"),
    Row("Quotes")
        .Record(MakeRecord(0x851, "a'b\"c';touch /tmp/pwned;'", "\"$(touch /tmp/pwned)\"'"))
        .Takes("a'b\"c';touch /tmp/pwned;'", "\"$(touch /tmp/pwned)\"'", "851"),
    Row("Newlines")
        .Record(MakeRecord(0x851, "x\ntouch /tmp/pwned\n", "\ntouch /tmp/pwned"))
        .Takes("x\ntouch /tmp/pwned\n", "\ntouch /tmp/pwned", "851"),
    Row("ThirtyOneMixedCharacters")
        .Record(MakeRecord(0x851, kMixed31Name, kMixed31Mac))
        .Takes(kMixed31Name, kMixed31Mac, "851"),
    Row("ThirtyOneSingleQuotes")
        .Record(MakeRecord(0x851, kQuotes31, kQuotes31))
        .Takes(kQuotes31, kQuotes31, "851"),
};

// --- the table --------------------------------------------------------------------

class BadInputTest : public BoardTest, public ::testing::WithParamInterface<Row> {};

// Checks that each text is in `bytes`, in order.
::testing::AssertionResult ContainsInOrder(const std::string &bytes, const Strings &texts)
{
    std::size_t at = 0;
    for (const std::string &t : texts) {
        const std::size_t found = bytes.find(t, at);
        if (found == std::string::npos)
            return ::testing::AssertionFailure() << "missing (or out of order): \"" << t << "\"";
        at = found + t.size();
    }
    return ::testing::AssertionSuccess();
}

TEST_P(BadInputTest, BoardShowsItAndGoesOn)
{
    const Row &r = GetParam();
    board.PutRecord(r.record);
    for (const auto &[path, bytes] : r.files)
        board.Put(path, bytes);
    if (r.firmware == Firmware::kRegularFile)
        board.Put("/firmware", kFirmwareFile);

    BootOptions options;
    options.flags = r.flags;
    options.until = r.until;
    options.before = r.before + Snapshot(r.stores, "before");
    options.after = Snapshot(r.stores, "after") +
                    "cat /sys/class/net/eth0/flags >/tmp/eth0.flags 2>/dev/null\n";
    const RunResult run = board.Boot(r.args, options);
    ASSERT_NE(run.status, -1) << run.err;
    const std::string out = board.Output();
    const std::string err = board.Err();

    // Resident, and nothing crashed or tripped a sanitizer.
    EXPECT_TRUE(board.Alive()) << "status " << board.Read("/tmp/hw.status") << "\n" << err;
    for (const char *crash : {"Segmentation", "Aborted", "Sanitizer", "runtime error"})
        EXPECT_EQ(err.find(crash), std::string::npos) << err;

    // The echo of every argument comes first, byte for byte.
    const Strings argv = r.argv.value_or(r.args);
    const Strings lines = Lines(out);
    ASSERT_GT(lines.size(), argv.size()) << run.err;
    EXPECT_EQ(lines[0], "argc = " + std::to_string(argv.size() + 1));
    for (std::size_t i = 0; i < argv.size(); ++i) {
        if (lines[i + 1] != "argv" + std::to_string(i + 1) + " = " + argv[i]) {
            ADD_FAILURE() << "echo of argument " << i + 1 << ": " << lines[i + 1].substr(0, 200);
            break;
        }
    }

    // The lines the board has for it.
    std::vector<std::pair<std::string, Strings>> shows;
    for (const auto &[path, text] : r.shows) {
        if (shows.empty() || shows.back().first != path)
            shows.push_back({path, {}});
        shows.back().second.push_back(text);
    }
    for (const auto &[path, texts] : shows)
        EXPECT_TRUE(ContainsInOrder(board.Read(path), texts)) << path << ":\n" << board.Read(path);

    // Every later step ran: exactly these commands, nothing else.
    EXPECT_EQ(board.ShellLog(), Commands(r));
    EXPECT_FALSE(board.Exists("/tmp/pwned")) << "a record text ran as a command";
    if (r.programs) {
        EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
                  (Strings{"/mnt/mtd/app", "dev_type=" + r.board_name}));
        EXPECT_EQ(board.ProgramArgs("gui"), Strings{"/mnt/mtd/app"});
    }
    if (r.firmware == Firmware::kRegularFile) {
        EXPECT_FALSE(board.Exists("/tmp/firmware.ls"));
    } else {
        EXPECT_EQ(board.Read("/tmp/firmware.ls"), r.marker + "\n");
    }

    const std::string shm_info = board.Read("/tmp/shm.info");
    EXPECT_TRUE(std::regex_match(shm_info, std::regex("shmid=[0-9]+ " + r.shm + "\n"))) << shm_info;
    const std::string shm = board.Read("/tmp/shm.bin");
    if (r.block_written) {
        EXPECT_EQ(shm, Block(r.board_name));
    } else {
        EXPECT_EQ(shm, std::string(shm.size(), '\0')) << "written where it must not be";
    }

    if (!r.eth0.empty()) {
        EXPECT_EQ(board.Read("/tmp/eth0.mac"), r.eth0_after + "\n");
        const std::string flags = board.Read("/tmp/eth0.flags"); // "0x1003\n"
        EXPECT_EQ(std::strtoul(flags.c_str(), nullptr, 16) & 1u, 1u) << "eth0 left down: " << flags;
        const std::string routes = board.Read("/tmp/routes");
        const bool has_default =
            routes.rfind("default ", 0) == 0 || routes.find("\ndefault ") != std::string::npos;
        EXPECT_EQ(has_default, r.default_route) << routes;
        if (r.default_route) {
            EXPECT_NE(routes.find("default via " + r.gw + " dev eth0"), std::string::npos)
                << routes;
        }
    }

    // Nothing lost: every store as it was before the start.
    for (std::size_t i = 0; i < r.stores.size(); ++i) {
        const std::string tag = "/tmp/store." + std::to_string(i);
        const std::string before = board.Read(tag + ".before");
        EXPECT_NE(before, "") << r.stores[i] << ": no snapshot";
        EXPECT_TRUE(before == board.Read(tag + ".after")) << r.stores[i] << " changed";
    }
    for (const auto &[path, bytes] : r.files)
        EXPECT_TRUE(board.Read(path) == bytes) << path << " changed";
}

INSTANTIATE_TEST_SUITE_P(BadInput, BadInputTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row> &info) { return info.param.name; });

// --- a save, then a read, through the board object -----------------------------------

// The calls on `path` in an `strace -f -y` trace, as "name = result".
Strings StoreCalls(const std::string &trace, const std::string &path)
{
    Strings calls;
    const std::regex call(R"(^(?:\[pid +\d+\] +|\d+ +)?(\w+)\(\d+<([^>]*)>.*\) += (-?\d+))");
    for (const std::string &line : Lines(trace)) {
        std::smatch m;
        if (std::regex_search(line, m, call) && m[2] == path)
            calls.push_back(std::string(m[1]) + " = " + std::string(m[3]));
    }
    return calls;
}

class BadInputSaveTest : public BoardTest {};

TEST_F(BadInputSaveTest, SavedRecordIsSyncedAndReadsBackWhole)
{
    // Every byte distinct from a zero record: GUID, texts and reserved.
    std::string rec = MakeRecord(0x1234abcd, "SAVED_NAME", kSandboxMac, "P2P-SAVED");
    for (int i = 0; i < 24; ++i)
        rec[8 + i] = static_cast<char>(0xa0 + i);
    for (int i = 0; i < 148; ++i)
        rec[132 + i] = static_cast<char>(i * 7 + 1);
    const std::string tail(744, '\x5a');
    board.Put("/tmp/new.rec", rec);
    board.Put("/data/rec.bin", std::string(1000, 'o')); // longer: the save truncates it
    board.PutRecord(kRecord + tail);

    const std::string traced =
        "t() { out=$1; shift; strace -f -y -qq -e trace=read,write,pwrite64,writev,fsync,"
        "fdatasync,ftruncate -o \"$out\" \"$@\"; }\n";
    const RunResult run = board.Run(
        traced +
        "t /tmp/save.file.trace $HW_RUNNER /sbin/save_record /data/rec.bin /tmp/new.rec"
        " >/tmp/save.file.out 2>&1\n"
        "cat /config/mac >/tmp/mac.file 2>&1\n"
        "t /tmp/read.file.trace $HW_RUNNER /sbin/read_record /data/rec.bin /tmp/read.file.bin"
        " >/tmp/read.file.out 2>&1\n"
        // The flash store, with no /config: the MAC file cannot be written,
        // the save stands all the same.
        "rm -rf /config\n"
        "t /tmp/save.mtd.trace $HW_RUNNER /sbin/save_record /dev/mtdblock3 /tmp/new.rec"
        " >/tmp/save.mtd.out 2>&1\n"
        "t /tmp/read.mtd.trace $HW_RUNNER /sbin/read_record /dev/mtdblock3 /tmp/read.mtd.bin"
        " >/tmp/read.mtd.out 2>&1\n");
    ASSERT_EQ(run.status, 0) << run.err;

    const std::string save_file = board.Read("/tmp/save.file.out");
    EXPECT_NE(save_file.find("save_record: 0\n"), std::string::npos) << save_file;
    EXPECT_TRUE(board.Read("/data/rec.bin") == rec) << "one whole record, the old bytes gone";
    EXPECT_EQ(board.Read("/tmp/mac.file"), kSandboxMac + "\n");
    EXPECT_EQ(board.Read("/tmp/read.file.out"), "read_record: 0\n");
    EXPECT_TRUE(board.Read("/tmp/read.file.bin") == rec) << "the read gives the saved 280 bytes";

    const std::string save_mtd = board.Read("/tmp/save.mtd.out");
    EXPECT_NE(save_mtd.find("save_record: 0\n"), std::string::npos) << save_mtd;
    EXPECT_NE(save_mtd.find("/config/mac"), std::string::npos) << "the shell says why";
    EXPECT_FALSE(board.Exists("/config"));
    EXPECT_TRUE(board.Read("/dev/mtdblock3") == rec + tail) << "the bytes behind it stay";
    EXPECT_EQ(board.Read("/tmp/read.mtd.out"), "read_record: 0\n");
    EXPECT_TRUE(board.Read("/tmp/read.mtd.bin") == rec);

    // The save writes the record and syncs it; the read only reads.
    const Strings synced = {"write = 280", "fsync = 0"};
    EXPECT_EQ(StoreCalls(board.Read("/tmp/save.file.trace"), "/data/rec.bin"), synced)
        << board.Read("/tmp/save.file.trace");
    EXPECT_EQ(StoreCalls(board.Read("/tmp/save.mtd.trace"), "/dev/mtdblock3"), synced)
        << board.Read("/tmp/save.mtd.trace");
    EXPECT_EQ(StoreCalls(board.Read("/tmp/read.file.trace"), "/data/rec.bin"),
              Strings{"read = 280"})
        << board.Read("/tmp/read.file.trace");
    const Strings mtd_reads = StoreCalls(board.Read("/tmp/read.mtd.trace"), "/dev/mtdblock3");
    EXPECT_EQ(mtd_reads, Strings{"read = 280"}) << board.Read("/tmp/read.mtd.trace");
}

} // namespace
} // namespace hwtest
