#include "devinfo/store_io.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "devinfo/store.h"
#include "log/log.h"

namespace {

// How long an operation waits for another process to let go of the store.
constexpr std::uint32_t kLockWaitMs = 3000;
constexpr std::uint32_t kLockPollMs = 100;

// Takes the flock, polling until kLockWaitMs passed. False with *err set.
bool take_lock(int fd, Access access, std::uint32_t *waited, StoreError *err)
{
    const int op = (access == Access::write ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (;; *waited += kLockPollMs) {
        if (::flock(fd, op) == 0)
            return true;
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK)
            return err->set("lock", errno);
        if (*waited >= kLockWaitMs)
            return err->set("locked by another process", 0);
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

unique_fd lock_store(const char *store, Access access, StoreError *err, bool *missing)
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
            err->set("open", errno);
            return fd;
        }
        if (!take_lock(fd.get(), access, &waited, err))
            return unique_fd();
        if (store_is_flash(store) || still_named(fd.get(), file))
            return fd;
    }
}

// A whole read or write of `size` bytes from `offset`: `move` is read or
// write, looped over short counts. The count moved, or -1 (errno set).
template <typename Buf, typename Move>
ssize_t move_at(int fd, Buf *buf, std::size_t size, off_t offset, Move move)
{
    if (::lseek(fd, offset, SEEK_SET) < 0)
        return -1;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = move(fd, buf + done, size - done);
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

ssize_t read_at(int fd, void *buf, std::size_t size, off_t offset)
{
    return move_at(fd, static_cast<unsigned char *>(buf), size, offset, ::read);
}

ssize_t write_at(int fd, const void *buf, std::size_t size, off_t offset)
{
    return move_at(fd, static_cast<const unsigned char *>(buf), size, offset, ::write);
}

int drop_block_cache(int fd)
{
    return ::ioctl(fd, BLKFLSBUF, 0) == 0 ? 0 : errno;
}

bool read_store(int fd, const char *store, dev_info *rec, std::size_t *size, StoreError *err)
{
    std::memset(rec, 0, sizeof *rec);
    const ssize_t n = read_at(fd, rec, sizeof *rec);
    if (n < 0)
        return err->set("read", errno);
    const auto got = static_cast<std::size_t>(n);
    struct stat st;
    const bool file = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    *size = file ? static_cast<std::size_t>(st.st_size) : got;
    if (store_is_flash(store) && got < sizeof *rec)
        return err->set("it holds less than a record", 0);
    return true;
}
