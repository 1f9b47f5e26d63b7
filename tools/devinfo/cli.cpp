#include "tools/devinfo/cli.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <getopt.h>

#include "ax630c_qm/device.h"
#include "devinfo/devinfo.h"
#include "tools/devinfo/commands.h"
#include "tools/devinfo/help.h"

namespace {

// Options one command has at most (create has ten), plus --help.
constexpr std::size_t kMaxOptions = 10;

// getopt_long's value for options[i]: above every character, so -h stays
// apart.
constexpr int kOptionBase = 0x100;

void vdiag(const char *fmt, va_list ap)
{
    std::fputs("devinfo: ", stderr);
    std::vfprintf(stderr, fmt, ap);
    std::fputc('\n', stderr);
}

struct Command {
    const char *name;
    int (*run)(int argc, char *argv[]);
    const char *help;
};

constexpr Command kCommands[] = {
    {"show", cmd_show, kShowHelp},       {"get", cmd_get, kGetHelp},
    {"verify", cmd_verify, kVerifyHelp}, {"create", cmd_create, kCreateHelp},
    {"set", cmd_set, kSetHelp},          {"shm", cmd_shm, kShmHelp},
    {"recover", cmd_recover, kRecoverHelp},
};

const Command *find_command(const char *name)
{
    for (const Command &c : kCommands) {
        if (std::strcmp(c.name, name) == 0)
            return &c;
    }
    return nullptr;
}

int run(int argc, char *argv[])
{
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    const char *word = argv[1];
    if (std::strcmp(word, "--help") == 0 || std::strcmp(word, "-h") == 0 ||
        std::strcmp(word, "help") == 0) {
        const Command *c = argc > 2 ? find_command(argv[2]) : nullptr;
        std::fputs(c != nullptr ? c->help : kUsage, stdout);
        return kExitOk;
    }
    const Command *c = find_command(word);
    if (c == nullptr)
        return usage_error(kUsage, "unknown command '%s'", word);
    return c->run(argc - 1, argv + 1);
}

// getopt_long's table for `options` (at most kMaxOptions) and --help, in
// `out`; returns how many of `options` it holds.
int fill_longopts(const Option *options, std::size_t count, option (&out)[kMaxOptions + 2])
{
    int n = 0;
    for (; n < static_cast<int>(count) && n < static_cast<int>(kMaxOptions); ++n)
        out[n] = {options[n].name + 2,
                  options[n].flag != nullptr ? no_argument : required_argument, nullptr,
                  kOptionBase + n};
    out[n] = {"help", no_argument, nullptr, 'h'};
    return n;
}

// The usage error for what getopt_long returned as `c` ('?' or ':').
int option_error(int c, char *argv[], const Option *options, int n, const char *help)
{
    const int k = optopt - kOptionBase;
    if (k < 0 || k >= n)
        return usage_error(help, "unknown option '%s'", argv[optind - 1]);
    if (c == ':')
        return usage_error(help, "%s needs a value", options[k].name);
    return usage_error(help, "%s takes no value", options[k].name);
}

} // namespace

void diag(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vdiag(fmt, ap);
    va_end(ap);
}

void report_error(const char *store, const StoreError &error, const char *then)
{
    diag("%s: %s%s%s%s%s", store, error.step, error.error != 0 ? ": " : "",
         error.error != 0 ? std::strerror(error.error) : "", then != nullptr ? "; " : "",
         then != nullptr ? then : "");
}

void report_problems(const Problems &problems, const char *advice)
{
    for (std::size_t i = 0; i < problems.count; ++i)
        std::fprintf(stderr, "  %s: %s\n", problems.items[i].label, problems.items[i].message);
    if (advice != nullptr)
        std::fprintf(stderr, "  (%s)\n", advice);
}

void note_store(const char *store)
{
    if (store_is_flash(store) && std::strcmp(store, kFlashDevice) != 0)
        diag("%s selects the flash store %s", store, kFlashDevice);
}

int usage_error(const char *help, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vdiag(fmt, ap);
    va_end(ap);
    // The usage line alone; --help gives the rest.
    const char *end = std::strchr(help, '\n');
    std::fprintf(stderr, "%.*s\n", static_cast<int>(end != nullptr ? end - help : 0), help);
    return kExitUsage;
}

int parse_options(int argc, char *argv[], const Option *options, std::size_t count,
                  const char *help, int *first)
{
    option longopts[kMaxOptions + 2] = {};
    const int n = fill_longopts(options, count, longopts);
    // optind 0: a full restart of getopt, so every call parses afresh.
    optind = 0;
    opterr = 0;
    for (int c; (c = getopt_long(argc, argv, ":h", longopts, nullptr)) != -1;) {
        if (c == 'h') {
            std::fputs(help, stdout);
            return 0;
        }
        if (c == '?' || c == ':')
            return option_error(c, argv, options, n, help);
        const Option &opt = options[c - kOptionBase];
        if (opt.flag != nullptr)
            *opt.flag = true;
        else
            *opt.value = optarg;
    }
    *first = optind;
    return -1;
}

bool store_path_ok(const char *path, const char *help, int *rc)
{
    const std::size_t len = std::strlen(path);
    if (len == 0 || len >= kDevFileSize) {
        *rc = usage_error(help, "STORE must be 1 to %zu characters", kDevFileSize - 1);
        return false;
    }
    return true;
}

int devinfo_main(int argc, char *argv[])
{
    const int rc = run(argc, argv);
    // A result that did not reach its reader is no success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        diag("cannot write standard output: %s", std::strerror(errno));
        return rc == kExitOk ? kExitProblem : rc;
    }
    return rc;
}
