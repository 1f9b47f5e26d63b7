// Saves that leave a store holding the old record or the new one, whole,
// whatever happens, and the read-back that checks them. Every failure is
// told on standard error.
#pragma once

#include <sys/stat.h>

#include "devinfo/dev_info.h"

enum class SaveResult {
    saved,  // the new record is stored, read back and checked
    kept,   // failed before the store was touched: it holds what it held
    unsure, // failed after the store was written: it may hold the new
            // record, or (flash) the old one or a mix of the two
};

// Replaces the record file at `path` (after symbolic links) by a new one:
// a temporary file beside it, ".NAME.XXXXXX", gets the 280 bytes, is
// fsync'ed and closed, is renamed over `path`, and the directory is
// fsync'ed; then `path` is read back. The new file gets the mode and owner
// of `old`, the file it replaces; with `old` null, mode 0644 less the
// umask and the caller's owner. A failure before the rename removes the
// temporary file.
SaveResult save_file(const char *path, const struct stat *old, const dev_info &rec);

// Writes `rec` over bytes 0-279 of the partition open read-write on `fd`
// and fsyncs it; then drops the partition's page cache (BLKFLSBUF) and
// reads the bytes back from the device.
SaveResult save_flash(int fd, const dev_info &rec);
