// devinfo's command line: its entry point, the option parser every
// command uses, and the diagnostics on standard error.
#pragma once

#include <cstddef>

constexpr int kExitOk = 0;
constexpr int kExitProblem = 1;
constexpr int kExitUsage = 2;

// The whole program behind main: `argv` as main gets it. Returns the exit
// status; a result that did not reach standard output is no success. It
// keeps no state between calls, so tests may run it in-process.
int devinfo_main(int argc, char *argv[]);

// "devinfo: ", the printf-formatted message and a line end, on stderr.
void diag(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// What the record library says failed, as diag writes it:
// "STORE: STEP", then ": " and the system's error text when there is one,
// then "; " and `then` when given.
struct StoreError;
void report_error(const char *store, const StoreError &error, const char *then = nullptr);

// Says on standard error when `store` only selects the flash store.
void note_store(const char *store);

// Each problem on its own indented line of standard error, then
// "  (advice)" when `advice` is given.
struct Problems;
void report_problems(const Problems &problems, const char *advice);

// The message as diag writes it, then the usage line of `help` (its first
// line). Returns kExitUsage.
int usage_error(const char *help, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// One option of a command, named with its dashes ("--json"): a flag (sets
// *flag) or one that takes a value ("--name VALUE" or "--name=VALUE";
// stores it in *value).
struct Option {
    const char *name;
    bool *flag;
    const char **value;
};

// Parses the options of one command with getopt_long; argv[0] is the
// command word. Options may stand anywhere before "--" and are moved in
// front of the other arguments. Returns -1 with *first the index of the
// first other argument, 0 after printing `help` for --help or -h, or
// kExitUsage after a message.
int parse_options(int argc, char *argv[], const Option *options, std::size_t count,
                  const char *help, int *first);

// A store path must be one hw_start could be given: not empty and short
// enough for the board's 128-byte store path. False after a usage message
// (its status in *rc).
bool store_path_ok(const char *path, const char *help, int *rc);
