#include "devinfo/record_store.h"

#include <cerrno>
#include <cstring>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "devinfo/store.h"
#include "devinfo/store_io.h"

namespace {

// A device node that is not there, or has no driver behind it.
bool no_device(int error)
{
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

// Drops the page cache of /dev/mtdblock3, open on `fd` (the lock), so no
// reader of the block device sees what the partition held before a write.
void drop_block_cache(int fd, Say say)
{
    if (::ioctl(fd, BLKFLSBUF, 0) != 0)
        say_line(say,
                 "%s: cannot drop its page cache: %s (readers of it may see the old bytes until "
                 "the next start)",
                 kFlashDevice, std::strerror(errno));
}

} // namespace

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

bool CRecordStore::Open(const char *store)
{
    store_ = store;
    flash_ = store_is_flash(store);
    lock_ = lock_store(store, Access::write, say_, flash_ ? nullptr : &missing_);
    if (missing_)
        return true;
    if (!lock_.ok())
        return false;
    if (!flash_) {
        if (::fstat(lock_.get(), &file_) != 0) {
            say_line(say_, "cannot read %s: %s", store, std::strerror(errno));
            return false;
        }
        return read_store(lock_.get(), store, &held_.rec, &held_.size, say_);
    }
    if (!mtd_.Open(kFlashMtdDevice)) {
        say_line(say_, "cannot save to %s: %s %s: %s; nothing written", kFlashDevice,
                 no_device(errno) ? "no MTD character device" : "cannot open", kFlashMtdDevice,
                 std::strerror(errno));
        return false;
    }
    if (!load_flash(mtd_, kFlashDevice, say_, &st_))
        return false;
    const Decision &d = st_.decision;
    held_.rec = st_.record();
    held_.size = sizeof held_.rec;
    held_.from_copy = d.action == Recovery::restore;
    held_.copy = {d.copy.sequence, d.erased};
    return true;
}

SaveResult CRecordStore::Save(const dev_info &rec, const FlashOptions &options)
{
    if (!flash_)
        return SaveFile(&rec, sizeof rec);
    const SaveResult result = save_to_flash(mtd_, st_, rec, options);
    if (result != SaveResult::kept)
        drop_block_cache(lock_.get(), say_);
    return result;
}

SaveResult CRecordStore::SaveFile(const void *data, std::size_t size)
{
    return save_file(store_, missing_ ? nullptr : &file_, data, size, say_);
}

bool recover_store(const char *store, Say say)
{
    // A record file is replaced whole by every save: nothing to recover.
    CMtdFlash mtd;
    if (!store_is_flash(store) || (!mtd.Open(kFlashMtdDevice) && no_device(errno)))
        return true;
    if (!mtd.ok()) {
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
