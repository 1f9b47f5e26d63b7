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
#include "boot_table.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace hwtest {
namespace {

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
        for (const Row &r : BootRows()) {
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

INSTANTIATE_TEST_SUITE_P(Boot, BootTest, ::testing::ValuesIn(BootRows()),
                         [](const ::testing::TestParamInfo<Row> &info) { return info.param.name; });

// The board may carry no C++ runtime: a static binary needs no library, a
// dynamic one the C library and its loader alone (on ARM the stack
// protector's guard lives in the loader).
TEST(Binary, NeedsNothingButTheCLibrary)
{
    const char *env = std::getenv("HW_START_BIN");
    const Str bin = ShellQuote(env != nullptr && *env != '\0' ? env : HW_START_BIN_DEFAULT);
    const Str others =
        "readelf -d " + bin + " | grep '(NEEDED)' | grep -v -E '\\[(libc\\.so|ld-linux)'";
    EXPECT_EQ(std::system(("readelf -h " + bin + " >/dev/null && ! " + others).c_str()), 0) << others;
}

} // namespace
} // namespace hwtest
