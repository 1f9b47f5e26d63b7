// What only devinfo does with the stores: reads for its reports, saves
// in place where the flash has no room for a copy, and the recovery at
// start. Apart from record_store.cpp so that hw_start links none of them.
#include <cerrno>
#include <cstring>

#include "devinfo/record_store.h"
#include "devinfo/store.h"
#include "devinfo/store_io.h"

bool read_record(const char *store, StoreRecord *out, Say say)
{
    std::memset(out, 0, sizeof *out);
    const unique_fd fd = lock_store(store, Access::read, say);
    if (!fd.ok())
        return false;
    CMtdFlash mtd;
    if (store_is_flash(store) && mtd.Open(kFlashMtdDevice, false) &&
        read_copy_choice(mtd, &out->rec, &out->copy)) {
        out->from_copy = true;
        out->size = sizeof out->rec;
        return true;
    }
    return read_store(fd.get(), store, &out->rec, &out->size, say);
}

bool CRecordStore::Read()
{
    return flash_ || missing_ || read_store(lock_.get(), store_, &held_.rec, &held_.size, say_);
}

SaveResult CRecordStore::SaveInPlace(const dev_info &rec)
{
    const SaveResult result = save_in_place(mtd_, st_, rec);
    drop_block_cache(lock_.get(), say_);
    return result;
}

bool recover_store(const char *store, Say say)
{
    // A record file is replaced whole by every save: nothing to recover.
    CMtdFlash mtd;
    const bool opened = store_is_flash(store) && mtd.Open(kFlashMtdDevice);
    if (!store_is_flash(store) ||
        (!opened && (errno == ENOENT || errno == ENODEV || errno == ENXIO)))
        return true;
    if (!opened) {
        say_line(say, "cannot recover %s: cannot open %s: %s", kFlashDevice, kFlashMtdDevice,
                 std::strerror(errno));
        return false;
    }
    bool missing = false;
    const unique_fd lock = lock_store(store, Access::write, say, &missing);
    FlashState st;
    if ((!missing && !lock.ok()) || !load_flash(mtd, kFlashDevice, say, &st))
        return false;
    bool wrote = false;
    const bool whole = recover_flash(mtd, st, &wrote);
    if (wrote && lock.ok())
        drop_block_cache(lock.get(), say);
    return whole;
}
