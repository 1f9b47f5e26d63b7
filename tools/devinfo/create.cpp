// devinfo create: a new record, from field options or from a record file,
// written as a record file, as a partition image for a flash programmer
// (record block and copy block), or onto the board's flash partition with
// both copies.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "devinfo/devinfo.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/commands.h"
#include "tools/devinfo/fields.h"
#include "tools/devinfo/help.h"

namespace {

constexpr int kFieldOptions = 5;
constexpr Field kOrder[kFieldOptions] = {Field::guid, Field::board_id, Field::board_name,
                                         Field::mac, Field::p2p_id};

// A new record from the field options' values (null where not given).
// -1 with *rec set, or the exit status after a message.
int record_from_fields(const char *file, const char *const (&values)[kFieldOptions], dev_info *rec)
{
    std::memset(rec, 0, sizeof *rec);
    rec->magic = kDevInfoMagic;
    for (int i = 0; i < kFieldOptions; ++i) {
        char why[kMessageSize];
        if (values[i] != nullptr && !set_field(rec, kOrder[i], values[i], why)) {
            diag("refusing to create %s: %s", file, why);
            return kExitProblem;
        }
    }
    return -1;
}

// The record `from` holds (read as show reads it), when it passes verify.
int record_from_file(const char *file, const char *from, dev_info *rec)
{
    StoreRecord r;
    StoreError error;
    if (!read_record(from, &r, &error)) {
        report_error(store_file(from), error);
        return kExitProblem;
    }
    *rec = r.rec;
    Problems problems;
    check_record(r.rec, r.size, true, &problems);
    if (problems.count == 0)
        return -1;
    diag("refusing to create %s from %s:", file, from);
    report_problems(problems, nullptr);
    return kExitProblem;
}

// Writes `rec` into `file` under the lock set takes: the `size` bytes of
// `image` (a partition image) when given, else the record; on the flash
// store the copy first, then the record.
int write_to(const char *file, const dev_info &rec, const void *image, std::size_t size,
             const FlashOptions &options)
{
    CRecordStore held;
    if (!held.Open(file)) {
        report_error(store_file(file), held.error(), "nothing written");
        return kExitProblem;
    }
    SaveResult result = SaveResult::kept;
    if (image == nullptr)
        result = save_held(held, file, rec, options);
    else if ((result = held.SaveFile(image, size)) != SaveResult::saved)
        report_error(file, held.error());
    if (result != SaveResult::saved && store_is_flash(file))
        diag("%s still holds what it held", kFlashDevice);
    return result == SaveResult::saved ? kExitOk : kExitProblem;
}

// A partition image: the record block (record, then 0xFF), the copy in
// erase block 1, 0xFF everywhere else.
int create_image(const char *file, const dev_info &rec, const char *part_text,
                 const char *erase_text)
{
    std::uint32_t part = 0;
    std::uint32_t erase = 0;
    if (!parse_board_id(part_text, &part) || !parse_board_id(erase_text, &erase))
        return usage_error(kCreateHelp, "--partition-size and --erase-size take a decimal or "
                                        "0x-hexadecimal number");
    auto *image = static_cast<std::uint8_t *>(part <= kMaxImageSize ? std::malloc(part) : nullptr);
    if (image == nullptr && part > 0 && part <= kMaxImageSize) {
        diag("cannot create %s: %s", file, std::strerror(ENOMEM));
        return kExitProblem;
    }
    if (image == nullptr ||
        !build_partition_image(image, part, erase, reinterpret_cast<const std::uint8_t *>(&rec))) {
        diag("refusing to create %s: a partition of %u bytes in erase blocks of %u: it must be "
             "2 or more whole erase blocks of at least %zu bytes, at most %u bytes in all",
             file, part, erase, kCopyFixedSize, kMaxImageSize);
        std::free(image);
        return kExitProblem;
    }
    const int rc = write_to(file, rec, image, part, {false, false});
    std::free(image);
    return rc;
}

// Where the record goes, once made.
int create_to(const char *file, const dev_info &rec, const char *part, const char *erase,
              const FlashOptions &options)
{
    if (part != nullptr)
        return create_image(file, rec, part, erase);
    note_store(file);
    return write_to(file, rec, nullptr, 0, options);
}

} // namespace

int cmd_create(int argc, char *argv[])
{
    const char *values[kFieldOptions] = {};
    const char *from = nullptr;
    const char *part = nullptr;
    const char *erase = nullptr;
    FlashOptions flash = {false, false};
    const Option options[] = {
        {"--guid", nullptr, &values[0]},
        {"--board-id", nullptr, &values[1]},
        {"--board-name", nullptr, &values[2]},
        {"--mac", nullptr, &values[3]},
        {"--p2p-id", nullptr, &values[4]},
        {"--from", nullptr, &from},
        {"--partition-size", nullptr, &part},
        {"--erase-size", nullptr, &erase},
        {"--in-place", &flash.in_place, nullptr},
        {"--take-copy-block", &flash.take_copy_block, nullptr},
    };
    int first = 0;
    int rc =
        parse_options(argc, argv, options, sizeof options / sizeof options[0], kCreateHelp, &first);
    if (rc >= 0)
        return rc;
    if (argc - first != 1)
        return usage_error(kCreateHelp, "give exactly one FILE");
    for (int i = 0; i < kFieldOptions; ++i) {
        if (from != nullptr && values[i] != nullptr)
            return usage_error(kCreateHelp, "--from takes the place of %s", options[i].name);
        if (from == nullptr && i >= 1 && i <= 3 && values[i] == nullptr)
            return usage_error(kCreateHelp, "%s is required", options[i].name);
    }
    if ((part == nullptr) != (erase == nullptr))
        return usage_error(kCreateHelp, "give both --partition-size and --erase-size, or neither");
    const char *file = argv[first];
    if (!store_path_ok(file, kCreateHelp, &rc) ||
        (from != nullptr && !store_path_ok(from, kCreateHelp, &rc)))
        return rc;
    if (part != nullptr && store_is_flash(file))
        return usage_error(kCreateHelp, "a partition image is a file, not the flash store");

    dev_info rec;
    rc = from != nullptr ? record_from_file(file, from, &rec)
                         : record_from_fields(file, values, &rec);
    return rc >= 0 ? rc : create_to(file, rec, part, erase, flash);
}
