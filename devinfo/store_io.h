// A store opened under a lock and read, and the whole reads and writes at
// offsets that the stores and the MTD device use.
#pragma once

#include <cstddef>
#include <sys/types.h>

#include "base/unique_fd.h"
#include "devinfo/dev_info.h"
#include "devinfo/store_error.h"

// Read-only under a shared lock (show, get, verify), or read-write under
// an exclusive one (set, create).
enum class Access { read, write };

// The file that stands for the store: the partition itself for the flash
// store, whatever path selected it.
const char *store_file(const char *store);

// Opens the store's file and takes a flock on it, waiting up to 3 s for
// another process to let go (devinfo, or a board's save). A save replaces
// a record file by renaming a new one over it, so the lock counts only
// while the path still names the locked file; otherwise it starts again on
// the file that replaced it.
// The flash store is locked on /dev/mtdblock3 opened read-only (it is
// written through its MTD device). Empty with *err set when the store
// cannot be opened or locked; with `missing` given, a record file that
// does not exist gives empty with *missing set instead.
unique_fd lock_store(const char *store, Access access, StoreError *err, bool *missing = nullptr);

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
