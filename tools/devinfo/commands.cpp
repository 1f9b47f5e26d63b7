// The commands that read a store (show, get, verify), print the shared
// block and recover the flash. `set` and `create` have files of their own.
#include "tools/devinfo/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "devinfo/devinfo.h"
#include "hw_start/shmem_info.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/fields.h"
#include "tools/devinfo/help.h"
#include "tools/devinfo/report.h"

namespace {

// The read-only commands' common part: at most one STORE (default the
// flash store) from argv[index], read read-only under a shared lock as
// hw_start reads it; a torn record block is said on standard error (for a
// partition image, unless `verify`, whose lines say it). Returns -1 with
// *r read, or the exit status to give.
int read_report_store(int argc, char *argv[], int index, const char *help, StoreRecord *r,
                      bool verify = false)
{
    if (argc > index + 1)
        return usage_error(help, "too many arguments");
    const char *store = index < argc ? argv[index] : kFlashDevice;
    int rc = 0;
    if (!store_path_ok(store, help, &rc))
        return rc;
    note_store(store);
    StoreError error;
    if (!read_record(store, r, &error)) {
        report_error(store_file(store), error);
        return kExitProblem;
    }
    if (r->from_copy && !(verify && r->image_erase != 0))
        diag("%s: the record block is %s; this is the copy saved at sequence %u, as %s reads it "
             "(devinfo recover repairs the record block)",
             store_file(store), r->copy.erased ? "erased" : "torn",
             static_cast<unsigned>(r->copy.sequence),
             r->image_erase != 0 ? "the board" : "hw_start");
    return -1;
}

// verify's lines on a partition image's two blocks: a torn record block,
// a copy that disagrees with it, a damaged copy. True when it printed one.
bool check_image(const StoreRecord &r)
{
    const unsigned sequence = r.copy.sequence;
    if (r.image_action == Recovery::restore)
        std::printf("record_block: %s; the copy saved at sequence %u holds the record "
                    "(devinfo recover repairs the block)\n",
                    r.copy.erased ? "erased" : "torn", sequence);
    else if (r.image_action == Recovery::keep)
        std::printf("copy: the copy saved at sequence %u holds another record than the record "
                    "block (the next set rewrites it)\n",
                    sequence);
    else if (!r.copy_valid)
        std::puts("copy: damaged (its CRC or sizes are wrong); the next set rewrites it");
    return r.image_action == Recovery::restore || r.image_action == Recovery::keep || !r.copy_valid;
}

} // namespace

int cmd_show(int argc, char *argv[])
{
    bool json = false;
    const Option options[] = {{"--json", &json, nullptr}};
    int first = 0;
    int rc = parse_options(argc, argv, options, 1, kShowHelp, &first);
    StoreRecord r;
    if (rc >= 0 || (rc = read_report_store(argc, argv, first, kShowHelp, &r)) >= 0)
        return rc;
    if (r.size < kDevInfoSize)
        diag("%s holds %zu bytes, not %zu: the missing bytes show as zero",
             store_file(argc > first ? argv[first] : kFlashDevice), r.size, kDevInfoSize);
    char out[kReportSize];
    format_record(r.rec, json ? Format::json : Format::text, out, sizeof out);
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
    StoreRecord r;
    if ((rc = read_report_store(argc, argv, first + 1, kGetHelp, &r)) >= 0)
        return rc;
    char value[kValueSize];
    format_field(r.rec, field, value);
    std::printf("%s\n", value);
    return kExitOk;
}

int cmd_verify(int argc, char *argv[])
{
    int first = 0;
    int rc = parse_options(argc, argv, nullptr, 0, kVerifyHelp, &first);
    StoreRecord r;
    if (rc >= 0 || (rc = read_report_store(argc, argv, first, kVerifyHelp, &r, true)) >= 0)
        return rc;
    Problems problems;
    check_record(r.rec, r.size, true, &problems);
    for (std::size_t i = 0; i < problems.count; ++i)
        std::printf("%s: %s\n", problems.items[i].label, problems.items[i].message);
    const bool image_problem = r.image_erase != 0 && check_image(r);
    return problems.count == 0 && !image_problem ? kExitOk : kExitProblem;
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
    const char *name = store_file(store);
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
