#include "devinfo/record_store.h"

#include <cerrno>
#include <cstring>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "devinfo/store.h"
#include "devinfo/store_io.h"

void drop_block_cache(int fd, Say say)
{
    if (::ioctl(fd, BLKFLSBUF, 0) != 0)
        say_line(say, "%s: cannot drop its page cache: %s", kFlashDevice, std::strerror(errno));
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
        if (::fstat(lock_.get(), &file_) == 0)
            return true;
        say_line(say_, "cannot read %s: %s", store, std::strerror(errno));
        return false;
    }
    if (!mtd_.Open(kFlashMtdDevice)) {
        const bool none = errno == ENOENT || errno == ENODEV || errno == ENXIO;
        say_line(say_, "cannot save to %s: %s %s: %s; nothing written", kFlashDevice,
                 none ? "no MTD character device" : "cannot open", kFlashMtdDevice,
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

SaveResult CRecordStore::Save(const dev_info &rec, bool take_copy_block)
{
    if (!flash_)
        return SaveFile(&rec, sizeof rec);
    const SaveResult result = save_to_flash(mtd_, st_, rec, take_copy_block, &refusal_);
    if (result != SaveResult::kept)
        drop_block_cache(lock_.get(), say_);
    return result;
}

SaveResult CRecordStore::SaveFile(const void *data, std::size_t size)
{
    return save_file(store_, missing_ ? nullptr : &file_, data, size, say_);
}
