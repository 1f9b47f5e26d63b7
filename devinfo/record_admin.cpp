// What only devinfo does with the stores: reads for its reports, saves
// in place where the flash has no room for a copy, and the recovery at
// start. Apart from record_store.cpp so that hw_start links none of them.
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "devinfo/record_store.h"
#include "devinfo/store.h"
#include "devinfo/store_io.h"

bool read_record(const char *store, StoreRecord *out, StoreError *err)
{
    std::memset(out, 0, sizeof *out);
    const bool flash = store_is_flash(store);
    FilePlace place;
    if (!flash && !find_place(store, &place, err))
        return false;
    const unique_fd lock = flash ? lock_flash(Access::read, err)
                                 : lock_store(place.dir.get(), place.name, Access::read, err);
    if (err->step != nullptr)
        return false;
    const unique_fd fd(
        flash ? ::open(kFlashDevice, O_RDONLY | O_CLOEXEC)
              : ::openat(place.dir.get(), place.name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.ok())
        return err->set("open", errno);
    CMtdFlash mtd;
    if (store_is_flash(store) && mtd.Open(kFlashMtdDevice, false) &&
        read_copy_choice(mtd, &out->rec, &out->copy)) {
        out->from_copy = true;
        out->size = sizeof out->rec;
        return true;
    }
    return read_store(fd.get(), store, &out->rec, &out->size, err);
}

bool CRecordStore::Open(const char *store)
{
    store_ = store;
    flash_ = store_is_flash(store);
    if (!flash_)
        return hold_file(&file_, store);
    if (!hold_flash(&flash_hold_))
        return false;
    const Decision &d = flash_hold_.st.decision;
    held_.rec = flash_hold_.st.record();
    held_.size = sizeof held_.rec;
    held_.from_copy = d.action == Recovery::restore;
    held_.copy = {d.copy.sequence, d.erased};
    return true;
}

bool CRecordStore::Read()
{
    return flash_ || file_.missing ||
           read_store(file_.file.get(), store_, &held_.rec, &held_.size, &file_.err);
}

SaveResult CRecordStore::Save(const dev_info &rec, bool take_copy_block)
{
    if (!flash_)
        return SaveFile(&rec, sizeof rec);
    return save_flash(flash_hold_, rec, take_copy_block, &refusal_, &cache_kept_);
}

SaveResult CRecordStore::SaveFile(const void *data, std::size_t size)
{
    return save_to_file(file_, data, size);
}

SaveResult CRecordStore::SaveInPlace(const dev_info &rec)
{
    const SaveResult result = save_in_place(flash_hold_.mtd, flash_hold_.st, rec);
    cache_kept_ = drop_block_cache(flash_hold_.block.get());
    return result;
}

bool recover_store(const char *store, Recovered *out, StoreError *err)
{
    std::memset(out, 0, sizeof *out);
    out->action = Recovery::nothing;
    // A record file is replaced whole by every save: nothing to recover.
    if (!store_is_flash(store))
        return true;
    CMtdFlash mtd;
    if (!mtd.Open(kFlashMtdDevice))
        return CMtdFlash::NoDevice(errno) || err->set("open /dev/mtd3", errno);
    const unique_fd lock = lock_flash(Access::write, err);
    if (!lock.ok())
        return false;
    // For its page cache; a board without the block device has none.
    const unique_fd block(::open(kFlashDevice, O_RDONLY | O_CLOEXEC));
    FlashState st;
    if (!load_flash(mtd, &st)) {
        *err = st.err;
        return false;
    }
    out->action = st.decision.action;
    out->erased = st.decision.erased;
    out->sequence = st.decision.copy.sequence;
    if (!recover_flash(mtd, st)) {
        *err = st.err;
        return false;
    }
    if (out->action == Recovery::restore && block.ok())
        out->cache_kept = drop_block_cache(block.get());
    return true;
}
