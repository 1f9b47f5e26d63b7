// A store opened under a lock and read, and the whole reads and writes at
// offsets that the stores and the MTD device use.
#pragma once

#include <cstddef>
#include <sys/types.h>

#include "base/unique_fd.h"
#include "devinfo/record.h"
#include "devinfo/record_error.h"

// Read-only under a shared lock (show, get, verify), or read-write under
// an exclusive one (set, create).
enum class Access { read, write };

// The flash store's lock file, beside the partition (/dev is devtmpfs on
// the board): a file only root may open.
inline constexpr char kFlashLock[] = "/dev/.mtdblock3.lock";

// Takes a store's lock: a flock on its lock file, kFlashLock for the flash
// or ".NAME.lock" beside the record file NAME in `dir` (never the record
// itself, which a save replaces), waiting up to 3 s for another process
// to let go (devinfo, or a board's save). Access::write: the lock file is
// made when missing, mode 0600, never through a link, and must be a
// regular file of the caller or of root (one that another user planted in
// a sticky directory is refused), so a user who cannot write the store
// cannot take the lock; an exclusive lock. Access::read: a shared lock
// when the lock file is there and the caller may open it; otherwise empty
// with *err untouched, and the caller reads unlocked (a record file is
// replaced whole by a rename, a flash read takes the copy of a torn
// record block). Empty with *err set when the lock cannot be had.
unique_fd lock_store(int dir, const char *name, Access access, StoreError *err);
unique_fd lock_flash(Access access, StoreError *err);

// Seeks to `offset` of `fd` and reads up to `size` bytes, until end of
// file. Returns the count, or -1 (errno set) on an error.
ssize_t read_at(int fd, void *buf, std::size_t size, off_t offset = 0);

// Seeks to `offset` of `fd` and writes `size` bytes, until the file or
// device takes no more. Returns the count, or -1 (errno set) on an error.
ssize_t write_at(int fd, const void *buf, std::size_t size, off_t offset = 0);

// Drops the page cache of the block device open on `fd`, so that its
// readers see what was written beside it (through the MTD device).
// 0, or the errno of the failure.
int drop_block_cache(int fd);

// Reads the first 280 bytes of the store open on `fd` into `rec`, which is
// zero-filled first, so bytes a short file lacks read as zero; *size gets
// how many bytes the store holds (a file's size, 280 for a partition).
// False with *err set when the read failed or the flash store gave less
// than a whole record.
bool read_store(int fd, const char *store, dev_info *rec, std::size_t *size, StoreError *err);
