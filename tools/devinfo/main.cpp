// devinfo: creates, shows, checks and saves the board's identity record,
// and prints the shared identity block of the running board. Built from
// the same store and board code as hw_start, so it reads and writes the
// record exactly as the board does.
//
// Standard output carries only results; every diagnostic goes to standard
// error. Exit status: 0 success, 1 a problem found or a refusal, 2 usage.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ax630c_qm/device.h"
#include "devinfo/dev_info.h"
#include "devinfo/store.h"
#include "tools/devinfo/fields.h"
#include "tools/devinfo/report.h"
#include "hw_start/shmem_info.h"
#include "log/log.h"
#include "base/unique_fd.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitProblem = 1;
constexpr int kExitUsage = 2;

// How long `set` and the readers wait for another devinfo to let go of the
// store before giving up.
constexpr std::uint32_t kLockWaitMs = 3000;
constexpr std::uint32_t kLockPollMs = 100;

// Positional arguments one command takes at most (set: a store and one
// assignment per field, with room to spare for a clear usage message).
constexpr int kMaxPositional = 8;

constexpr const char kUsage[] =
    "usage: devinfo COMMAND [ARGS]   (devinfo COMMAND --help for each)\n"
    "  show [--json] [STORE]         the record's fields, one key=value a line\n"
    "  get FIELD [STORE]             one field's value alone\n"
    "  verify [STORE]                report every problem of the record\n"
    "  create FILE --board-id ID --board-name NAME --mac MAC [--p2p-id ID] [--guid HEX]\n"
    "                                write a new record file\n"
    "  set [--no-apply] [--force] [STORE] FIELD=VALUE...\n"
    "                                change fields and save, as the board saves\n"
    "  shm [--json]                  the running board's shared identity block\n"
    "STORE is a record file, or any path containing /dev/mtd for the flash\n"
    "partition /dev/mtdblock3 (the default), as with hw_start's dev3_file=.\n"
    "Exit status: 0 success, 1 a problem found or a refusal, 2 usage error.\n";

constexpr const char kShowHelp[] =
    "usage: devinfo show [--json] [STORE]\n"
    "Prints the record's fields, one key=value a line: magic_ok (yes/no),\n"
    "guid (its 24 bytes as 48 hexadecimal digits), board_id (0x-hexadecimal),\n"
    "board_name, mac, p2p_id. Text fields show printable ASCII as it is, a\n"
    "backslash as \\\\ and any other byte as \\xHH; a field with no NUL shows\n"
    "all 32 bytes. --json prints the same as one JSON object (magic_ok a\n"
    "boolean). Exit status 1 when the store cannot be read.\n";

constexpr const char kGetHelp[] =
    "usage: devinfo get FIELD [STORE]\n"
    "Prints one field's value alone, as show prints it. FIELD is one of\n"
    "magic_ok guid board_id board_name mac p2p_id.\n";

constexpr const char kVerifyHelp[] =
    "usage: devinfo verify [STORE]\n"
    "Checks that the store holds a whole record with the magic, that every\n"
    "text field has its NUL within its 32 bytes, and that mac is six\n"
    "two-digit lower-case hexadecimal groups joined by colons naming an\n"
    "address that is not all-zero, broadcast or multicast. Prints each\n"
    "problem as \"field: what\" on standard output and exits 1 when there is\n"
    "one; prints nothing and exits 0 otherwise.\n";

constexpr const char kCreateHelp[] =
    "usage: devinfo create FILE --board-id ID --board-name NAME --mac MAC\n"
    "                      [--p2p-id ID] [--guid HEX]\n"
    "Writes a new 280-byte record file (replacing FILE if it exists): the\n"
    "magic, the GUID (48 hexadecimal digits, default zero), the board id\n"
    "(decimal or 0x-hexadecimal), the texts (at most 31 characters each) and\n"
    "zero reserved bytes. The MAC must pass verify. Touches no network and\n"
    "refuses a FILE that names the flash partition (use set for that).\n";

constexpr const char kSetHelp[] =
    "usage: devinfo set [--no-apply] [--force] [STORE] FIELD=VALUE...\n"
    "Reads the record, changes the named fields (guid board_id board_name mac\n"
    "p2p_id) and saves it as the board does: eth0 then carries the record's\n"
    "MAC and /config/mac holds it. Every other byte stays as it was read. An\n"
    "argument counts as FIELD=VALUE when it has a '=' with no '/' before it;\n"
    "write ./NAME for a store whose name has one.\n"
    "  --no-apply  write the store alone; eth0 and /config/mac stay as they are\n"
    "  --force     go on with a record whose magic is wrong or that is short,\n"
    "              and write the magic\n"
    "Refuses, leaving the store untouched: a value that does not fit its\n"
    "field (a MAC that verify refuses, a text over 31 characters, a bad board\n"
    "id or GUID), a record whose magic is wrong (unless --force), and a\n"
    "result that verify would refuse (name the broken field to replace it).\n"
    "Holds an exclusive flock on the store (on /dev/mtdblock3 for the flash\n"
    "store) while it reads and writes, and reads the record back after the\n"
    "save to check all 280 bytes.\n";

constexpr const char kShmHelp[] =
    "usage: devinfo shm [--json]\n"
    "Prints the shared identity block that hw_start wrote at boot (System V\n"
    "shared memory keyed by ftok(\"/mnt/mtd/app/hw_start\", 120)): magic,\n"
    "guid, run_mode, name and flag. Exit status 1 when there is no block or\n"
    "its magic or flag is wrong.\n";

void diag(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

void diag(const char *fmt, ...)
{
    std::fputs("devinfo: ", stderr);
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(stderr, fmt, ap);
    va_end(ap);
    std::fputc('\n', stderr);
}

int usage_error(const char *help, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

int usage_error(const char *help, const char *fmt, ...)
{
    std::fputs("devinfo: ", stderr);
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(stderr, fmt, ap);
    va_end(ap);
    std::fputc('\n', stderr);
    // The usage line alone; --help gives the rest.
    const char *end = std::strchr(help, '\n');
    std::fprintf(stderr, "%.*s\n", static_cast<int>(end != nullptr ? end - help : 0), help);
    return kExitUsage;
}

// --- command line -------------------------------------------------------------

// One option of a command: a flag (sets *flag) or one that takes a value
// (as "--name VALUE" or "--name=VALUE"; stores it in *value).
struct Option {
    const char *name;
    bool *flag;
    const char **value;
};

struct Positional {
    const char *args[kMaxPositional];
    int count = 0;
};

// Splits the arguments behind the command word into options and
// positionals; "--" ends the options. Returns -1 when they parsed, 0 when
// --help was printed, or kExitUsage after a message.
// One flat pass over the arguments: split up, the option rules would scatter.
// NOLINTNEXTLINE(readability-function-cognitive-complexity)
int parse_args(int argc, const char *const argv[], const Option *options, std::size_t option_count,
               const char *help, Positional *pos)
{
    bool options_done = false;
    for (int i = 0; i < argc; ++i) {
        const char *arg = argv[i];
        if (options_done || arg[0] != '-' || arg[1] == '\0') {
            if (pos->count == kMaxPositional)
                return usage_error(help, "too many arguments");
            pos->args[pos->count++] = arg;
            continue;
        }
        if (std::strcmp(arg, "--") == 0) {
            options_done = true;
            continue;
        }
        if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            std::fputs(help, stdout);
            return 0;
        }
        const char *eq = std::strchr(arg, '=');
        const std::size_t name_len =
            eq != nullptr ? static_cast<std::size_t>(eq - arg) : std::strlen(arg);
        const Option *opt = nullptr;
        for (std::size_t k = 0; k < option_count; ++k) {
            if (std::strlen(options[k].name) == name_len &&
                std::memcmp(options[k].name, arg, name_len) == 0)
                opt = &options[k];
        }
        if (opt == nullptr)
            return usage_error(help, "unknown option '%s'", arg);
        if (opt->flag != nullptr) {
            if (eq != nullptr)
                return usage_error(help, "%s takes no value", opt->name);
            *opt->flag = true;
        } else if (eq != nullptr) {
            *opt->value = eq + 1;
        } else if (i + 1 < argc) {
            *opt->value = argv[++i];
        } else {
            return usage_error(help, "%s needs a value", opt->name);
        }
    }
    return -1;
}

// A store path must be one that hw_start could be given: not empty (the
// board object ignores an empty one) and short enough for its 128-byte
// store path, which would cut a longer one.
bool store_path_ok(const char *path, const char *help, int *rc)
{
    const std::size_t len = std::strlen(path);
    if (len == 0 || len >= kDevFileSize) {
        *rc = usage_error(help, "STORE must be 1 to %zu characters", kDevFileSize - 1);
        return false;
    }
    return true;
}

// --- the store --------------------------------------------------------------------

// The file that stands for the store: the partition itself for the flash
// store, whatever path selected it.
const char *store_file(const char *store)
{
    return store_is_flash(store) ? kFlashDevice : store;
}

// Opens the store's file and takes a flock on it, shared for reading or
// exclusive for changing, waiting a while for another devinfo to finish.
// An empty unique_fd after a message when it cannot be opened or locked.
unique_fd lock_store(const char *store, bool exclusive)
{
    const char *file = store_file(store);
    unique_fd fd(::open(file, (exclusive ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    if (!fd.ok()) {
        diag("cannot open %s: %s", file, std::strerror(errno));
        return unique_fd();
    }
    const int op = (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (std::uint32_t waited = 0;; waited += kLockPollMs) {
        if (::flock(fd.get(), op) == 0)
            return fd;
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK || waited >= kLockWaitMs) {
            diag("cannot lock %s: %s", file,
                 errno == EWOULDBLOCK ? "another process holds it" : std::strerror(errno));
            return unique_fd();
        }
        msleep(kLockPollMs);
    }
}

// How many bytes the store holds: the size of a record file; for a
// partition (a block device) a whole record, since its read fails short;
// nothing for anything else (a directory reads as no bytes at all).
std::size_t stored_size(int fd)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return 0;
    if (S_ISBLK(st.st_mode))
        return kDevInfoSize;
    return S_ISREG(st.st_mode) ? static_cast<std::size_t>(st.st_size) : 0;
}

// Reads the record through the same store code as hw_start, into a
// zero-filled record (so bytes a short file lacks read as zero).
bool read_record(const char *store, dev_info *rec)
{
    std::memset(rec, 0, sizeof *rec);
    if (dev_store_read(store, rec) != 0) {
        diag("cannot read a record from %s", store_file(store));
        return false;
    }
    return true;
}

void note_store(const char *store)
{
    if (store_is_flash(store) && std::strcmp(store, kFlashDevice) != 0)
        diag("%s selects the flash store %s", store, kFlashDevice);
}

// Reads what a save left and compares all 280 bytes with what was saved;
// a record file must also hold exactly one record.
bool read_back(const char *store, const dev_info &saved)
{
    dev_info again;
    if (!read_record(store, &again))
        return false;
    if (!store_is_flash(store)) {
        struct stat st;
        if (::stat(store, &st) != 0 || st.st_size != static_cast<off_t>(kDevInfoSize)) {
            diag("read-back: %s does not hold exactly %zu bytes", store, kDevInfoSize);
            return false;
        }
    }
    if (std::memcmp(&again, &saved, sizeof saved) != 0) {
        diag("read-back: %s differs from the record just saved", store_file(store));
        return false;
    }
    return true;
}

// While it lives, standard output goes to standard error: the shell
// commands of a save print there, so standard output stays for results.
class StdoutToStderr {
public:
    StdoutToStderr()
    {
        std::fflush(stdout);
        saved_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        if (saved_ >= 0)
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~StdoutToStderr()
    {
        std::fflush(stdout);
        if (saved_ >= 0) {
            ::dup2(saved_, STDOUT_FILENO);
            ::close(saved_);
        }
    }
    StdoutToStderr(const StdoutToStderr &) = delete;
    StdoutToStderr &operator=(const StdoutToStderr &) = delete;

private:
    int saved_ = -1;
};

// Saves through the board object, as the board saves: the store, then
// eth0 and /config/mac from the record's MAC.
bool save_applied(const char *store, const dev_info &rec)
{
    CDevice *device = CreateDevice("");
    if (device == nullptr) {
        diag("cannot create the board object");
        return false;
    }
    device->SetDevFile(store);
    int rc = 0;
    {
        StdoutToStderr quiet;
        rc = device->SaveDevInfo(&rec);
    }
    delete device;
    return rc == 0;
}

// --- commands ------------------------------------------------------------------------

// Reads STORE (default the flash store) for the read-only commands, under
// a shared lock. `size` is how many bytes the store held.
bool read_for_report(const char *store, dev_info *rec, std::size_t *size)
{
    note_store(store);
    const unique_fd lock = lock_store(store, false);
    if (!lock.ok() || !read_record(store, rec))
        return false;
    *size = stored_size(lock.get());
    return true;
}

// The read-only commands' common part: the optional STORE after `first`
// positional arguments, checked and read. Returns -1 with the record read,
// or the exit status to give.
int report_store(const Positional &pos, int first, const char *help, dev_info *rec,
                 std::size_t *size, const char **store_out)
{
    if (pos.count > first + 1)
        return usage_error(help, "too many arguments");
    const char *store = pos.count == first + 1 ? pos.args[first] : kFlashDevice;
    int rc = 0;
    if (!store_path_ok(store, help, &rc))
        return rc;
    if (!read_for_report(store, rec, size))
        return kExitProblem;
    *store_out = store;
    return -1;
}

int cmd_show(int argc, char *argv[])
{
    bool json = false;
    const Option options[] = {{"--json", &json, nullptr}};
    Positional pos;
    int rc = parse_args(argc, argv, options, 1, kShowHelp, &pos);
    if (rc >= 0)
        return rc;
    dev_info rec;
    std::size_t size = 0;
    const char *store = nullptr;
    if ((rc = report_store(pos, 0, kShowHelp, &rec, &size, &store)) >= 0)
        return rc;
    if (size < kDevInfoSize)
        diag("%s holds %zu bytes, not %zu: the missing bytes show as zero", store_file(store),
             size, kDevInfoSize);
    char out[kReportSize];
    format_record(rec, json ? Format::json : Format::text, out, sizeof out);
    std::fputs(out, stdout);
    return kExitOk;
}

int cmd_get(int argc, char *argv[])
{
    Positional pos;
    int rc = parse_args(argc, argv, nullptr, 0, kGetHelp, &pos);
    if (rc >= 0)
        return rc;
    if (pos.count < 1 || pos.count > 2)
        return usage_error(kGetHelp, "give FIELD and at most a STORE");
    Field field;
    if (!find_field(pos.args[0], std::strlen(pos.args[0]), &field))
        return usage_error(kGetHelp, "unknown field '%s'", pos.args[0]);
    dev_info rec;
    std::size_t size = 0;
    const char *store = nullptr;
    if ((rc = report_store(pos, 1, kGetHelp, &rec, &size, &store)) >= 0)
        return rc;
    char value[kValueSize];
    format_field(rec, field, value);
    std::printf("%s\n", value);
    return kExitOk;
}

int cmd_verify(int argc, char *argv[])
{
    Positional pos;
    int rc = parse_args(argc, argv, nullptr, 0, kVerifyHelp, &pos);
    if (rc >= 0)
        return rc;
    dev_info rec;
    std::size_t size = 0;
    const char *store = nullptr;
    if ((rc = report_store(pos, 0, kVerifyHelp, &rec, &size, &store)) >= 0)
        return rc;
    Problems problems;
    check_record(rec, size, true, &problems);
    for (std::size_t i = 0; i < problems.count; ++i)
        std::printf("%s: %s\n", problems.items[i].label, problems.items[i].message);
    return problems.count == 0 ? kExitOk : kExitProblem;
}

int cmd_create(int argc, char *argv[])
{
    const char *values[5] = {};
    const Option options[] = {
        {"--guid", nullptr, &values[0]},       {"--board-id", nullptr, &values[1]},
        {"--board-name", nullptr, &values[2]}, {"--mac", nullptr, &values[3]},
        {"--p2p-id", nullptr, &values[4]},
    };
    constexpr Field kOrder[] = {Field::guid, Field::board_id, Field::board_name, Field::mac,
                                Field::p2p_id};
    Positional pos;
    int rc = parse_args(argc, argv, options, 5, kCreateHelp, &pos);
    if (rc >= 0)
        return rc;
    if (pos.count != 1)
        return usage_error(kCreateHelp, "give exactly one FILE");
    for (int i = 1; i <= 3; ++i) {
        if (values[i] == nullptr)
            return usage_error(kCreateHelp, "%s is required", options[i].name);
    }
    const char *file = pos.args[0];
    if (!store_path_ok(file, kCreateHelp, &rc))
        return rc;
    if (store_is_flash(file)) {
        diag("refusing to create %s: it selects the flash store; use set to change it", file);
        return kExitProblem;
    }

    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    rec.magic = kDevInfoMagic;
    for (int i = 0; i < 5; ++i) {
        char why[kMessageSize];
        if (values[i] != nullptr && !set_field(&rec, kOrder[i], values[i], why)) {
            diag("refusing to create %s: %s", file, why);
            return kExitProblem;
        }
    }
    errno = 0;
    if (dev_store_save(file, &rec) != 0) {
        diag("cannot write %s: %s", file, errno != 0 ? std::strerror(errno) : "failed");
        return kExitProblem;
    }
    return read_back(file, rec) ? kExitOk : kExitProblem;
}

// One FIELD=VALUE of `set`.
struct Assignment {
    Field field;
    const char *value;
};

// The positionals of `set`: at most one STORE, then assignments. An
// argument is an assignment when it has a '=' with no '/' before it.
int split_set_args(const Positional &pos, const char **store, Assignment *list, int *count)
{
    *count = 0;
    bool seen[6] = {};
    for (int i = 0; i < pos.count; ++i) {
        const char *arg = pos.args[i];
        const char *eq = std::strchr(arg, '=');
        const char *slash = std::strchr(arg, '/');
        if (eq == nullptr || (slash != nullptr && slash < eq)) {
            if (*store != nullptr || *count > 0)
                return usage_error(kSetHelp, "'%s' is not FIELD=VALUE", arg);
            *store = arg;
            continue;
        }
        Assignment a;
        if (!parse_assignment(arg, &a.field, &a.value))
            return usage_error(kSetHelp,
                               "'%s': FIELD is one of guid board_id board_name mac p2p_id", arg);
        const auto index = static_cast<std::size_t>(a.field);
        if (seen[index])
            return usage_error(kSetHelp, "%s given twice", field_name(a.field));
        seen[index] = true;
        list[(*count)++] = a;
    }
    if (*count == 0)
        return usage_error(kSetHelp, "nothing to set: give FIELD=VALUE");
    return -1;
}

// Applies the assignments to `rec`; false after a message when a value
// does not fit its field.
bool apply_assignments(dev_info *rec, const Assignment *list, int count, const char *store)
{
    for (int i = 0; i < count; ++i) {
        char why[kMessageSize];
        if (!set_field(rec, list[i].field, list[i].value, why)) {
            diag("refusing to change %s: %s", store_file(store), why);
            return false;
        }
    }
    return true;
}

bool has_problem(const Problems &problems, const char *label)
{
    for (std::size_t i = 0; i < problems.count; ++i) {
        if (std::strcmp(problems.items[i].label, label) == 0)
            return true;
    }
    return false;
}

void report_refusal(const char *store, const Problems &problems, const char *advice)
{
    diag("refusing to change %s:", store_file(store));
    for (std::size_t i = 0; i < problems.count; ++i)
        std::fprintf(stderr, "  %s: %s\n", problems.items[i].label, problems.items[i].message);
    std::fprintf(stderr, "  (%s)\n", advice);
}

int cmd_set(int argc, char *argv[])
{
    bool no_apply = false;
    bool force = false;
    const Option options[] = {{"--no-apply", &no_apply, nullptr}, {"--force", &force, nullptr}};
    Positional pos;
    int rc = parse_args(argc, argv, options, 2, kSetHelp, &pos);
    if (rc >= 0)
        return rc;
    const char *store = nullptr;
    Assignment list[kMaxPositional];
    int count = 0;
    rc = split_set_args(pos, &store, list, &count);
    if (rc >= 0)
        return rc;
    if (store == nullptr)
        store = kFlashDevice;
    if (!store_path_ok(store, kSetHelp, &rc))
        return rc;

    // Bad values are refused before the store is even opened.
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    if (!apply_assignments(&rec, list, count, store))
        return kExitProblem;

    note_store(store);
    const unique_fd lock = lock_store(store, true);
    if (!lock.ok() || !read_record(store, &rec))
        return kExitProblem;

    // A read that gave no record must not be written back as one.
    Problems problems;
    check_record(rec, stored_size(lock.get()), true, &problems);
    if (!force && (has_problem(problems, "size") || has_problem(problems, "magic"))) {
        report_refusal(store, problems, "--force writes over it");
        return kExitProblem;
    }
    if (force)
        rec.magic = kDevInfoMagic;
    apply_assignments(&rec, list, count, store); // cannot fail: checked above

    check_record(rec, kDevInfoSize, false, &problems);
    if (problems.count > 0) {
        report_refusal(store, problems, "name the field to replace it");
        return kExitProblem;
    }

    const bool saved = no_apply ? dev_store_save(store, &rec) == 0 : save_applied(store, rec);
    if (!saved) {
        diag("cannot save the record to %s", store_file(store));
        return kExitProblem;
    }
    return read_back(store, rec) ? kExitOk : kExitProblem;
}

int cmd_shm(int argc, char *argv[])
{
    bool json = false;
    const Option options[] = {{"--json", &json, nullptr}};
    Positional pos;
    const int rc = parse_args(argc, argv, options, 1, kShmHelp, &pos);
    if (rc >= 0)
        return rc;
    if (pos.count > 0)
        return usage_error(kShmHelp, "shm takes no arguments");

    shmem_info info;
    if (shmem_info_read(&info) != 0) {
        diag("no shared identity block for %s: %s (has hw_start run since the board "
             "started?)",
             SHMEM_INFO_KEY_PATH, std::strerror(errno));
        return kExitProblem;
    }
    char out[kReportSize];
    format_shm(info, json ? Format::json : Format::text, out, sizeof out);
    std::fputs(out, stdout);
    bool ok = true;
    if (info.magic != SHMEM_INFO_MAGIC) {
        diag("the block's magic is 0x%x, not 0x%x", static_cast<unsigned>(info.magic),
             SHMEM_INFO_MAGIC);
        ok = false;
    }
    if (info.flag != SHMEM_INFO_FLAG) {
        diag("the block's flag is 0x%x, not 0x%x", static_cast<unsigned>(info.flag),
             SHMEM_INFO_FLAG);
        ok = false;
    }
    return ok ? kExitOk : kExitProblem;
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
    return c->run(argc - 2, argv + 2);
}

} // namespace

int main(int argc, char *argv[])
{
    const int rc = run(argc, argv);
    // A result that did not reach its reader is no success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        diag("cannot write standard output: %s", std::strerror(errno));
        return rc == kExitOk ? kExitProblem : rc;
    }
    return rc;
}
