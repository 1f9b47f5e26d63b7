// Board harness for system tests: see board.h.
#include "board.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#ifndef HW_START_BIN_DEFAULT
#error "HW_START_BIN_DEFAULT must name the hw_start binary of the build"
#endif
#ifndef HW_SANDBOX_SCRIPT
#error "HW_SANDBOX_SCRIPT must name scripts/sandbox"
#endif
#ifndef HW_TOOLS_DIR
#error "HW_TOOLS_DIR must name the directory of the built test tools"
#endif

namespace fs = std::filesystem;

namespace hwtest {
namespace {

std::string Env(const char *name, const std::string &fallback = "")
{
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

std::vector<std::string> Words(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string w; in >> w;)
        words.push_back(w);
    return words;
}

// Runs argv (argv[0] a path) in its own process group with stdin from
// /dev/null, collecting stdout and stderr. After timeout_s the whole group
// is killed and the status is -1.
RunResult Exec(const std::vector<std::string> &argv, int timeout_s)
{
    RunResult result;
    int out_pipe[2];
    int err_pipe[2];
    if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0) {
        result.err = std::string("board: pipe: ") + std::strerror(errno);
        return result;
    }
    std::vector<char *> cargv;
    for (const std::string &a : argv)
        cargv.push_back(const_cast<char *>(a.c_str()));
    cargv.push_back(nullptr);

    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        // If the test process dies (a ctest time-out), the sandbox dies too:
        // scripts/sandbox with --root execs unshare, which keeps this
        // signal and takes the namespaces down with it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
        int null_fd = open("/dev/null", O_RDONLY);
        dup2(null_fd, 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        execv(cargv[0], cargv.data());
        std::fprintf(stderr, "board: exec %s: %s\n", cargv[0], std::strerror(errno));
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    if (pid < 0) {
        close(out_pipe[0]);
        close(err_pipe[0]);
        result.err = std::string("board: fork: ") + std::strerror(errno);
        return result;
    }
    setpgid(pid, pid);

    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::seconds(timeout_s);
    bool killed = false;
    pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string *sinks[2] = {&result.out, &result.err};
    int open_count = 2;
    while (open_count > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            if (killed)
                break; // still open 5 s after the kill: give up reading
            killpg(pid, SIGKILL);
            killed = true;
            deadline = Clock::now() + std::chrono::seconds(5);
            continue;
        }
        int n = poll(fds, 2, static_cast<int>(left.count()));
        if (n < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0)
                continue;
            char buf[4096];
            ssize_t got = read(fds[i].fd, buf, sizeof buf);
            if (got > 0) {
                sinks[i]->append(buf, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
        }
    }
    for (pollfd &p : fds)
        if (p.fd >= 0)
            close(p.fd);

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (killed) {
        result.status = -1;
        result.err += "\nboard: killed after " + std::to_string(timeout_s) + " s\n";
    } else if (WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    } else {
        result.status = 128 + WTERMSIG(status);
    }
    return result;
}

bool HasMountsUnder(const std::string &dir)
{
    std::ifstream in("/proc/self/mountinfo");
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string id, parent, devno, root, mount_point;
        fields >> id >> parent >> devno >> root >> mount_point;
        if (mount_point == dir || mount_point.rfind(dir + "/", 0) == 0)
            return true;
    }
    return false;
}

std::string Num(double value)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", value);
    return buf;
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
    for (const auto &entry : fs::directory_iterator(Env("HW_TOOLS_DIR", HW_TOOLS_DIR), ec)) {
        if (!entry.is_regular_file() || access(entry.path().c_str(), X_OK) != 0)
            continue;
        fs::copy_file(entry.path(), root_ + "/sbin/" + entry.path().filename().string(),
                      fs::copy_options::overwrite_existing, ec);
    }
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
    if (HasMountsUnder(root_)) {
        std::fprintf(stderr, "board: %s has mounts; not deleted\n", root_.c_str());
        return;
    }
    std::error_code ec;
    fs::remove_all(root_, ec);
}

std::string Board::SkipReason()
{
    static const std::string reason = [] {
        if (geteuid() != 0)
            return std::string("system tests need root: they run hw_start in the namespaces "
                               "of scripts/sandbox");
        RunResult probe = Exec({"/usr/bin/unshare", "--mount", "--net", "--ipc", "--pid",
                                "--fork", "--mount-proc", "/bin/true"},
                               30);
        if (probe.status != 0)
            return "system tests need mount/net/ipc/pid namespaces, and unshare failed: " +
                   probe.err;
        return std::string();
    }();
    return reason;
}

std::string Board::Host(const std::string &path) const
{
    return root_ + (path.empty() || path[0] != '/' ? "/" : "") + path;
}

void Board::Put(const std::string &path, const std::string &bytes, mode_t mode)
{
    std::string host = Host(path);
    std::error_code ec;
    fs::create_directories(fs::path(host).parent_path(), ec);
    fs::remove(host, ec); // never write through a link the sandbox made
    std::ofstream out(host, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
        ADD_FAILURE() << "board: cannot write " << host;
    chmod(host.c_str(), mode);
}

void Board::PutRecord(const std::string &bytes) { Put("/dev/mtdblock3", bytes); }

void Board::MakeDir(const std::string &path)
{
    std::error_code ec;
    fs::create_directories(Host(path), ec);
    if (ec)
        ADD_FAILURE() << "board: cannot make " << Host(path) << ": " << ec.message();
}

void Board::Remove(const std::string &path)
{
    std::error_code ec;
    fs::remove_all(Host(path), ec);
}

std::string Board::Read(const std::string &path) const
{
    std::ifstream in(Host(path), std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

bool Board::Exists(const std::string &path) const
{
    struct stat st;
    return lstat(Host(path).c_str(), &st) == 0;
}

std::vector<std::string> Board::ShellLog() const { return SplitNul(Read("/var/log/sh.log")); }

std::vector<std::string> Board::ProgramArgs(const std::string &name) const
{
    return SplitNul(Read("/var/run/" + name + ".args"));
}

std::vector<std::string> Board::Command(const std::vector<std::string> &flags,
                                        const std::string &script) const
{
    std::vector<std::string> argv = {HW_SANDBOX_SCRIPT, "--root", root_, "--bin",
                                     Env("HW_START_BIN", HW_START_BIN_DEFAULT)};
    std::string runner = Env("HW_START_RUNNER");
    if (!runner.empty()) {
        argv.push_back("--runner");
        argv.push_back(runner);
    }
    for (const std::string &f : Words(Env("HW_SANDBOX_FLAGS")))
        argv.push_back(f);
    argv.insert(argv.end(), flags.begin(), flags.end());
    argv.insert(argv.end(), {"--", "/usr/bin/dash", "-c", script});
    return argv;
}

RunResult Board::Run(const std::string &script, const RunOptions &options)
{
    return Exec(Command(options.flags, script), options.timeout_s);
}

RunResult Board::Boot(const std::vector<std::string> &args, const BootOptions &options)
{
    std::string hw = "hw";
    for (const std::string &a : args)
        hw += " " + ShellQuote(a);
    int polls = static_cast<int>(options.wait_s * 10 + 0.5);

    std::string s;
    // A zombie has ended too: look at the state field of /proc/PID/stat.
    s += "hw_alive() {\n"
         "  { read -r hw_stat </proc/\"$HW_PID\"/stat; } 2>/dev/null || return 1\n"
         "  hw_stat=${hw_stat##*) }\n"
         "  [ \"${hw_stat%% *}\" != Z ]\n"
         "}\n";
    s += options.before + "\n";
    s += hw + " >/tmp/hw.out 2>/tmp/hw.err &\n";
    s += "HW_PID=$!\n"
         "echo \"$HW_PID\" >/tmp/hw.pid\n"
         "hw_n=0; hw_met=no\n";
    s += "while [ $hw_n -lt " + std::to_string(polls) + " ]; do\n";
    s += "  if {\n" + options.until + "\n  }; then hw_met=yes; break; fi\n";
    s += "  sleep 0.1; hw_n=$((hw_n + 1))\n"
         "done\n"
         "echo \"$hw_met\" >/tmp/hw.waited\n";
    if (options.settle_s > 0)
        s += "sleep " + Num(options.settle_s) + "\n";
    s += "if hw_alive; then echo yes >/tmp/hw.alive; else\n"
         "  echo no >/tmp/hw.alive; wait \"$HW_PID\"; echo $? >/tmp/hw.status\n"
         "fi\n";
    // The dump uses the host's tools whatever the board's are.
    s += "(\n"
         "  PATH=/usr/bin:/usr/sbin:/bin:/sbin\n"
         "  cat /sys/class/net/eth0/address >/tmp/eth0.mac 2>/dev/null || rm -f /tmp/eth0.mac\n"
         "  ip -4 route show table main >/tmp/routes 2>&1\n"
         "  $HW_RUNNER /sbin/shm_dump /tmp/shm.bin >/tmp/shm.info 2>&1\n"
         "  if [ -d /firmware ]; then ls -A /firmware >/tmp/firmware.ls 2>&1;"
         " else rm -f /tmp/firmware.ls; fi\n"
         ")\n";
    s += options.after + "\n";
    return Exec(Command(options.flags, s), options.timeout_s);
}

void BoardTest::SetUp()
{
    std::string reason = Board::SkipReason();
    if (!reason.empty())
        GTEST_SKIP() << reason;
}

std::string MakeRecord(std::uint32_t board_id, const std::string &board_name,
                       const std::string &mac, const std::string &p2p_id)
{
    std::string r(280, '\0');
    const unsigned char magic[8] = {0x67, 0x45, 0x23, 0x01, 0x98, 0xBA, 0xDC, 0xFE};
    for (int i = 0; i < 8; ++i)
        r[i] = static_cast<char>(magic[i]);
    for (int i = 0; i < 4; ++i)
        r[32 + i] = static_cast<char>((board_id >> (8 * i)) & 0xFF);
    auto text = [&r](std::size_t offset, const std::string &t) {
        r.replace(offset, std::min<std::size_t>(t.size(), 31), t.substr(0, 31));
    };
    text(36, board_name);
    text(68, mac);
    text(100, p2p_id);
    return r;
}

std::vector<std::string> SplitNul(const std::string &bytes)
{
    std::vector<std::string> items;
    std::size_t start = 0;
    while (start < bytes.size()) {
        std::size_t end = bytes.find('\0', start);
        if (end == std::string::npos)
            end = bytes.size();
        items.push_back(bytes.substr(start, end - start));
        start = end + 1;
    }
    return items;
}

std::vector<std::string> Lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::string ShellQuote(const std::string &text)
{
    std::string out = "'";
    for (char c : text) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

} // namespace hwtest
