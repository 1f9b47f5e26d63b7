// Board harness for system tests: see board.h.
#include "board.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#if !defined(HW_START_BIN_DEFAULT) || !defined(HW_SANDBOX_SCRIPT) || !defined(HW_TOOLS_DIR) || \
    !defined(HW_BOARD_SCRIPT) || !defined(HW_BOARD_OUT_DEFAULT)
#error "the build must define HW_START_BIN_DEFAULT, HW_SANDBOX_SCRIPT, HW_TOOLS_DIR, HW_BOARD_SCRIPT and HW_BOARD_OUT_DEFAULT"
#endif

namespace fs = std::filesystem;

namespace hwtest {
namespace {

std::string Env(const char *name, const std::string &fallback = "")
{
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Splits at `sep`; a trailing one ends the last item (no empty item).
std::vector<std::string> Split(const std::string &text, char sep)
{
    std::vector<std::string> items;
    for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
        end = std::min(text.find(sep, start), text.size());
        items.push_back(text.substr(start, end - start));
    }
    return items;
}

// Runs argv with stdin from /dev/null, collecting stdout (through a pipe)
// and stderr (through an unlinked temp file). After timeout_s, `timeout`
// kills its whole process group and the status is -1. setpriv gives both
// `timeout` and argv's process SIGKILL when their parent dies, so a test
// that is killed (a ctest time-out) takes the sandbox with it:
// scripts/sandbox with --root execs unshare, which keeps that signal and
// (--kill-child) takes the namespaces down with it.
RunResult Exec(const std::vector<std::string> &argv, int timeout_s)
{
    const std::string seconds = std::to_string(timeout_s);
    std::vector<const char *> cargv = {"setpriv", "--pdeathsig", "KILL", "timeout", "--signal=KILL",
                                       seconds.c_str(), "setpriv", "--pdeathsig", "KILL"};
    for (const std::string &a : argv)
        cargv.push_back(a.c_str());
    cargv.push_back(nullptr);
    char err_path[] = "/tmp/hw-board-err.XXXXXX";
    const int err_fd = mkostemp(err_path, O_CLOEXEC | O_APPEND);
    int out_pipe[2] = {-1, -1};
    int error = err_fd < 0 || pipe2(out_pipe, O_CLOEXEC) != 0 ? errno : 0;
    unlink(err_path);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err_fd, 2);
    pid_t pid = -1;
    if (error == 0)
        error = posix_spawnp(&pid, cargv[0], &actions, nullptr,
                             const_cast<char *const *>(cargv.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out_pipe[1]);
    RunResult result;
    char buf[4096];
    for (ssize_t got; (got = read(out_pipe[0], buf, sizeof buf)) > 0;)
        result.out.append(buf, static_cast<std::size_t>(got));
    close(out_pipe[0]);
    int status = 0;
    if (error == 0)
        waitpid(pid, &status, 0);
    result.err = ReadFile("/proc/self/fd/" + std::to_string(err_fd));
    close(err_fd);
    if (error != 0)
        result.err += std::string("board: cannot start: ") + std::strerror(error) + "\n";
    else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        result.err += "\nboard: killed after " + std::to_string(timeout_s) + " s\n";
    else
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

} // namespace

Board::Board()
{
    char tmpl[] = "/tmp/hw-board.XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        ADD_FAILURE() << "mkdtemp: " << std::strerror(errno);
        return;
    }
    root_ = tmpl;
    chmod(root_.c_str(), 0755);
    std::error_code ec;
    fs::create_directories(root_ + "/sbin", ec);
    for (const auto &entry : fs::directory_iterator(Env("HW_TOOLS_DIR", HW_TOOLS_DIR), ec))
        if (entry.is_regular_file() && access(entry.path().c_str(), X_OK) == 0)
            fs::copy_file(entry.path(), root_ + "/sbin/" + entry.path().filename().string(),
                          fs::copy_options::overwrite_existing, ec);
}

Board::~Board()
{
    if (root_.empty())
        return;
    if (!Env("HW_KEEP_ROOT").empty()) {
        std::fprintf(stderr, "board: root kept at %s\n", root_.c_str());
        return;
    }
    // Mounts live in the sandbox's mount namespace only; if the host ever
    // saw one here, deleting could reach into it (/usr!), so leave it all.
    if (ReadFile("/proc/self/mountinfo").find(" " + root_) != std::string::npos) {
        std::fprintf(stderr, "board: %s has mounts; not deleted\n", root_.c_str());
        return;
    }
    std::error_code ec;
    fs::remove_all(root_, ec);
}

void Board::Put(const std::string &path, const std::string &bytes, mode_t mode)
{
    const std::string host = Host(path);
    std::error_code ec;
    fs::create_directories(fs::path(host).parent_path(), ec);
    fs::remove(host, ec); // never write through a link the sandbox made
    if (!(std::ofstream(host, std::ios::binary) << bytes).flush())
        ADD_FAILURE() << "board: cannot write " << host;
    chmod(host.c_str(), mode);
}

void Board::Remove(const std::string &path)
{
    std::error_code ec;
    fs::remove_all(Host(path), ec);
}

std::string Board::Read(const std::string &path) const { return ReadFile(Host(path)); }

bool Board::Exists(const std::string &path) const
{
    struct stat st;
    return lstat(Host(path).c_str(), &st) == 0;
}

std::vector<std::string> Board::ShellLog() const { return Split(Read("/var/log/sh.log"), '\0'); }

std::vector<std::string> Board::ProgramArgs(const std::string &name) const
{
    return Split(Read("/var/run/" + name + ".args"), '\0');
}

RunResult Board::Run(const std::string &script, const RunOptions &options)
{
    std::vector<std::string> argv = {HW_SANDBOX_SCRIPT, "--root", root_, "--bin",
                                     Env("HW_START_BIN", HW_START_BIN_DEFAULT)};
    if (!Env("HW_START_RUNNER").empty())
        argv.insert(argv.end(), {"--runner", Env("HW_START_RUNNER")});
    std::istringstream extra(Env("HW_SANDBOX_FLAGS"));
    for (std::string flag; extra >> flag;)
        argv.push_back(flag);
    argv.insert(argv.end(), options.flags.begin(), options.flags.end());
    argv.insert(argv.end(), {"--", "/usr/bin/dash", "-c", script});
    return Exec(argv, options.timeout_s);
}

RunResult Board::Boot(const std::vector<std::string> &args, const BootOptions &options)
{
    return Run(BootScript(args, options), options);
}

std::string BootScript(const std::vector<std::string> &args, const BootOptions &options)
{
    std::string hw = "hw";
    for (const std::string &a : args)
        hw += " " + ShellQuote(a);
    // hw_alive: a zombie has ended too, so look at the state field of
    // /proc/PID/stat. The dump uses the host's tools whatever the board's are.
    const std::string script =
        "hw_alive() {\n"
        "  { read -r hw_stat </proc/\"$HW_PID\"/stat; } 2>/dev/null || return 1\n"
        "  hw_stat=${hw_stat##*) }\n"
        "  [ \"${hw_stat%% *}\" != Z ]\n"
        "}\n" +
        options.before + "\n" + hw + " >/tmp/hw.out 2>/tmp/hw.err &\n" +
        "HW_PID=$!; hw_n=0; hw_met=no\n"
        "while [ $hw_n -lt 100 ]; do\n"
        "  if {\n" + options.until + "\n  }; then hw_met=yes; break; fi\n"
        "  sleep 0.1; hw_n=$((hw_n + 1))\n"
        "done\n"
        "echo \"$hw_met\" >/tmp/hw.waited; sleep 0.2\n"
        "if hw_alive; then echo yes >/tmp/hw.alive; else\n"
        "  echo no >/tmp/hw.alive; wait \"$HW_PID\"; echo $? >/tmp/hw.status\n"
        "fi\n"
        "(\n"
        "  PATH=/usr/bin:/usr/sbin:/bin:/sbin\n"
        "  cat /sys/class/net/eth0/address >/tmp/eth0.mac 2>/dev/null || rm -f /tmp/eth0.mac\n"
        "  ip -4 route show table main >/tmp/routes 2>&1\n"
        "  $HW_RUNNER /sbin/shm_dump /tmp/shm.bin >/tmp/shm.info 2>&1\n"
        "  if [ -d /firmware ]; then ls -A /firmware >/tmp/firmware.ls 2>&1;"
        " else rm -f /tmp/firmware.ls; fi\n"
        ")\n" +
        options.after + "\n";
    return script;
}

std::string Backend() { return Env("HW_BACKEND") == "sandbox" ? "" : Env("HW_BACKEND"); }

namespace {

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// Writes one directory per row for the runner (its format is described
// in tests/board/table-runner).
void WriteRows(const std::string &dir, const std::vector<TableRow> &rows)
{
    std::error_code ec;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        char num[32];
        std::snprintf(num, sizeof num, "/rows/%03zu", i);
        const std::string d = dir + num;
        fs::create_directories(d + "/root", ec);
        WriteFile(d + "/name", rows[i].name);
        WriteFile(d + "/script", BootScript(rows[i].args, rows[i].options));
        const std::vector<std::string> &flags = rows[i].options.flags;
        const auto mac = std::find(flags.begin(), flags.end(), "--mac");
        if (std::find(flags.begin(), flags.end(), "--no-eth0") != flags.end())
            WriteFile(d + "/noeth0", "");
        else
            WriteFile(d + "/mac", mac != flags.end() && mac + 1 != flags.end() ? mac[1]
                                                                              : "02:00:00:00:00:01");
        for (const auto &entry : fs::directory_iterator(rows[i].board->root(), ec))
            if (entry.path().filename() != "sbin")
                fs::copy(entry.path(), d + "/root/" + entry.path().filename().string(),
                         fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    }
}

} // namespace

RunResult BoardTable(const std::string &backend, std::vector<TableRow> &rows)
{
    char tmpl[] = "/tmp/hw-table.XXXXXX";
    if (mkdtemp(tmpl) == nullptr)
        return {-1, "", std::string("mkdtemp: ") + std::strerror(errno)};
    const std::string dir = tmpl;
    WriteRows(dir, rows);
    RunResult run = Exec({HW_BOARD_SCRIPT, "--board", backend, "--table", dir, "--out",
                          Env("HW_BOARD_OUT", HW_BOARD_OUT_DEFAULT), "--timeout", "1500"},
                         1700);
    // Each row: "==== row NAME", a gzip tar in base64, "==== row end". Lines
    // of anything else (a kernel message on the console) are left out.
    std::istringstream console(run.out);
    TableRow *row = nullptr;
    std::string tar;
    for (std::string line; std::getline(console, line);) {
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        if (line.rfind("==== row ", 0) == 0 && line != "==== row end") {
            const auto it = std::find_if(rows.begin(), rows.end(),
                                         [&](const TableRow &r) { return r.name == line.substr(9); });
            row = it == rows.end() ? nullptr : &*it;
            tar.clear();
        } else if (line == "==== row end" && row != nullptr) {
            const std::string root = row->board->root(), file = dir + "/" + row->name + ".tgz.b64";
            WriteFile(file, tar);
            std::error_code ec;
            for (const auto &entry : fs::directory_iterator(root, ec))
                if (entry.path().filename() != "sbin")
                    fs::remove_all(entry.path(), ec);
            row->shown = std::system(("base64 -d " + ShellQuote(file) + " | tar -xzf - -C " +
                                      ShellQuote(root)).c_str()) == 0;
            row = nullptr;
        } else if (row != nullptr &&
                   line.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                          "0123456789+/=") == std::string::npos) {
            tar += line + "\n";
        }
    }
    if (Env("HW_KEEP_ROOT").empty()) {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    return run;
}

void BoardTest::SetUp()
{
    static const std::string reason = [] {
        if (geteuid() != 0)
            return std::string("system tests need root: they run hw_start in the namespaces "
                               "of scripts/sandbox");
        const RunResult probe = Exec({"/usr/bin/unshare", "--mount", "--net", "--ipc", "--pid",
                                      "--fork", "--mount-proc", "/bin/true"},
                                     30);
        return probe.status == 0 ? std::string()
                                 : "system tests need mount/net/ipc/pid namespaces, and "
                                   "unshare failed: " + probe.err;
    }();
    if (!reason.empty())
        GTEST_SKIP() << reason;
}

std::string MakeRecord(std::uint32_t board_id, const std::string &board_name,
                       const std::string &mac, const std::string &p2p_id)
{
    std::string r(280, '\0');
    r.replace(0, 8, "\x67\x45\x23\x01\x98\xBA\xDC\xFE", 8);
    for (int i = 0; i < 4; ++i)
        r[32 + i] = static_cast<char>((board_id >> (8 * i)) & 0xFF);
    const std::string texts[] = {board_name, mac, p2p_id};
    for (int i = 0; i < 3; ++i)
        r.replace(36 + 32 * i, std::min<std::size_t>(texts[i].size(), 31), texts[i], 0, 31);
    return r;
}

std::vector<std::string> Lines(const std::string &text) { return Split(text, '\n'); }

std::string ShellQuote(const std::string &text)
{
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

} // namespace hwtest
