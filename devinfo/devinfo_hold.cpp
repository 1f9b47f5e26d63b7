#include "devinfo/devinfo.h"

#include <cerrno>
#include <fcntl.h>

#include "devinfo/io_access.h"

bool hold_flash(FlashHold *h)
{
    h->lock = lock_flash(Access::write, &h->st.err);
    if (!h->lock.ok())
        return false;
    // Read-only: a read-write open engages mtdblock's write cache.
    h->block.reset(::open(kFlashDevice, O_RDONLY | O_CLOEXEC));
    if (!h->block.ok())
        return h->st.err.set("open", errno);
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
    *cache_kept = result != SaveResult::kept ? drop_block_cache(h.block.get()) : 0;
    return result;
}

bool hold_file(FileHold *h, const char *path)
{
    if (!find_place(path, &h->place, &h->err))
        return false;
    h->lock = lock_store(h->place.dir.get(), h->place.name, Access::write, &h->err);
    if (!h->lock.ok())
        return false;
    // Opened under the lock, so it is the record no other save replaces
    // now; read-write, as a save needs the right to write it.
    h->file.reset(::openat(h->place.dir.get(), h->place.name, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    h->missing = !h->file.ok() && errno == ENOENT;
    return h->missing || (h->file.ok() && ::fstat(h->file.get(), &h->st) == 0) ||
           h->err.set("open", errno);
}

SaveResult save_to_file(FileHold &h, const void *data, std::size_t size)
{
    return save_file(h.place.dir.get(), h.place.name, h.missing ? nullptr : &h.st, data, size,
                     &h.err);
}
