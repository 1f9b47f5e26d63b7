#include "devinfo/io_access.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "devinfo/io_path.h"
#include "log/log.h"

namespace {

// How long an operation waits for another process to let go of the store.
constexpr std::uint32_t kLockWaitMs = 3000;
constexpr std::uint32_t kLockPollMs = 100;

// Takes the flock, polling until kLockWaitMs passed. False with *err set.
bool take_lock(int fd, Access access, StoreError *err)
{
    const int op = (access == Access::write ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (std::uint32_t waited = 0;; waited += kLockPollMs) {
        if (::flock(fd, op) == 0)
            return true;
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK)
            return err->set("lock", errno);
        if (waited >= kLockWaitMs)
            return err->set("locked by another process", 0);
        msleep(kLockPollMs);
    }
}

// The lock file at `lock` (relative to `dir`), opened and locked.
unique_fd lock_at(int dir, const char *lock, Access access, StoreError *err)
{
    const bool write = access == Access::write;
    unique_fd fd(
        ::openat(dir, lock, (write ? O_RDWR | O_CREAT : O_RDONLY) | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat st;
    const uid_t me = ::geteuid();
    const bool ours = fd.ok() && ::fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) &&
                      (st.st_uid == me || st.st_uid == 0);
    if (!ours && !write)
        return unique_fd(); // read unlocked
    if (!ours) {
        if (fd.ok())
            err->set("its lock file belongs to another user", 0);
        else
            err->set("lock", errno);
        return unique_fd();
    }
    // A lock file that others may open is one they could lock.
    if (write && st.st_uid == me && (st.st_mode & 077) != 0)
        ::fchmod(fd.get(), 0600);
    return take_lock(fd.get(), access, err) ? std::move(fd) : unique_fd();
}

} // namespace

unique_fd lock_store(int dir, const char *name, Access access, StoreError *err)
{
    char lock[NAME_MAX + 1];
    const int len = std::snprintf(lock, sizeof lock, ".%s.lock", name);
    if (len < 0 || static_cast<std::size_t>(len) >= sizeof lock) {
        err->set("lock", ENAMETOOLONG);
        return unique_fd();
    }
    return lock_at(dir, lock, access, err);
}

unique_fd lock_flash(Access access, StoreError *err)
{
    return lock_at(AT_FDCWD, kFlashLock, access, err);
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
