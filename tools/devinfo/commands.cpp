// The commands that read a store (show, get, verify), print the shared
// block and recover the flash. `set` and `create` have files of their own.
#include "tools/devinfo/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "devinfo/record_store.h"
#include "devinfo/store.h"
#include "devinfo/store_io.h"
#include "hw_start/shmem_info.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/fields.h"
#include "tools/devinfo/help.h"
#include "tools/devinfo/report.h"

namespace {

// The read-only commands' common part: at most one STORE (default the
// flash store) from argv[index], read read-only under a shared lock as
// hw_start reads it. Returns -1 with the record read, or the exit status
// to give.
int read_report_store(int argc, char *argv[], int index, const char *help, dev_info *rec,
                      std::size_t *size)
{
    if (argc > index + 1)
        return usage_error(help, "too many arguments");
    const char *store = index < argc ? argv[index] : kFlashDevice;
    int rc = 0;
    if (!store_path_ok(store, help, &rc))
        return rc;
    note_store(store);
    StoreRecord r;
    StoreError error;
    if (!read_record(store, &r, &error)) {
        report_error(store_file(store), error);
        return kExitProblem;
    }
    if (r.from_copy)
        diag("%s: the record block is %s; this is the copy saved at sequence %u, as hw_start "
             "reads it (devinfo recover repairs the record block)",
             kFlashDevice, r.copy.erased ? "erased" : "torn",
             static_cast<unsigned>(r.copy.sequence));
    *rec = r.rec;
    *size = r.size;
    return -1;
}

} // namespace

int cmd_show(int argc, char *argv[])
{
    bool json = false;
    const Option options[] = {{"--json", &json, nullptr}};
    int first = 0;
    int rc = parse_options(argc, argv, options, 1, kShowHelp, &first);
    dev_info rec;
    std::size_t size = 0;
    if (rc >= 0 || (rc = read_report_store(argc, argv, first, kShowHelp, &rec, &size)) >= 0)
        return rc;
    if (size < kDevInfoSize)
        diag("%s holds %zu bytes, not %zu: the missing bytes show as zero",
             store_file(argc > first ? argv[first] : kFlashDevice), size, kDevInfoSize);
    char out[kReportSize];
    format_record(rec, json ? Format::json : Format::text, out, sizeof out);
    std::fputs(out, stdout);
    return kExitOk;
}

int cmd_get(int argc, char *argv[])
{
    int first = 0;
    int rc = parse_options(argc, argv, nullptr, 0, kGetHelp, &first);
    if (rc >= 0)
        return rc;
    if (argc - first < 1 || argc - first > 2)
        return usage_error(kGetHelp, "give FIELD and at most a STORE");
    Field field;
    if (!find_field(argv[first], std::strlen(argv[first]), &field))
        return usage_error(kGetHelp, "unknown field '%s'", argv[first]);
    dev_info rec;
    std::size_t size = 0;
    if ((rc = read_report_store(argc, argv, first + 1, kGetHelp, &rec, &size)) >= 0)
        return rc;
    char value[kValueSize];
    format_field(rec, field, value);
    std::printf("%s\n", value);
    return kExitOk;
}

int cmd_verify(int argc, char *argv[])
{
    int first = 0;
    int rc = parse_options(argc, argv, nullptr, 0, kVerifyHelp, &first);
    dev_info rec;
    std::size_t size = 0;
    if (rc >= 0 || (rc = read_report_store(argc, argv, first, kVerifyHelp, &rec, &size)) >= 0)
        return rc;
    Problems problems;
    check_record(rec, size, true, &problems);
    for (std::size_t i = 0; i < problems.count; ++i)
        std::printf("%s: %s\n", problems.items[i].label, problems.items[i].message);
    return problems.count == 0 ? kExitOk : kExitProblem;
}

int cmd_shm(int argc, char *argv[])
{
    bool json = false;
    const Option options[] = {{"--json", &json, nullptr}};
    int first = 0;
    const int rc = parse_options(argc, argv, options, 1, kShmHelp, &first);
    if (rc >= 0)
        return rc;
    if (first < argc)
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

int cmd_recover(int argc, char *argv[])
{
    int first = 0;
    int rc = parse_options(argc, argv, nullptr, 0, kRecoverHelp, &first);
    if (rc >= 0)
        return rc;
    if (argc - first > 1)
        return usage_error(kRecoverHelp, "too many arguments");
    const char *store = first < argc ? argv[first] : kFlashDevice;
    if (!store_path_ok(store, kRecoverHelp, &rc))
        return rc;
    Recovered r;
    StoreError error;
    const bool done = recover_store(store, &r, &error);
    const char *name = kFlashDevice;
    switch (r.action) {
    case Recovery::restore:
        if (done)
            diag("%s: record was %s; restored the copy saved at sequence %u", name,
                 r.erased ? "erased" : "torn", r.sequence);
        else
            diag("%s: cannot restore the record from the copy saved at sequence %u:", name,
                 r.sequence);
        break;
    case Recovery::keep:
        diag("%s: the record differs from the copy saved at sequence %u; kept the record (the "
             "next save rewrites the copy)",
             name, r.sequence);
        break;
    case Recovery::none_whole:
        diag("%s: no whole record: the record has no magic and there is no valid copy; left as "
             "it is",
             name);
        return kExitProblem;
    case Recovery::nothing:
        break;
    }
    if (!done)
        report_error(name, error);
    if (r.cache_kept != 0)
        diag("%s: cannot drop its page cache: %s", name, std::strerror(r.cache_kept));
    return done ? kExitOk : kExitProblem;
}
