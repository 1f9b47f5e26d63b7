// Saves of a record file that leave it holding the old record or the new
// one, whole, whatever happens, and the read-back that checks them.
#pragma once

#include <cstddef>
#include <sys/stat.h>

#include "devinfo/dev_info.h"
#include "devinfo/store_error.h"

enum class SaveResult {
    saved,    // the new record is stored, read back and checked
    unopened, // the store, or a temporary file beside it, could not be
              // opened: nothing was written
    kept,     // failed before the store was touched: it holds what it held
    unsure, // failed after the store was written: it may hold the new
            // record (flash: in the copy at least) or the old one
};

// Replaces the file at `path` (after symbolic links) by a new one holding
// the `size` bytes of `data`: a temporary file beside it, ".NAME.XXXXXX",
// gets the bytes, is fsync'ed and closed, is renamed over `path`, and the
// directory is fsync'ed; then `path` is read back. The new file gets the
// mode and owner of `old`, the file it replaces; with `old` null, mode 0644
// less the umask and the caller's owner. A failure before the rename
// removes the temporary file. *err says what failed.
SaveResult save_file(const char *path, const struct stat *old, const void *data, std::size_t size,
                     StoreError *err);
