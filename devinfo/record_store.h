// The record's stores as every program uses them, the one way to read,
// save and repair them: devinfo's commands and the board object both come
// here. A store is a record file, or the flash partition /dev/mtdblock3
// (selected by any path containing /dev/mtd), which holds the record's
// copy and is written through its MTD device /dev/mtd3.
#pragma once

#include <cstddef>
#include <sys/stat.h>

#include "base/unique_fd.h"
#include "devinfo/dev_info.h"
#include "devinfo/file_save.h"
#include "devinfo/flash_read.h"
#include "devinfo/flash_save.h"
#include "devinfo/mtd_flash.h"
#include "devinfo/say.h"

// What a store holds.
struct StoreRecord {
    dev_info rec;     // zero-filled behind what a short file gave
    std::size_t size; // bytes the store holds (a file's size, 280 for the flash)
    bool from_copy;   // the flash's record block is torn: `rec` is the copy's
    CopyChoice copy;  // with from_copy
};

// A store held for a save: locked exclusively, and for the flash the whole
// record and copy blocks read through /dev/mtd3.
class CRecordStore {
public:
    explicit CRecordStore(Say say) : say_(say) {}

    // Locks `store`. A record file that does not exist yet is fine
    // (missing()); the flash needs /dev/mtd3 (its absence is said too) and
    // is read, so a torn record block reads as its copy's record. False
    // after a message; nothing written.
    bool Open(const char *store);
    // Reads what a record file holds (the flash was read by Open). False
    // after a message.
    bool Read();

    // What the store holds (after Open, and Read for a file).
    const StoreRecord &held() const { return held_; }
    bool missing() const { return missing_; }
    bool is_flash() const { return flash_; }
    // Why the last flash save wrote nothing.
    Refusal refusal() const { return refusal_; }
    // The flash partition has no good erase block for a copy.
    bool no_copy_block() const { return flash_ && st_.copy.at == 0; }

    // Saves `rec`: on the flash the copy first, then the record block
    // (flash_save.h; a foreign copy block is written over only with
    // `take_copy_block`), a record file replaced whole (file_save.h). Then
    // drops /dev/mtdblock3's page cache when the flash was written.
    // Failures are said.
    SaveResult Save(const dev_info &rec, bool take_copy_block = false);
    // Replaces a record file by `size` bytes of `data` (a partition image).
    SaveResult SaveFile(const void *data, std::size_t size);
    // The flash without room for a copy: the record written in place,
    // unprotected against a power cut (record_admin.cpp).
    SaveResult SaveInPlace(const dev_info &rec);

private:
    Say say_;
    const char *store_ = "";
    bool flash_ = false;
    bool missing_ = false;
    Refusal refusal_ = Refusal::none;
    unique_fd lock_;
    struct stat file_ = {};
    CMtdFlash mtd_;
    FlashState st_;
    StoreRecord held_ = {};
};

// Drops the page cache of /dev/mtdblock3, open on `fd`, so no reader of the
// block device sees what the partition held before a write; says when it
// cannot.
void drop_block_cache(int fd, Say say);

// --- record_admin.cpp: what devinfo alone does ----------------------------------

// Reads `store` under a shared lock, as hw_start takes it: a record file
// as it is; the flash through the copy choice when /dev/mtd3 exists
// (flash_read.h), else bytes 0-279 of /dev/mtdblock3. False after a
// message to `say`.
bool read_record(const char *store, StoreRecord *out, Say say);

// Puts the flash's record block back from its copy when a cut save left it
// torn (recover_flash), under the exclusive lock. True when a whole record
// is in place or there is nothing to recover (a record file, no
// /dev/mtd3); false after a message when there is no whole record or the
// repair failed.
bool recover_store(const char *store, Say say);
