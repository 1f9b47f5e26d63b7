// Saves of a record file that leave it holding the old record or the new
// one, whole, whatever happens, and the read-back that checks them. Every
// step works relative to the file's directory, opened once, so a name
// swapped elsewhere on the path during a save cannot redirect it.
#pragma once

#include <climits>
#include <cstddef>
#include <sys/stat.h>

#include "base/unique_fd.h"
#include "devinfo/record.h"
#include "devinfo/record_error.h"

// Where a path leads: the directory the file is in (opened O_PATH) and
// its name there, never a symbolic link; `found` with the file's status
// when it exists.
struct FilePlace {
    unique_fd dir;
    char name[NAME_MAX + 1] = {};
    bool found = false;
    struct stat st = {};
};

// The refusal of a symbolic link that find_place would not follow.
extern const char kLinkRefused[];

// Walks `path` a name at a time from "/" or the working directory, each
// directory opened from the one before. A symbolic link, on the way or
// last, is followed only where the kernel's protected_symlinks rule lets
// it: it belongs to the caller (effective user), or its directory is not
// both world-writable and sticky, or it belongs to that directory's owner.
// Anyone else's link there may have been planted: false with *err
// kLinkRefused. A last link leads to its target's directory and name, so a
// save replaces the target and the link stays. False with *err set when a
// directory on the way cannot be opened (ENOENT, ENOTDIR, ELOOP after 40
// links, EISDIR when the path names a directory).
bool find_place(const char *path, FilePlace *place, StoreError *err);

// Replaces the file `name` in the directory `dir` (a descriptor, O_PATH
// will do) by a new one holding the `size` bytes of `data`: a temporary
// file beside it, ".NAME.XXXXXX", created exclusively, gets the bytes, is
// fsync'ed and closed, is renamed over NAME, and the directory is
// fsync'ed; then NAME is read back. The new file gets the mode and owner
// of `old`, the file it replaces; with `old` null, mode 0600 and the
// caller's owner. A failure before the rename removes the temporary file.
// *err says what failed.
SaveResult save_file(int dir, const char *name, const struct stat *old, const void *data,
                     std::size_t size, StoreError *err);

// save_file of the file `path` leads to (find_place), unlocked: for a file
// only its one writer saves, such as a backup. A refused link or a
// directory that cannot be opened: unopened, *err set, nothing written.
SaveResult save_file_by_path(const char *path, const void *data, std::size_t size,
                             StoreError *err);
