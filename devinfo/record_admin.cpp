// What only devinfo does with the stores: reads for its reports, saves
// in place where the flash has no room for a copy, and the recovery at
// start. Apart from record_store.cpp so that hw_start links none of them.
#include <cerrno>
#include <cstring>

#include "devinfo/record_store.h"
#include "devinfo/store.h"
#include "devinfo/store_io.h"

bool read_record(const char *store, StoreRecord *out, StoreError *err)
{
    std::memset(out, 0, sizeof *out);
    const unique_fd fd = lock_store(store, Access::read, err);
    if (!fd.ok())
        return false;
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
           read_store(file_.lock.get(), store_, &held_.rec, &held_.size, &file_.err);
}

SaveResult CRecordStore::Save(const dev_info &rec, bool take_copy_block)
{
    if (!flash_)
        return SaveFile(&rec, sizeof rec);
    return save_flash(flash_hold_, rec, take_copy_block, &refusal_, &cache_kept_);
}

SaveResult CRecordStore::SaveFile(const void *data, std::size_t size)
{
    return save_to_file(file_, store_, data, size);
}

SaveResult CRecordStore::SaveInPlace(const dev_info &rec)
{
    const SaveResult result = save_in_place(flash_hold_.mtd, flash_hold_.st, rec);
    cache_kept_ = drop_block_cache(flash_hold_.lock.get());
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
    bool missing = false;
    const unique_fd lock = lock_store(store, Access::write, err, &missing);
    FlashState st;
    if (!missing && !lock.ok())
        return false;
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
    if (out->action == Recovery::restore && lock.ok())
        out->cache_kept = drop_block_cache(lock.get());
    return true;
}
