// Harness for system tests: runs the real hw_start inside the board sandbox
// (scripts/sandbox) and reads back what a board would show.
//
// A Board is one board root directory (a fresh mkdtemp under /tmp, deleted
// by the destructor). Fill it before a run, run, then read it:
//
//   class MyTest : public hwtest::BoardTest {};
//   TEST_F(MyTest, BootsWithDefaults) {
//       board.PutRecord(hwtest::MakeRecord(0x851, "IPC", "02:00:00:00:00:01"));
//       board.Boot({"debug"});
//       EXPECT_TRUE(board.Alive());
//       EXPECT_EQ(board.Read("/tmp/eth0.mac"), "02:00:00:00:00:01\n");
//       EXPECT_EQ(board.ProgramArgs("gui"), (std::vector<std::string>{"/mnt/mtd/app"}));
//   }
//
// Paths given to Put/Read/Exists/... are paths on the board ("/config/mac");
// they are taken relative to the root directory. Each Run or Boot is a new
// sandbox (new network, shared memory and processes) on the same root: files
// carry over between runs, nothing else does.
//
// Environment, so one suite runs against every build and tool set:
//   HW_START_BIN      the binary under test (default: this build's app/hw_start)
//   HW_START_RUNNER   emulator command, e.g. "qemu-arm-static" (default none)
//   HW_SANDBOX_FLAGS  extra scripts/sandbox flags for every run, e.g. --busybox
//   HW_TOOLS_DIR      the built tests/tools programs (default: this build's);
//                     for an ARM binary, the ARM build's (HW_TEST_TOOLS=ON)
//   HW_KEEP_ROOT      when set, root directories are kept (and named on stderr)
//   HW_BACKEND        where the boot table runs: the sandbox (unset), or
//                     "virt" / "sabrelite", an emulated board (BoardTable)
//   HW_BOARD_OUT      scripts/board's build directory for a board run
//
// Inside a sandbox `hw ARGS` starts the program (through the emulator, if
// any); the tools of tests/tools (shm_dump, ...) are in /sbin, built for
// the same machine as the program: run them as `$HW_RUNNER /sbin/TOOL`.
#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hwtest {

// What one sandbox run gave: the exit status of the script (-1 when it was
// killed after its time-out), and its standard output and error.
struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};

struct RunOptions {
    std::vector<std::string> flags; // extra sandbox flags, e.g. {"--no-eth0"}
    int timeout_s = 60;             // the whole sandbox is killed after this
};

// The default BootOptions::until.
inline constexpr const char *kUntilGuiStarted = "[ -e /var/run/gui.args ]";

struct BootOptions : RunOptions {
    std::string before; // shell run before the program starts
    std::string after;  // shell run after the state dump
    // Shell test polled every 0.1 s for up to 10 s (no error when it never
    // succeeds). $HW_PID is the program's pid; hw_alive succeeds while it
    // runs (a zombie counts as ended).
    std::string until = kUntilGuiStarted;
};

class Board {
public:
    Board();
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    const std::string &root() const { return root_; }

    // Before a run. Parent directories are made as needed.
    void Put(const std::string &path, const std::string &bytes, mode_t mode = 0644);
    void PutRecord(const std::string &bytes) { Put("/dev/mtdblock3", bytes); }
    void Remove(const std::string &path); // file or whole directory

    // Runs `script` with /usr/bin/dash -c in a sandbox on this root (so the
    // script itself is not in the shell log).
    RunResult Run(const std::string &script, const RunOptions &options = {});

    // The standard start: runs options.before, then
    //   hw ARGS >/tmp/hw.out 2>/tmp/hw.err &
    // polls options.until (writes /tmp/hw.waited "yes"/"no"), waits 0.2 s,
    // records whether the program still runs (/tmp/hw.alive "yes"/"no";
    // /tmp/hw.status its exit status when it ended) and dumps the board's
    // state with the host's tools:
    //   /tmp/eth0.mac      /sys/class/net/eth0/address
    //   /tmp/routes        ip -4 route show table main
    //   /tmp/shm.bin       the identity block's bytes (shm_dump)
    //   /tmp/shm.info      "shmid=N size=N mode=0NNN", or shm_dump's error
    //   /tmp/firmware.ls   ls -A /firmware (absent when /firmware is)
    // then runs options.after. The program is killed when the run ends.
    RunResult Boot(const std::vector<std::string> &args, const BootOptions &options = {});

    // After a run.
    std::string Output() const { return Read("/tmp/hw.out"); } // program's stdout
    std::string Err() const { return Read("/tmp/hw.err"); }    // program's stderr
    std::vector<std::string> ShellLog() const;                  // every `sh -c` command
    // cwd, then each argument, of a stand-in program ("gui", "vrn_ddns_client");
    // empty when it was not started.
    std::vector<std::string> ProgramArgs(const std::string &name) const;
    bool Alive() const { return Read("/tmp/hw.alive") == "yes\n"; }
    std::string Read(const std::string &path) const; // "" when missing
    bool Exists(const std::string &path) const;

private:
    std::string Host(const std::string &path) const
    {
        return root_ + (path.rfind('/', 0) == 0 ? "" : "/") + path;
    }

    std::string root_;
};

// The script Board::Boot runs in the sandbox for `args` and `options`.
std::string BootScript(const std::vector<std::string> &args, const BootOptions &options);

// HW_BACKEND: "" for the sandbox, else the emulated board to run on.
std::string Backend();

// One row of a board run: its name, the Board whose root holds the files the
// row puts on the board (/dev/mtdblock3: the partition's bytes), and how it
// starts (BootOptions::flags: --mac and --no-eth0 only).
struct TableRow {
    std::string name;
    Board *board;
    std::vector<std::string> args;
    BootOptions options;
    bool shown = false; // set when the board printed the row's files
};

// Runs every row on the emulated board `backend` in ONE boot of
// `scripts/board --table` (tests/board/table-runner). Afterwards each shown
// row's root holds what the board left, at the paths Boot leaves them
// (/dev/mtdblock3: the partition's first bytes, as many as were put).
RunResult BoardTable(const std::string &backend, std::vector<TableRow> &rows);

// Fixture: skips the test (GTEST_SKIP) when system tests cannot run here:
// not root, or no mount/net/ipc/pid namespaces to be had (probed once).
class BoardTest : public ::testing::Test {
protected:
    void SetUp() override;
    Board board;
};

// A 280-byte device information record: magic, zero GUID,
// the board id, and the texts cut to 31 characters and zero-filled.
std::string MakeRecord(std::uint32_t board_id, const std::string &board_name,
                       const std::string &mac, const std::string &p2p_id = "");

// Splits into lines without their "\n"; a last line without one counts.
std::vector<std::string> Lines(const std::string &text);
// The text quoted as one word for /bin/sh.
std::string ShellQuote(const std::string &text);

} // namespace hwtest
