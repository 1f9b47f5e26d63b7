#include "devinfo/store.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "devinfo/mtd_flash.h"
#include "devinfo/record_store.h"
#include "devinfo/store_io.h"
#include "log/log.h"

namespace {

// The library's messages, as debug lines of the operation that hears them.
void say_read(const char *line)
{
    log_notice("do_read_dev_mtd", "%s\n", line);
}

void say_write(const char *line)
{
    log_notice("do_write_dev_mtd", "%s\n", line);
}

void say_save_file(const char *line)
{
    log_notice("do_save_file", "%s\n", line);
}

// Reads until `size` bytes came, end of file or an error. Returns the
// count, or -1 when the first read failed.
ssize_t read_full(int fd, void *buf, std::size_t size)
{
    auto *p = static_cast<unsigned char *>(buf);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, p + done, size - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return done > 0 ? static_cast<ssize_t>(done) : -1;
        if (n == 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

// Writes until `size` bytes went or an error. Returns the count, or -1
// when the first write failed.
ssize_t write_full(int fd, const void *buf, std::size_t size)
{
    const auto *p = static_cast<const unsigned char *>(buf);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, p + done, size - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return done > 0 ? static_cast<ssize_t>(done) : -1;
        done += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

} // namespace

bool store_is_flash(const char *path)
{
    return std::strstr(path, "/dev/mtd") != nullptr;
}

int do_read_dev_mtd(dev_info *rec)
{
    log_notice_line(__func__, "enter!");
    // A partition with its MTD device may hold the record's copy: a save
    // in progress is waited for (its lock), and a record block it left
    // torn reads as the copy's record. Without one, the plain read below.
    CMtdFlash mtd;
    unique_fd lock;
    if (mtd.Open(kFlashMtdDevice, false)) {
        lock = lock_store(kFlashDevice, Access::read, say_read);
        CopyChoice how;
        if (read_copy_choice(mtd, rec, &how)) {
            log_notice(__func__, "the record block is %s; read the copy saved at sequence %u\n",
                       how.erased ? "erased" : "torn", static_cast<unsigned>(how.sequence));
            return 0;
        }
    }
    unique_fd fd(::open(kFlashDevice, O_RDWR | O_CLOEXEC));
    if (!fd.ok()) {
        log_notice(__func__, "device %s open failed\n", kFlashDevice);
        return -1;
    }
    // 280 bytes, not the block layer's read-ahead: on SPI NOR that is 16 KiB
    // more over a slow bus at every start.
    ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_RANDOM);
    ::lseek(fd.get(), 0, SEEK_SET);
    const ssize_t n = read_full(fd.get(), rec, sizeof *rec);
    fd.reset();
    if (n != static_cast<ssize_t>(sizeof *rec)) {
        log_notice(__func__, "rd_size = %d err\n", static_cast<int>(n));
        return -1;
    }
    return 0;
}

int do_write_dev_mtd(const dev_info *rec)
{
    // A partition with its MTD device is saved as devinfo saves it: the
    // copy first, then the record block, so a power cut leaves one whole.
    if (::access(kFlashMtdDevice, F_OK) == 0) {
        CRecordStore store(say_write);
        return store.Open(kFlashDevice) && store.Save(*rec) == SaveResult::saved ? 0 : -1;
    }
    unique_fd fd(::open(kFlashDevice, O_RDWR | O_CLOEXEC));
    if (!fd.ok()) {
        log_notice(__func__, "device %s open failed\n", kFlashDevice);
        return -1;
    }
    ::lseek(fd.get(), 0, SEEK_SET);
    const ssize_t n = write_full(fd.get(), rec, sizeof *rec);
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
    read_full(fd.get(), rec, sizeof *rec);
    fd.reset();
    log_notice(__func__, "read device info  file %s success\n", path);
    return 0;
}

int do_save_file(const char *path, const dev_info *rec)
{
    CRecordStore store(say_save_file);
    const SaveResult result = store.Open(path) ? store.Save(*rec) : SaveResult::unopened;
    if (result == SaveResult::unopened)
        log_notice(__func__, "open file %s failed\n", path);
    if (result != SaveResult::saved)
        return -1;
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
