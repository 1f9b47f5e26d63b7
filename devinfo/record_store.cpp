#include "devinfo/record_store.h"

#include <cerrno>

#include "devinfo/store.h"
#include "devinfo/store_io.h"

bool hold_flash(FlashHold *h)
{
    h->lock = lock_store(kFlashDevice, Access::write, &h->st.err);
    if (!h->lock.ok())
        return false;
    if (!h->mtd.Open(kFlashMtdDevice))
        return h->st.err.set(CMtdFlash::NoDevice(errno) ? "no MTD character device /dev/mtd3"
                                                        : "open /dev/mtd3",
                             errno);
    return load_flash(h->mtd, &h->st);
}

SaveResult save_flash(FlashHold &h, const dev_info &rec, bool take_copy_block, Refusal *refusal,
                      int *cache_kept)
{
    const SaveResult result = save_to_flash(h.mtd, h.st, rec, take_copy_block, refusal);
    *cache_kept = result != SaveResult::kept ? drop_block_cache(h.lock.get()) : 0;
    return result;
}

bool hold_file(FileHold *h, const char *path)
{
    h->lock = lock_store(path, Access::write, &h->err, &h->missing);
    if (h->missing)
        return true;
    return h->lock.ok() && (::fstat(h->lock.get(), &h->st) == 0 || h->err.set("read", errno));
}

SaveResult save_to_file(FileHold &h, const char *path, const void *data, std::size_t size)
{
    return save_file(path, h.missing ? nullptr : &h.st, data, size, &h.err);
}
