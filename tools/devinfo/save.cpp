#include "tools/devinfo/save.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "devinfo/store.h"
#include "tools/devinfo/cli.h"
#include "tools/devinfo/store_io.h"

namespace {

// Room for a resolved path and the temporary name beside it.
constexpr std::size_t kPathSize = PATH_MAX + 16;

// Writes all of `size` bytes at `offset`; false with errno set otherwise.
bool write_all(int fd, const void *buf, std::size_t size, off_t offset)
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

// Compares what `fd` holds from offset 0 with `rec`; `whole_file` also
// wants nothing behind it. False after a message.
bool check_back(int fd, const char *file, const dev_info &rec, bool whole_file)
{
    unsigned char back[sizeof rec + 1];
    const ssize_t n = read_at_start(fd, back, whole_file ? sizeof back : sizeof rec);
    if (n < 0) {
        diag("read-back of %s failed: %s", file, std::strerror(errno));
        return false;
    }
    if (static_cast<std::size_t>(n) != sizeof rec || std::memcmp(back, &rec, sizeof rec) != 0) {
        diag("read-back: %s does not hold the %zu bytes just saved", file, sizeof rec);
        return false;
    }
    return true;
}

// Failure of `step` on `file`; the result `r` is returned.
SaveResult fail(SaveResult r, const char *step, const char *file)
{
    diag("cannot save the record to %s: %s: %s", file, step, std::strerror(errno));
    return r;
}

// Gives the temporary file open on `fd` the owner and mode the record
// file keeps. False with errno set.
bool take_over(int fd, const struct stat *old)
{
    if (old == nullptr) {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return ::fchmod(fd, 0644 & ~mask) == 0;
    }
    // Owner first: a change of owner clears the set-id bits.
    if ((old->st_uid != ::geteuid() || old->st_gid != ::getegid()) &&
        ::fchown(fd, old->st_uid, old->st_gid) != 0)
        return false;
    return ::fchmod(fd, old->st_mode & 07777) == 0;
}

// Fills the temporary file open on `fd`: owner, mode, the record, fsync.
// The name of the step that failed (errno set), or nullptr.
const char *fill_temp(int fd, const struct stat *old, const dev_info &rec)
{
    if (!take_over(fd, old))
        return "owner and mode";
    if (!write_all(fd, &rec, sizeof rec, 0))
        return "write";
    if (::fsync(fd) != 0)
        return "fsync";
    return nullptr;
}

// The directory part of `path` ("." when it has none) into `dir`; returns
// the name behind it.
const char *split_dir(const char *path, char (&dir)[kPathSize])
{
    const char *slash = std::strrchr(path, '/');
    if (slash == nullptr)
        std::snprintf(dir, sizeof dir, ".");
    else if (slash == path)
        std::snprintf(dir, sizeof dir, "/");
    else
        std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(slash - path), path);
    return slash != nullptr ? slash + 1 : path;
}

} // namespace

SaveResult save_file(const char *path, const struct stat *old, const dev_info &rec)
{
    char real[kPathSize];
    if (::realpath(path, real) == nullptr)
        std::snprintf(real, sizeof real, "%s", path);
    char dir[kPathSize];
    const char *name = split_dir(real, dir);
    char tmp[kPathSize];
    const int len = std::snprintf(tmp, sizeof tmp, "%s/.%s.XXXXXX", dir, name);
    if (len < 0 || static_cast<std::size_t>(len) >= sizeof tmp) {
        errno = ENAMETOOLONG;
        return fail(SaveResult::kept, "temporary file", path);
    }
    unique_fd fd(::mkostemp(tmp, O_CLOEXEC));
    if (!fd.ok())
        return fail(SaveResult::kept, "temporary file", path);
    const char *step = fill_temp(fd.get(), old, rec);
    if (step == nullptr && ::close(fd.release()) != 0)
        step = "close";
    if (step == nullptr && ::rename(tmp, real) != 0)
        step = "rename";
    if (step != nullptr) {
        const int error = errno;
        ::unlink(tmp);
        errno = error;
        return fail(SaveResult::kept, step, path);
    }
    const unique_fd dir_fd(::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir_fd.ok() || ::fsync(dir_fd.get()) != 0)
        return fail(SaveResult::unsure, "fsync of its directory", path);
    const unique_fd back(::open(real, O_RDONLY | O_CLOEXEC));
    if (!back.ok())
        return fail(SaveResult::unsure, "read-back", path);
    return check_back(back.get(), path, rec, true) ? SaveResult::saved : SaveResult::unsure;
}

SaveResult save_flash(int fd, const dev_info &rec)
{
    if (!write_all(fd, &rec, sizeof rec, 0))
        return fail(SaveResult::unsure, "write", kFlashDevice);
    if (::fsync(fd) != 0)
        return fail(SaveResult::unsure, "fsync", kFlashDevice);
    // The read-back must come from the flash, not from the page cache the
    // write just filled. A regular file (a test's stand-in) has no such
    // cache to drop.
    struct stat st;
    if (::ioctl(fd, BLKFLSBUF, 0) != 0 && ::fstat(fd, &st) == 0 && S_ISBLK(st.st_mode))
        return fail(SaveResult::unsure, "dropping the page cache for the read-back", kFlashDevice);
    return check_back(fd, kFlashDevice, rec, false) ? SaveResult::saved : SaveResult::unsure;
}
