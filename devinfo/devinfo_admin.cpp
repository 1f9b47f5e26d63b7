// What only devinfo does with the stores: reads for its reports, saves
// in place where the flash has no room for a copy, partition image files
// saved and repaired as the flash, and the recovery at start. Apart from
// devinfo_hold.cpp so that hw_start links none of them.
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "devinfo/devinfo.h"
#include "devinfo/io_access.h"

namespace {

// Passes on what failed: *err gets `why`; returns false.
bool pass_on(StoreError *err, const StoreError &why)
{
    *err = why;
    return false;
}

// What the partition loaded in `st` holds, as a store: the record a save
// starts from and how the copy stands.
void take_state(const FlashState &st, StoreRecord *out)
{
    const Decision &d = st.decision;
    out->rec = st.record();
    out->size = sizeof out->rec;
    out->from_copy = d.action == Recovery::restore;
    out->copy = {d.copy.sequence, d.erased};
    out->image_action = d.action;
    out->copy_valid = d.copy_valid;
}

// What the partition loaded in `st` needs, as recover_store says it.
void take_finding(const FlashState &st, Recovered *out)
{
    out->action = st.decision.action;
    out->erased = st.decision.erased;
    out->sequence = st.decision.copy.sequence;
}

// Reads the file open on `fd` of `size` bytes as a partition image into
// *out when it is one. False (*err set) when it could not be read.
bool read_image(int fd, std::size_t size, ImageHold *h, StoreRecord *out, StoreError *err)
{
    if (size <= kDevInfoSize || !load_image(fd, h))
        return h->st.err.step == nullptr || pass_on(err, h->st.err);
    take_state(h->st, out);
    out->image_erase = h->st.geo.erase_size;
    return true;
}

// recover_store of a file: a partition image repaired in memory, then
// saved whole; any other file left alone.
bool recover_image(const char *store, Recovered *out, StoreError *err)
{
    FileHold h;
    ImageHold image;
    StoreRecord r = {};
    if (!hold_file(&h, store))
        return pass_on(err, h.err);
    if (h.missing ||
        !read_image(h.file.get(), static_cast<std::size_t>(h.st.st_size), &image, &r, err))
        return h.missing;
    if (r.image_erase == 0)
        return true; // any other file: nothing to recover
    take_finding(image.st, out);
    if (out->action != Recovery::restore)
        return true;
    if (!recover_flash(image.flash, image.st))
        return pass_on(err, image.st.err);
    return save_to_file(h, image.flash.bytes(), image.flash.size()) == SaveResult::saved ||
           pass_on(err, h.err);
}

} // namespace

bool load_image(int fd, ImageHold *h)
{
    if (h->flash.Load(fd))
        return load_flash(h->flash, &h->st);
    return errno != 0 && h->st.err.set("read", errno);
}

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
    if (flash && mtd.Open(kFlashMtdDevice, false) &&
        read_copy_choice(mtd, &out->rec, &out->copy)) {
        out->from_copy = true;
        out->size = sizeof out->rec;
        return true;
    }
    ImageHold image;
    return read_store(fd.get(), store, &out->rec, &out->size, err) &&
           (flash || read_image(fd.get(), out->size, &image, out, err));
}

bool CRecordStore::Open(const char *store)
{
    store_ = store;
    flash_ = store_is_flash(store);
    if (!flash_)
        return hold_file(&file_, store);
    if (!hold_flash(&flash_hold_))
        return false;
    take_state(flash_hold_.st, &held_);
    return true;
}

bool CRecordStore::Read()
{
    const int fd = file_.file.get();
    return flash_ || file_.missing ||
           (read_store(fd, store_, &held_.rec, &held_.size, &file_.err) &&
            read_image(fd, held_.size, &image_, &held_, &file_.err));
}

SaveResult CRecordStore::Save(const dev_info &rec, bool take_copy_block)
{
    // An image is saved in memory as the flash is; the file is replaced
    // only when both blocks are whole.
    if (image() != nullptr && save_to_flash(image_.flash, image_.st, rec, take_copy_block,
                                            &refusal_) != SaveResult::saved) {
        file_.err = image_.st.err;
        return SaveResult::kept;
    }
    if (image() != nullptr)
        return SaveFile(image_.flash.bytes(), image_.flash.size());
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
    // A partition image is repaired as the flash, then replaced whole.
    if (!store_is_flash(store))
        return recover_image(store, out, err);
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
    take_finding(st, out);
    if (!recover_flash(mtd, st)) {
        *err = st.err;
        return false;
    }
    if (out->action == Recovery::restore && block.ok())
        out->cache_kept = drop_block_cache(block.get());
    return true;
}
