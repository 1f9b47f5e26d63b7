// The two stores of the device information record as the board object
// uses them: the raw flash partition and a plain record file. Every
// operation opens, moves the record and closes again; nothing is cached.
// Results are 0 for success and -1 for failure; the reason is told only by
// debug lines.
#pragma once

#include "devinfo/dev_info.h"
#include "devinfo/io_path.h"

// Reads bytes 0-279 of the partition into `rec`. -1 when it cannot be
// opened or fewer than 280 bytes came; bytes that did come stay in `rec`.
// With /dev/mtd3, under a shared lock against a save: a record block that
// a cut save left erased or torn while its copy is whole reads as the
// copy's new record (one debug line says so); nothing is written.
int do_read_dev_mtd(dev_info *rec);

// Writes `rec` to bytes 0-279 of the partition. With /dev/mtd3 as
// devinfo saves (record_store.h): the copy first, then the record block,
// under the exclusive lock; -1 when that save failed or was refused.
// Without it, one write through /dev/mtdblock3 and fsync; -1 when it
// cannot be opened or the write moved other than 280 bytes.
int do_write_dev_mtd(const dev_info *rec);

// Reads at most 280 bytes of the file at `path` into `rec`. -1 only when
// the file cannot be opened: a short or failed read still gives 0, and the
// bytes not delivered keep what the caller put there.
int do_read_file(const char *path, dev_info *rec);

// Replaces the file at `path` by one holding the 280 bytes, whole, under
// the exclusive lock (a temporary file, fsync, rename, directory fsync; a
// new file gets mode 0600). -1 when it could not be saved
// ("open file ... failed" when it could not even be opened); the file
// then holds what it held.
int do_save_file(const char *path, const dev_info *rec);

// The selection rule over the two stores, for reading and for saving.
int dev_store_read(const char *path, dev_info *rec);
int dev_store_save(const char *path, const dev_info *rec);
