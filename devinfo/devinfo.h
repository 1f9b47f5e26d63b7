// The record library as its programs use it: hw_start, the board object
// and devinfo include this header alone. A store is a record file, or the
// flash partition /dev/mtdblock3 (selected by any path containing
// /dev/mtd), which holds the record's copy and is written through its MTD
// device /dev/mtd3. Beneath it, from the bottom: the record, its field
// rules and the library's results (record*); the copy block's format and
// the choice between record block and copy (copy_block); saves, recovery
// and reads over a small flash interface (flash*); the devices and files
// (io_*). A file includes headers of its own layer or a lower one only
// (scripts/layers checks it).
#pragma once

#include <cstddef>
#include <sys/stat.h>

#include "base/unique_fd.h"
#include "devinfo/flash_read.h"
#include "devinfo/flash_save.h"
#include "devinfo/io_file_save.h"
#include "devinfo/io_image.h"
#include "devinfo/io_mtd.h"
#include "devinfo/io_path.h"
#include "devinfo/record.h"
#include "devinfo/record_check.h"
#include "devinfo/record_error.h"

// --- devinfo_board.cpp: the board object's two stores --------------------------
// The raw flash partition and a plain record file, as the board object
// uses them. Every operation opens, moves the record and closes again;
// nothing is cached. Results are 0 for success and -1 for failure; the
// reason is told only by debug lines.

// Reads bytes 0-279 of the partition into `rec`. -1 when it cannot be
// opened or fewer than 280 bytes came; bytes that did come stay in `rec`.
// With /dev/mtd3, under a shared lock against a save: a record block that
// a cut save left erased or torn while its copy is whole reads as the
// copy's new record (one debug line says so); nothing is written.
int do_read_dev_mtd(dev_info *rec);

// Writes `rec` to bytes 0-279 of the partition. With /dev/mtd3 as
// devinfo saves (below): the copy first, then the record block,
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

// --- devinfo_hold.cpp: the stores held for a save ------------------------------
// The one way to read, save and repair them: devinfo's commands and the
// board object's saves both come here.

// What a store holds.
struct StoreRecord {
    dev_info rec;     // zero-filled behind what a short file gave
    std::size_t size; // bytes the store holds (a file's size, 280 for the
                      // flash and a partition image)
    bool from_copy;   // the flash's record block is torn: `rec` is the copy's
    CopyChoice copy;  // with from_copy
    // A partition image file (io_image.h): its erase size (else 0), what
    // recovery would do with it and whether its copy is whole.
    std::uint32_t image_erase;
    Recovery image_action;
    bool copy_valid;
};

// The flash store held for a save: its lock file locked exclusively,
// /dev/mtdblock3 open (for its page cache) and the partition read through
// /dev/mtd3 (so a torn record block reads as its copy's record).
struct FlashHold {
    unique_fd lock;
    unique_fd block;
    CMtdFlash mtd;
    FlashState st; // st.err: what failed
};

// Takes the lock and reads the partition. False with h->st.err set;
// nothing written.
bool hold_flash(FlashHold *h);

// Saves `rec` into the held partition (save_to_flash), then drops
// /dev/mtdblock3's page cache when the partition was written, so no
// reader of the block device sees what it held before; *cache_kept gets
// the errno when that failed, else 0.
SaveResult save_flash(FlashHold &h, const dev_info &rec, bool take_copy_block, Refusal *refusal,
                      int *cache_kept);

// A record file held for a save: its place found (find_place), its lock
// file locked exclusively, then the file opened; one that does not exist
// yet is held too (`missing`). The lock stays put while the file is
// replaced and is held until the hold ends, after the read-back.
struct FileHold {
    FilePlace place;
    unique_fd lock;
    unique_fd file;
    bool missing = false;
    struct stat st = {}; // of the file, unless missing
    StoreError err;      // what failed
};

// Finds, locks and opens. False with h->err set; nothing written.
bool hold_file(FileHold *h, const char *path);

// Replaces the held file by `size` bytes of `data` (save_file).
SaveResult save_to_file(FileHold &h, const void *data, std::size_t size);

// --- devinfo_admin.cpp: what devinfo alone does --------------------------------

// A partition image file read for a save, a repair or a report.
struct ImageHold {
    CImageFlash flash;
    FlashState st; // st.err: what failed
};

// Reads the file open on `fd` into *h and loads it as a flash (load_flash)
// when it is a partition image. False when it is none (st.err.step null)
// or could not be read (st.err set).
bool load_image(int fd, ImageHold *h);

// A store held for one of devinfo's saves: a record file or the flash,
// with what it holds.
class CRecordStore {
public:
    CRecordStore() = default;

    // Locks `store` (hold_file, hold_flash). False with error() set;
    // nothing written.
    bool Open(const char *store);
    // Reads what a record file holds (the flash was read by Open), through
    // the copy's choice when it is a partition image. False with error()
    // set.
    bool Read();

    // What the store holds (after Open, and Read for a file).
    const StoreRecord &held() const { return held_; }
    bool missing() const { return file_.missing; }
    bool is_flash() const { return flash_; }
    // The partition image that the file is, as Read found it; else null.
    const CImageFlash *image() const { return held_.image_erase != 0 ? &image_.flash : nullptr; }
    // What failed or was refused last; a flash save that wrote nothing
    // says why in refusal().
    const StoreError &error() const { return flash_ ? flash_hold_.st.err : file_.err; }
    Refusal refusal() const { return refusal_; }
    // The flash was saved, but /dev/mtdblock3 keeps what it read before:
    // errno, or 0.
    int cache_kept() const { return cache_kept_; }
    // The flash partition has no good erase block for a copy.
    bool no_copy_block() const { return flash_ && flash_hold_.st.copy.at == 0; }

    // Saves `rec`: on the flash the copy first (save_flash); a partition
    // image saved so in memory, then replaced whole; a record file
    // replaced whole. A refusal on an image is `kept`.
    SaveResult Save(const dev_info &rec, bool take_copy_block = false);
    // Replaces a record file by `size` bytes of `data` (a partition image).
    SaveResult SaveFile(const void *data, std::size_t size);
    // The flash without room for a copy: the record written in place,
    // unprotected against a power cut.
    SaveResult SaveInPlace(const dev_info &rec);

private:
    const char *store_ = "";
    bool flash_ = false;
    Refusal refusal_ = Refusal::none;
    int cache_kept_ = 0;
    FileHold file_;
    FlashHold flash_hold_;
    ImageHold image_;
    StoreRecord held_ = {};
};

// Reads `store` under a shared lock, as hw_start takes it: a record file
// as it is (a partition image as the flash); the flash through the copy
// choice when /dev/mtd3 exists (flash_read.h), else bytes 0-279 of
// /dev/mtdblock3. False with *err set.
bool read_record(const char *store, StoreRecord *out, StoreError *err);

// What recover_store found and did.
struct Recovered {
    Recovery action;        // nothing to do, restored, kept or none_whole
    bool erased;            // the record block was all 0xFF
    std::uint32_t sequence; // the copy's, when there is one
    int cache_kept;         // as CRecordStore::cache_kept
};

// Puts the flash's record block back from its copy when a cut save left it
// torn (recover_flash), under the exclusive lock; a partition image file
// the same way, then replaced whole. A record file or a board without
// /dev/mtd3 has nothing to recover (action nothing). False with
// *err set when the partition could not be read or the repair failed.
bool recover_store(const char *store, Recovered *out, StoreError *err);
