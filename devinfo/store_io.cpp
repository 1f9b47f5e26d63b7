#include "devinfo/store_io.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "devinfo/store.h"
#include "log/log.h"

namespace {

// How long an operation waits for another process to let go of the store.
constexpr std::uint32_t kLockWaitMs = 3000;
constexpr std::uint32_t kLockPollMs = 100;

// Takes the flock, polling until kLockWaitMs passed. False after a message.
bool take_lock(int fd, const char *file, Access access, std::uint32_t *waited, Say say)
{
    const int op = (access == Access::write ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (;; *waited += kLockPollMs) {
        if (::flock(fd, op) == 0)
            return true;
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK || *waited >= kLockWaitMs) {
            say_line(say, "cannot lock %s: %s", file,
                 errno == EWOULDBLOCK ? "another process holds it" : std::strerror(errno));
            return false;
        }
        msleep(kLockPollMs);
    }
}

// True while `path` names the file open on `fd`.
bool still_named(int fd, const char *path)
{
    struct stat open_st;
    struct stat named_st;
    return ::fstat(fd, &open_st) == 0 && ::stat(path, &named_st) == 0 &&
           open_st.st_dev == named_st.st_dev && open_st.st_ino == named_st.st_ino;
}

} // namespace

const char *store_file(const char *store)
{
    return store_is_flash(store) ? kFlashDevice : store;
}

unique_fd lock_store(const char *store, Access access, Say say, bool *missing)
{
    const char *file = store_file(store);
    // The flash is written through its MTD device: the block device is
    // opened read-only for the lock alone, since a read-write open engages
    // mtdblock's write cache.
    const bool rw = access == Access::write && !store_is_flash(store);
    const int flags = (rw ? O_RDWR : O_RDONLY) | O_CLOEXEC;
    for (std::uint32_t waited = 0;;) {
        unique_fd fd(::open(file, flags));
        if (!fd.ok() && errno == ENOENT && missing != nullptr) {
            *missing = true;
            return fd;
        }
        if (!fd.ok()) {
            say_line(say, "cannot open %s: %s", file, std::strerror(errno));
            return fd;
        }
        if (!take_lock(fd.get(), file, access, &waited, say))
            return unique_fd();
        if (store_is_flash(store) || still_named(fd.get(), file))
            return fd;
    }
}

ssize_t read_at(int fd, void *buf, std::size_t size, off_t offset)
{
    auto *p = static_cast<unsigned char *>(buf);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(fd, p + done, size - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

bool write_at(int fd, const void *buf, std::size_t size, off_t offset)
{
    const auto *p = static_cast<const unsigned char *>(buf);
    for (std::size_t done = 0; done < size;) {
        const ssize_t n = ::pwrite(fd, p + done, size - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool read_store(int fd, const char *store, dev_info *rec, std::size_t *size, Say say)
{
    std::memset(rec, 0, sizeof *rec);
    const ssize_t n = read_at(fd, rec, sizeof *rec);
    if (n < 0) {
        say_line(say, "cannot read a record from %s: %s", store_file(store), std::strerror(errno));
        return false;
    }
    const auto got = static_cast<std::size_t>(n);
    struct stat st;
    const bool file = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    *size = file ? static_cast<std::size_t>(st.st_size) : got;
    if (store_is_flash(store) && got < sizeof *rec) {
        say_line(say, "cannot read a record from %s: it gave %zu bytes", kFlashDevice, got);
        return false;
    }
    return true;
}
