// bootbench: the timing half of bench/run, run inside the board sandbox.
//
// One binary, chosen by the name it is started under:
//   gui               stand-in for the board's GUI: writes the monotonic
//                     clock (ns) to /var/run/gui.t (via a rename, so the
//                     file is whole when it appears) and exits
//   vrn_ddns_client   stand-in for the DDNS client: exits at once
//   bootbench latency RUNS WARMUP RESET NAME=COMMAND...
//                     boot latency: RUNS rounds (after WARMUP unrecorded
//                     ones); each round starts every COMMAND once, in an
//                     order that changes from round to round (see
//                     round_order), and takes the time from just before
//                     its fork/exec to the stamp the GUI stand-in writes.
//                     RESET (a program) runs before each start, given the
//                     NAME that starts next, and puts the board back as it
//                     was at power-on (as that kind of start wants it).
//   bootbench exits RUNS WARMUP NAME=COMMAND...
//                     start cost: the same rounds, each start timed from
//                     just before its fork/exec to its exit (no RESET).
// A COMMAND is a path and its arguments, separated by blanks. Both modes
// print one line per NAME: "NAME n median p10 p90" (microseconds), then
// one "raw NAME us us ..." line.
//
// Everything a start left running is killed (its process group) once the
// stamp is there, and reaped here: this process is a child subreaper, so
// background programs of a shell are reaped here too.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char kRunDir[] = "/var/run";
constexpr const char kStamp[] = "/var/run/gui.t";
constexpr const char kStampTmp[] = "/var/run/gui.t.tmp";
constexpr int kStartTimeoutMs = 20000;

std::int64_t now_ns()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int write_stamp()
{
    const std::int64_t t = now_ns();
    FILE *f = std::fopen(kStampTmp, "w");
    if (f == nullptr)
        return 1;
    std::fprintf(f, "%lld\n", static_cast<long long>(t));
    if (std::fclose(f) != 0)
        return 1;
    return std::rename(kStampTmp, kStamp) == 0 ? 0 : 1;
}

// The stamp's value, or -1 while there is none.
std::int64_t read_stamp()
{
    FILE *f = std::fopen(kStamp, "r");
    if (f == nullptr)
        return -1;
    long long t = -1;
    if (std::fscanf(f, "%lld", &t) != 1)
        t = -1;
    std::fclose(f);
    return t;
}

// Starts argv[0] with its arguments in a process group of its own,
// standard streams on /dev/null (as a board's init would give it a
// console).
pid_t start(char *const argv[])
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    setpgid(0, 0);
    int null_fd = open("/dev/null", O_RDWR);
    dup2(null_fd, 0);
    dup2(null_fd, 1);
    dup2(null_fd, 2);
    if (null_fd > 2)
        close(null_fd);
    execv(argv[0], argv);
    _exit(127);
}

// Waits for every child (and adopted orphan) to end.
void reap_all()
{
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
}

bool run_reset(const char *reset, const std::string &next)
{
    char *const argv[] = {const_cast<char *>(reset), const_cast<char *>(next.c_str()), nullptr};
    pid_t pid = start(argv);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return false;
    reap_all();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void drain(int fd)
{
    char buf[4096];
    while (read(fd, buf, sizeof buf) > 0) {
    }
}

// One start: nanoseconds from the fork to the GUI stand-in's stamp, or -1.
std::int64_t one_start(char *const argv[], int watch_fd)
{
    drain(watch_fd);
    const std::int64_t t0 = now_ns();
    pid_t pid = start(argv);
    if (pid < 0)
        return -1;
    std::int64_t t1 = -1;
    const std::int64_t deadline = t0 + std::int64_t{kStartTimeoutMs} * 1000000;
    while ((t1 = read_stamp()) < 0) {
        const std::int64_t left_ms = (deadline - now_ns()) / 1000000;
        if (left_ms <= 0)
            break;
        pollfd p = {watch_fd, POLLIN, 0};
        poll(&p, 1, static_cast<int>(std::min<std::int64_t>(left_ms, 100)));
        drain(watch_fd);
    }
    kill(-pid, SIGKILL);
    reap_all();
    return t1 < 0 ? -1 : t1 - t0;
}

// One kind of start: its NAME, its command split into words, its times.
struct Arm {
    std::string name;
    std::vector<std::string> words;
    std::vector<double> us;

    std::vector<char *> argv()
    {
        std::vector<char *> v;
        for (std::string &w : words)
            v.push_back(w.data());
        v.push_back(nullptr);
        return v;
    }
};

double quantile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    const double pos = q * static_cast<double>(v.size() - 1);
    const std::size_t lo = static_cast<std::size_t>(pos);
    const std::size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (pos - static_cast<double>(lo));
}

// NAME=COMMAND arguments from argv[first] on; false when one has no "=" or
// no command.
bool parse_arms(int argc, char *argv[], int first, std::vector<Arm> &arms)
{
    for (int i = first; i < argc; ++i) {
        const std::string_view a = argv[i];
        const std::size_t eq = a.find('=');
        if (eq == std::string_view::npos)
            return false;
        Arm arm{std::string(a.substr(0, eq)), {}, {}};
        std::string_view rest = a.substr(eq + 1);
        while (!rest.empty()) {
            const std::size_t blank = rest.find(' ');
            if (blank != 0)
                arm.words.emplace_back(rest.substr(0, blank));
            rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
        }
        if (arm.words.empty())
            return false;
        arms.push_back(std::move(arm));
    }
    return !arms.empty();
}

void report(const std::vector<Arm> &arms)
{
    for (const Arm &arm : arms)
        std::printf("%s %zu %.0f %.0f %.0f\n", arm.name.c_str(), arm.us.size(),
                    quantile(arm.us, 0.5), quantile(arm.us, 0.1), quantile(arm.us, 0.9));
    for (const Arm &arm : arms) {
        std::printf("raw %s", arm.name.c_str());
        for (double us : arm.us)
            std::printf(" %.0f", us);
        std::printf("\n");
    }
}

// One start timed to its exit: nanoseconds from the fork to the wait's
// return, or -1 when it failed or did not exit with status 0.
std::int64_t one_exit(char *const argv[])
{
    const std::int64_t t0 = now_ns();
    const pid_t pid = start(argv);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return -1;
    const std::int64_t t1 = now_ns();
    kill(-pid, SIGKILL);
    reap_all();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? t1 - t0 : -1;
}

// The kind that round r starts k-th, of n: the rows of a Williams design,
// one row a round. Row i is 0, 1, n-1, 2, n-2, ... plus i (mod n); for an
// odd n the next n rounds take those rows backwards. Over every n rounds
// (2n for an odd n) each kind starts first equally often and follows each
// other kind equally often, so what one start leaves behind in the kernel
// (freed pages, caches) favours no kind.
std::size_t round_order(std::size_t r, std::size_t k, std::size_t n)
{
    const std::size_t row = r % (n % 2 == 0 ? n : 2 * n);
    if (row >= n)
        k = n - 1 - k;
    const std::size_t first_row = k == 0 ? 0 : k % 2 == 1 ? (k + 1) / 2 : n - k / 2;
    return (first_row + row) % n;
}

// Both modes: RUNS rounds after WARMUP, every kind once a round (in
// round_order). RESET is null in the exits mode.
int rounds(int runs, int warmup, const char *reset, std::vector<Arm> &arms)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int watch_fd = -1;
    if (reset != nullptr) {
        watch_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (watch_fd < 0 ||
            inotify_add_watch(watch_fd, kRunDir, IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
            std::perror("bootbench: inotify");
            return 1;
        }
    }
    const std::size_t n = arms.size();
    for (int round = 0; round < warmup + runs; ++round) {
        for (std::size_t k = 0; k < n; ++k) {
            // The recorded rounds begin with the design's first row.
            const int row = round < warmup ? round : round - warmup;
            Arm &arm = arms[round_order(static_cast<std::size_t>(row), k, n)];
            if (reset != nullptr && !run_reset(reset, arm.name)) {
                std::fprintf(stderr, "bootbench: %s %s failed\n", reset, arm.name.c_str());
                return 1;
            }
            std::vector<char *> argv = arm.argv();
            const std::int64_t ns =
                reset != nullptr ? one_start(argv.data(), watch_fd) : one_exit(argv.data());
            if (ns < 0) {
                if (reset != nullptr)
                    std::fprintf(stderr, "bootbench: %s: no GUI start within %d ms\n", argv[0],
                                 kStartTimeoutMs);
                else
                    std::fprintf(stderr, "bootbench: %s: no exit with status 0\n", argv[0]);
                return 1;
            }
            if (round >= warmup)
                arm.us.push_back(static_cast<double>(ns) / 1000.0);
        }
    }
    report(arms);
    return 0;
}

// bootbench latency RUNS WARMUP RESET NAME=COMMAND... and
// bootbench exits RUNS WARMUP NAME=COMMAND...
int bench(int argc, char *argv[], bool to_gui)
{
    const int first = to_gui ? 5 : 4;
    if (argc <= first)
        return 2;
    const int runs = std::atoi(argv[2]);
    const int warmup = std::atoi(argv[3]);
    std::vector<Arm> arms;
    if (runs < 1 || warmup < 0 || !parse_arms(argc, argv, first, arms))
        return 2;
    return rounds(runs, warmup, to_gui ? argv[4] : nullptr, arms);
}

} // namespace

int main(int argc, char *argv[])
{
    const char *slash = std::strrchr(argv[0], '/');
    const std::string_view self = slash != nullptr ? slash + 1 : argv[0];
    if (self == "gui")
        return write_stamp();
    if (self == "vrn_ddns_client")
        return 0;
    if (argc >= 2 &&
        (std::string_view(argv[1]) == "latency" || std::string_view(argv[1]) == "exits")) {
        const int rc = bench(argc, argv, std::string_view(argv[1]) == "latency");
        if (rc != 2)
            return rc;
    }
    std::fprintf(stderr, "usage: bootbench latency RUNS WARMUP RESET NAME=COMMAND...\n"
                         "       bootbench exits RUNS WARMUP NAME=COMMAND...\n"
                         "   (or started as gui / vrn_ddns_client: the stand-ins)\n");
    return 2;
}
