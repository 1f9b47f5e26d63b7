// Which store a path names: the flash partition, whatever path selected
// it, or a record file; and the flash partition's device names.
#pragma once

// The flash store is always this partition, whatever else a store path
// names: the path only selects it.
inline constexpr char kFlashDevice[] = "/dev/mtdblock3";

// The character device of the flash store's partition (/dev/mtdblock3).
inline constexpr char kFlashMtdDevice[] = "/dev/mtd3";

// True when `path` selects the flash store: it contains "/dev/mtd"
// anywhere (case-sensitive); otherwise the path names a record file.
bool store_is_flash(const char *path);

// The file that stands for the store: the partition itself for the flash
// store, whatever path selected it.
const char *store_file(const char *store);
