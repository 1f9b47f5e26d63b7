// devinfo set: changes fields of the stored record and saves it so that
// the store holds the old record or the new one, whole; then, as the
// board's SaveDevInfo does, makes eth0 and /config/mac carry its MAC.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/text.h"
#include "devinfo/devinfo.h"
#include "net/mac.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/commands.h"
#include "tools/devinfo/fields.h"
#include "tools/devinfo/help.h"

namespace {

// One FIELD=VALUE of `set`.
struct Assignment {
    Field field;
    const char *value;
};

// One assignment per field that can be set: a sixth is a repeat.
constexpr int kMaxAssignments = 5;

// The arguments from argv[first] on: at most one STORE, then assignments.
// An argument is an assignment when it has a '=' with no '/' before it.
int split_set_args(int argc, char *argv[], int first, const char **store, Assignment *list,
                   int *count)
{
    *count = 0;
    bool seen[6] = {};
    for (int i = first; i < argc; ++i) {
        const char *arg = argv[i];
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
    report_problems(problems, advice);
}

// After a save that may have changed the store: the record it held, and
// the command that writes it back (from the --backup copy, if any).
void advise_restore(const char *store, const dev_info &old, const char *backup)
{
    char hex[2 * sizeof old + 1];
    TextWriter w(hex, sizeof hex);
    for (std::size_t i = 0; i < sizeof old; ++i)
        w.hex(reinterpret_cast<const unsigned char *>(&old)[i]);
    const char *file = store_file(store);
    diag("eth0 and /config/mac are left as they were; the record %s held was:\n%s", file, hex);
    if (backup != nullptr)
        diag("restore it with: dd if=%s of=%s conv=notrunc,fsync", backup, file);
    else
        diag("restore it with: echo %s | xxd -r -p | dd of=%s conv=notrunc,fsync", hex, file);
}

// The new record from the stored one `old` (of `size` bytes), or the exit
// status of a refusal. Returns -1 with *rec set.
int change_record(const char *store, const dev_info &old, std::size_t size, bool force,
                  const Assignment *list, int count, dev_info *rec)
{
    // A read that gave no record must not be written back as one.
    Problems problems;
    check_record(old, size, true, &problems);
    if (!force && (has_problem(problems, "size") || has_problem(problems, "magic"))) {
        report_refusal(store, problems, "--force writes over it");
        return kExitProblem;
    }
    *rec = old;
    if (force)
        rec->magic = kDevInfoMagic;
    apply_assignments(rec, list, count, store); // cannot fail: checked before
    check_record(*rec, kDevInfoSize, false, &problems);
    if (problems.count > 0) {
        report_refusal(store, problems, "name the field to replace it");
        return kExitProblem;
    }
    return -1;
}

// Saves `rec` over `old` in the store held by `held`, the backup first.
int save(const char *store, CRecordStore &held, const dev_info &old, const dev_info &rec,
         const char *backup, const FlashOptions &options)
{
    StoreError error;
    // A partition image is backed up whole, as it was read.
    const CImageFlash *image = held.image();
    const void *data = image != nullptr ? image->bytes() : static_cast<const void *>(&old);
    const std::size_t size = image != nullptr ? image->size() : sizeof old;
    if (backup != nullptr && save_file_by_path(backup, data, size, &error) != SaveResult::saved) {
        report_error(backup, error);
        diag("no backup in %s: %s left as it was", backup, store_file(store));
        return kExitProblem;
    }
    const SaveResult result = save_held(held, store, rec, options);
    if (result == SaveResult::kept || result == SaveResult::unopened)
        diag("%s still holds the record it held; eth0 and /config/mac are left as they were",
             store);
    if (result == SaveResult::unsure)
        advise_restore(store, old, backup);
    return result == SaveResult::saved ? kExitOk : kExitProblem;
}

} // namespace

SaveResult save_held(CRecordStore &held, const char *store, const dev_info &rec,
                     const FlashOptions &options)
{
    if (options.in_place && held.no_copy_block())
        diag("%s: no erase block for a copy: writing the record in place; this save is NOT "
             "protected against a power cut",
             kFlashDevice);
    const SaveResult result = options.in_place && held.no_copy_block()
                                  ? held.SaveInPlace(rec)
                                  : held.Save(rec, options.take_copy_block);
    if (result != SaveResult::saved)
        report_error(store_file(store), held.error());
    if (held.cache_kept() != 0)
        diag("%s: cannot drop its page cache: %s (readers of it may see the old bytes until "
             "the next start)",
             kFlashDevice, std::strerror(held.cache_kept()));
    if (held.refusal() == Refusal::no_copy_block)
        std::fputs("  (--in-place writes the record in place, unprotected against a power cut)\n",
                   stderr);
    if (held.refusal() == Refusal::foreign_copy)
        std::fputs("  (--take-copy-block writes the copy over it)\n", stderr);
    if (held.refusal() == Refusal::tail_too_large)
        std::fputs("  (the bytes behind the record in its erase block must fit in the copy's "
                   "block beside two records)\n",
                   stderr);
    if (result == SaveResult::unsure && held.is_flash() && !held.no_copy_block())
        diag("%s: the copy holds the new record; the next devinfo recover puts it in place",
             kFlashDevice);
    return result;
}

int cmd_set(int argc, char *argv[])
{
    bool no_apply = false;
    bool force = false;
    const char *backup = nullptr;
    FlashOptions flash = {false, false};
    const Option options[] = {{"--no-apply", &no_apply, nullptr},
                              {"--force", &force, nullptr},
                              {"--backup", nullptr, &backup},
                              {"--in-place", &flash.in_place, nullptr},
                              {"--take-copy-block", &flash.take_copy_block, nullptr}};
    int first = 0;
    int rc = parse_options(argc, argv, options, 5, kSetHelp, &first);
    if (rc >= 0)
        return rc;
    const char *store = nullptr;
    Assignment list[kMaxAssignments];
    int count = 0;
    if ((rc = split_set_args(argc, argv, first, &store, list, &count)) >= 0)
        return rc;
    if (store == nullptr)
        store = kFlashDevice;
    if (!store_path_ok(store, kSetHelp, &rc) ||
        (backup != nullptr && !store_path_ok(backup, kSetHelp, &rc)))
        return rc;
    if (backup != nullptr && store_is_flash(backup))
        return usage_error(kSetHelp, "--backup must name a file, not the flash store");

    // Bad values are refused before the store is even opened.
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    if (!apply_assignments(&rec, list, count, store))
        return kExitProblem;

    note_store(store);
    CRecordStore held;
    if (!held.Open(store) || !held.Read()) {
        report_error(store_file(store), held.error(), "nothing written");
        return kExitProblem;
    }
    if (held.missing()) {
        diag("cannot open %s: %s", store, std::strerror(ENOENT));
        return kExitProblem;
    }
    const StoreRecord &old = held.held();
    // Neither a record nor a partition image: saving a record over it
    // would lose what it holds.
    const bool odd = !held.is_flash() && old.image_erase == 0 && old.size != sizeof rec;
    if (odd && !force) {
        diag("refusing to change %s: it holds %zu bytes, neither a %zu-byte record nor a "
             "partition image (erase blocks, the record's copy in block 1); --force writes a "
             "record over it",
             store, old.size, sizeof rec);
        return kExitProblem;
    }
    if ((rc = change_record(store, old.rec, old.size, force, list, count, &rec)) >= 0)
        return rc;
    // Nothing to write: no erase cycle, no window for a power cut.
    // An image's copy must hold it too.
    const bool whole =
        old.image_erase == 0 || (old.copy_valid && old.image_action == Recovery::nothing);
    if (std::memcmp(&rec, &old.rec, sizeof rec) == 0 && old.size == sizeof rec && !old.from_copy &&
        whole) {
        diag("%s unchanged: it holds this record already", store_file(store));
        return kExitOk;
    }
    if (odd)
        diag("%s holds %zu bytes, neither a record nor a partition image: --force writes a "
             "%zu-byte record in their place",
             store, old.size, sizeof rec);
    if ((rc = save(store, held, old.rec, rec, backup, flash)) != kExitOk || no_apply)
        return rc;
    char mac[kTextFieldSize];
    read_text_field(rec.mac, mac);
    // The MAC step's shell commands print to standard error: standard
    // output is for results, and set has none.
    std::fflush(stdout);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    restore_mac_addr(mac);
    return kExitOk;
}
