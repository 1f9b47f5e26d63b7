#include "devinfo/file_save.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "devinfo/store_io.h"

namespace {

// Room for a resolved path and the temporary name beside it.
constexpr std::size_t kPathSize = PATH_MAX + 16;

// True when what `fd` holds from offset 0 is the `size` bytes of `data`
// and nothing behind them; false with errno set (EIO: other bytes).
bool check_back(int fd, const void *data, std::size_t size)
{
    const auto *want = static_cast<const unsigned char *>(data);
    unsigned char back[4096];
    for (std::size_t done = 0;;) {
        // One byte more than is left: a file that goes on shows it.
        const std::size_t ask = std::min(size - done + 1, sizeof back);
        const ssize_t n = read_at(fd, back, ask, static_cast<off_t>(done));
        if (n < 0)
            return false;
        const auto got = static_cast<std::size_t>(n);
        if (got > size - done || std::memcmp(back, want + done, got) != 0) {
            errno = EIO;
            return false;
        }
        done += got;
        if (got < ask) {
            if (done == size)
                return true;
            errno = EIO; // the file ends early
            return false;
        }
    }
}

// Failure of `step`; the result `r` is returned.
SaveResult fail(SaveResult r, const char *step, StoreError *err)
{
    err->set(step, errno);
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
    // Owner first: a change of owner clears the set-id bits. Only a change:
    // a user may not give a file to a group of which they are no member,
    // even the group it had.
    struct stat now;
    if (::fstat(fd, &now) != 0 || ((old->st_uid != now.st_uid || old->st_gid != now.st_gid) &&
                                   ::fchown(fd, old->st_uid, old->st_gid) != 0))
        return false;
    return ::fchmod(fd, old->st_mode & 07777) == 0;
}

// Fills the temporary file open on `fd`: owner, mode, the record, fsync.
// The name of the step that failed (errno set), or nullptr.
const char *fill_temp(int fd, const struct stat *old, const void *data, std::size_t size)
{
    if (!take_over(fd, old))
        return "owner and mode";
    const ssize_t n = write_at(fd, data, size);
    if (n < 0 || static_cast<std::size_t>(n) != size) {
        if (n >= 0)
            errno = EIO; // the file system took no more
        return "write";
    }
    if (::fsync(fd) != 0)
        return "fsync";
    return nullptr;
}

} // namespace

SaveResult save_file(const char *path, const struct stat *old, const void *data, std::size_t size,
                     StoreError *err)
{
    char real[kPathSize];
    if (::realpath(path, real) == nullptr)
        std::snprintf(real, sizeof real, "%s", path);
    // The temporary file ".NAME.XXXXXX" goes beside the record: in its
    // directory, the first `dir` bytes of `real` with their slash.
    int dir = 0;
    for (int i = 0; real[i] != '\0'; ++i)
        dir = real[i] == '/' ? i + 1 : dir;
    char tmp[kPathSize];
    const int len = std::snprintf(tmp, sizeof tmp, "%.*s.%s.XXXXXX", dir, real, real + dir);
    if (len < 0 || static_cast<std::size_t>(len) >= sizeof tmp) {
        errno = ENAMETOOLONG;
        return fail(SaveResult::unopened, "temporary file", err);
    }
    unique_fd fd(::mkostemp(tmp, O_CLOEXEC));
    if (!fd.ok())
        return fail(SaveResult::unopened, "temporary file", err);
    const char *step = fill_temp(fd.get(), old, data, size);
    if (step == nullptr && ::close(fd.release()) != 0)
        step = "close";
    if (step == nullptr && ::rename(tmp, real) != 0)
        step = "rename";
    if (step != nullptr) {
        const int error = errno;
        std::remove(tmp);
        errno = error;
        return fail(SaveResult::kept, step, err);
    }
    // The directory, for its fsync: "." when the path has none.
    std::snprintf(tmp, sizeof tmp, "%.*s", dir == 0 ? 1 : dir, dir == 0 ? "." : real);
    const unique_fd dir_fd(::open(tmp, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir_fd.ok() || ::fsync(dir_fd.get()) != 0)
        return fail(SaveResult::unsure, "directory fsync", err);
    const unique_fd back(::open(real, O_RDONLY | O_CLOEXEC));
    if (!back.ok() || !check_back(back.get(), data, size))
        return fail(SaveResult::unsure, "read-back", err);
    return SaveResult::saved;
}
