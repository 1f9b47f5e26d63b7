// The flash store as devinfo saves and recovers it: the partition through
// its MTD character device (mtd_flash.h) with the copy protocol
// (flash_save.h), under the exclusive lock on /dev/mtdblock3.
#pragma once

#include "tools/devinfo/flash_save.h"
#include "tools/devinfo/mtd_flash.h"

// Opens the flash store's MTD device and loads the partition into `st`.
// False after a message saying nothing was written (one for a missing
// device too).
bool open_flash_store(CMtdFlash *mtd, FlashState *st);

// Drops the page cache of /dev/mtdblock3, open on `fd` (the lock), so no
// reader of the block device sees what the partition held before a write.
void drop_block_cache(int fd);

// Saves `rec` into the flash store loaded in `st` and drops the block
// device's cache when anything was written.
SaveResult save_flash_store(CMtdFlash &mtd, FlashState &st, int lock_fd, const dev_info &rec,
                            const FlashOptions &options);
