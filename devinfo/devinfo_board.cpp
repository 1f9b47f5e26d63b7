#include "devinfo/devinfo.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "devinfo/io_access.h"
#include "log/log.h"

namespace {

// What the library says failed, as a debug line of the operation `func`.
void notice_error(const char *func, const char *store, const StoreError &e)
{
    log_notice(func, "%s not saved: %s%s%s\n", store, e.step, e.error != 0 ? ": " : "",
               e.error != 0 ? std::strerror(e.error) : "");
}

} // namespace

int do_read_dev_mtd(dev_info *rec)
{
    log_notice_line(__func__, "enter!");
    // A partition with its MTD device may hold the record's copy: a save
    // in progress is waited for (its lock), and a record block it left
    // torn reads as the copy's record.
    CMtdFlash mtd;
    const bool copy = mtd.Open(kFlashMtdDevice, false);
    StoreError unlocked; // a lock not had in 3 s: read all the same
    const unique_fd lock = copy ? lock_flash(Access::read, &unlocked) : unique_fd();
    unique_fd fd(::open(kFlashDevice, O_RDWR | O_CLOEXEC));
    ssize_t n = -1;
    if (!fd.ok()) {
        log_notice(__func__, "device %s open failed\n", kFlashDevice);
    } else {
        // 280 bytes, not the block layer's read-ahead: on SPI NOR that is
        // 16 KiB more over a slow bus at every start.
        ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_RANDOM);
        n = read_at(fd.get(), rec, sizeof *rec, 0);
        fd.reset();
        if (n != static_cast<ssize_t>(sizeof *rec))
            log_notice(__func__, "rd_size = %d err\n", static_cast<int>(n));
    }
    // The choice takes the bytes just read rather than reading them again.
    CopyChoice how;
    if (copy && read_copy_choice(mtd, rec, &how, reinterpret_cast<const std::uint8_t *>(rec),
                                 n > 0 ? static_cast<std::size_t>(n) : 0)) {
        log_notice(__func__, "record block %s: read its copy of sequence %u\n",
                   how.erased ? "erased" : "torn", static_cast<unsigned>(how.sequence));
        return 0;
    }
    return n == static_cast<ssize_t>(sizeof *rec) ? 0 : -1;
}

int do_write_dev_mtd(const dev_info *rec)
{
    // A partition with its MTD device is saved as devinfo saves it: the
    // copy first, then the record block, so a power cut leaves one whole.
    if (::access(kFlashMtdDevice, F_OK) == 0) {
        FlashHold hold;
        Refusal refusal;
        int cache_kept;
        if (hold_flash(&hold) &&
            save_flash(hold, *rec, false, &refusal, &cache_kept) == SaveResult::saved)
            return 0;
        notice_error(__func__, kFlashDevice, hold.st.err);
        return -1;
    }
    unique_fd fd(::open(kFlashDevice, O_RDWR | O_CLOEXEC));
    if (!fd.ok()) {
        log_notice(__func__, "device %s open failed\n", kFlashDevice);
        return -1;
    }
    const ssize_t n = write_at(fd.get(), rec, sizeof *rec, 0);
    ::fsync(fd.get());
    fd.reset();
    if (n != static_cast<ssize_t>(sizeof *rec)) {
        log_notice(__func__, "wr_size = %d err\n", static_cast<int>(n));
        return -1;
    }
    return 0;
}

int do_read_file(const char *path, dev_info *rec)
{
    unique_fd fd(::open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        log_notice(__func__, "open file %s failed\n", path);
        return -1;
    }
    // A short, empty or failed read is not a failure of the file store.
    read_at(fd.get(), rec, sizeof *rec, 0);
    fd.reset();
    log_notice(__func__, "read device info  file %s success\n", path);
    return 0;
}

int do_save_file(const char *path, const dev_info *rec)
{
    FileHold hold;
    const SaveResult result =
        hold_file(&hold, path) ? save_to_file(hold, rec, sizeof *rec) : SaveResult::unopened;
    if (result != SaveResult::saved) {
        notice_error(__func__, path, hold.err);
        if (result == SaveResult::unopened)
            log_notice(__func__, "open file %s failed\n", path);
        return -1;
    }
    log_notice(__func__, "write device info to  file %s success\n", path);
    return 0;
}

int dev_store_read(const char *path, dev_info *rec)
{
    return store_is_flash(path) ? do_read_dev_mtd(rec) : do_read_file(path, rec);
}

int dev_store_save(const char *path, const dev_info *rec)
{
    return store_is_flash(path) ? do_write_dev_mtd(rec) : do_save_file(path, rec);
}
