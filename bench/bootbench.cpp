// bootbench: the timing half of bench/run, run inside the board sandbox.
//
// One binary, chosen by the name it is started under:
//   gui               stand-in for the board's GUI: writes the monotonic
//                     clock (ns) to /var/run/gui.t (via a rename, so the
//                     file is whole when it appears) and exits
//   vrn_ddns_client   stand-in for the DDNS client: exits at once
//   bootbench latency RUNS WARMUP RESET NAME=PATH...
//                     boot latency: RUNS rounds (after WARMUP unrecorded
//                     ones); each round starts every PATH once, in an order
//                     that rotates from round to round, and takes the time
//                     from just before its fork/exec to the stamp the GUI
//                     stand-in writes. RESET (a program) runs before each
//                     start and puts the board back as it was at power-on.
//                     Prints one line per NAME: "NAME n median p10 p90"
//                     (microseconds), then one "raw NAME us us ..." line.
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

// Starts path with no arguments in a process group of its own, standard
// streams on /dev/null (as a board's init would give it a console).
pid_t start(const char *path)
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
    execl(path, path, static_cast<char *>(nullptr));
    _exit(127);
}

// Waits for every child (and adopted orphan) to end.
void reap_all()
{
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
}

bool run_reset(const char *reset)
{
    pid_t pid = start(reset);
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
std::int64_t one_start(const char *path, int watch_fd)
{
    drain(watch_fd);
    const std::int64_t t0 = now_ns();
    pid_t pid = start(path);
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

struct Arm {
    std::string name;
    std::string path;
    std::vector<double> us;
};

double quantile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    const double pos = q * static_cast<double>(v.size() - 1);
    const std::size_t lo = static_cast<std::size_t>(pos);
    const std::size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (pos - static_cast<double>(lo));
}

int latency(int argc, char *argv[])
{
    if (argc < 6)
        return 2;
    const int runs = std::atoi(argv[2]);
    const int warmup = std::atoi(argv[3]);
    const char *reset = argv[4];
    std::vector<Arm> arms;
    for (int i = 5; i < argc; ++i) {
        std::string_view a = argv[i];
        std::size_t eq = a.find('=');
        if (eq == std::string_view::npos)
            return 2;
        arms.push_back({std::string(a.substr(0, eq)), std::string(a.substr(eq + 1)), {}});
    }
    if (runs < 1 || warmup < 0 || arms.empty())
        return 2;

    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int watch_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch_fd < 0 || inotify_add_watch(watch_fd, kRunDir, IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
        std::perror("bootbench: inotify");
        return 1;
    }

    const std::size_t n = arms.size();
    for (int round = 0; round < warmup + runs; ++round) {
        for (std::size_t k = 0; k < n; ++k) {
            Arm &arm = arms[(static_cast<std::size_t>(round) + k) % n];
            if (!run_reset(reset)) {
                std::fprintf(stderr, "bootbench: %s failed\n", reset);
                return 1;
            }
            const std::int64_t ns = one_start(arm.path.c_str(), watch_fd);
            if (ns < 0) {
                std::fprintf(stderr, "bootbench: %s: no GUI start within %d ms\n",
                             arm.path.c_str(), kStartTimeoutMs);
                return 1;
            }
            if (round >= warmup)
                arm.us.push_back(static_cast<double>(ns) / 1000.0);
        }
    }
    for (const Arm &arm : arms)
        std::printf("%s %zu %.0f %.0f %.0f\n", arm.name.c_str(), arm.us.size(),
                    quantile(arm.us, 0.5), quantile(arm.us, 0.1), quantile(arm.us, 0.9));
    for (const Arm &arm : arms) {
        std::printf("raw %s", arm.name.c_str());
        for (double us : arm.us)
            std::printf(" %.0f", us);
        std::printf("\n");
    }
    return 0;
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
    if (argc >= 2 && std::string_view(argv[1]) == "latency")
        return latency(argc, argv);
    std::fprintf(stderr, "usage: bootbench latency RUNS WARMUP RESET NAME=PATH...\n"
                         "   (or started as gui / vrn_ddns_client: the stand-ins)\n");
    return 2;
}
