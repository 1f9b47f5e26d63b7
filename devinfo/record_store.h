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

// What a read found.
struct StoreRecord {
    dev_info rec;     // zero-filled behind what a short file gave
    std::size_t size; // bytes the store holds (a file's size, 280 for the flash)
    bool from_copy;   // the flash's record block is torn: `rec` is the copy's
    CopyChoice copy;  // with from_copy
};

// Reads `store` under a shared lock, as hw_start takes it: a record file
// as it is; the flash through the copy choice when /dev/mtd3 exists
// (flash_read.h), else bytes 0-279 of /dev/mtdblock3. False after a
// message to `say`.
bool read_record(const char *store, StoreRecord *out, Say say);

// A store held for a save: locked exclusively, and what it holds read -
// a record file (one that does not exist yet holds nothing), or the whole
// record and copy blocks of the flash through /dev/mtd3, so a torn record
// block reads as its copy's record.
class CRecordStore {
public:
    explicit CRecordStore(Say say) : say_(say) {}

    // Locks and reads `store`. False after a message; nothing written. A
    // flash store needs /dev/mtd3 (its absence is said, too).
    bool Open(const char *store);

    // What the store holds (valid after Open).
    const StoreRecord &held() const { return held_; }
    // A record file that did not exist.
    bool missing() const { return missing_; }

    // Saves `rec`: the flash with the copy first (flash_save.h), a record
    // file replaced whole (file_save.h). Then drops /dev/mtdblock3's page
    // cache when the flash was written. Failures are said.
    SaveResult Save(const dev_info &rec, const FlashOptions &options = {false, false});
    // Replaces a record file by `size` bytes of `data` (a partition image).
    SaveResult SaveFile(const void *data, std::size_t size);

private:
    Say say_;
    const char *store_ = "";
    bool flash_ = false;
    bool missing_ = false;
    unique_fd lock_;
    struct stat file_ = {};
    CMtdFlash mtd_;
    FlashState st_;
    StoreRecord held_ = {};
};

// Puts the flash's record block back from its copy when a cut save left it
// torn (recover_flash), under the exclusive lock. True when a whole record
// is in place or there is nothing to recover (a record file, no
// /dev/mtd3); false after a message when there is no whole record or the
// repair failed.
bool recover_store(const char *store, Say say);
