#include "devinfo/io_file_save.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "devinfo/io_access.h"

const char kLinkRefused[] = "a symbolic link on its way belongs to another user, in a "
                            "world-writable sticky directory: not followed";

namespace {

// Room for a path while it is walked, a link's target spliced in.
constexpr std::size_t kPathSize = PATH_MAX;
// Links followed in one walk, as the kernel's own limit.
constexpr int kMaxLinks = 40;

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
    if (old == nullptr)
        return ::fchmod(fd, 0600) == 0; // whatever the umask
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

// Creates ".NAME.XXXXXX" in `dir`, exclusively and never through a link,
// its name in `tmp`: a name taken already is skipped. Empty, errno set,
// when none could be made.
unique_fd make_temp(int dir, const char *name, char (&tmp)[NAME_MAX + 1])
{
    // The process id and a stack address (randomised) start the names.
    auto x = static_cast<std::uint32_t>(::getpid()) ^
             static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&tmp) >> 4);
    for (int i = 0; i < 100; ++i, x = x * 1103515245u + 12345u) {
        const int len = std::snprintf(tmp, sizeof tmp, ".%s.%06x", name, (x >> 8) & 0xffffff);
        if (len < 0 || static_cast<std::size_t>(len) >= sizeof tmp) {
            errno = ENAMETOOLONG;
            break;
        }
        unique_fd fd(::openat(dir, tmp, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd.ok() || errno != EEXIST)
            return fd;
    }
    return unique_fd();
}

// The kernel's protected_symlinks rule: may the caller follow the link of
// status `link` in the directory of status `dir`?
bool may_follow(const struct stat &link, const struct stat &dir)
{
    constexpr mode_t kOpen = S_ISVTX | S_IWOTH;
    return link.st_uid == ::geteuid() || (dir.st_mode & kOpen) != kOpen ||
           link.st_uid == dir.st_uid;
}

// Puts the target of the link open (O_PATH) on `link` in front of `rest`,
// what is left of `path` to walk ("" or "/..."). False, errno set, when
// it does not fit.
bool splice_link(int link, char (&path)[kPathSize], const char *rest)
{
    char both[kPathSize];
    const ssize_t n = ::readlinkat(link, "", both, sizeof both);
    if (n < 0)
        return false;
    const auto used = static_cast<std::size_t>(n);
    const int len = std::snprintf(both + used, sizeof both - used, "%s", rest);
    errno = ENAMETOOLONG;
    if (used >= sizeof both || len < 0 || static_cast<std::size_t>(len) >= sizeof both - used)
        return false;
    std::memcpy(path, both, used + static_cast<std::size_t>(len) + 1);
    return true;
}

// The root directory. By way of /proc/self/root when there is a /proc: an
// emulator running the program with a library prefix (qemu -L) takes
// "/" for that prefix, but not this name. Without /proc, "/".
int open_root()
{
    const int fd = ::open("/proc/self/root", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT)
        return ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    return fd;
}

// Takes the next name of the walk, from *at on, into `name`, and moves *at
// behind it. False, errno set, when there is none (the path names a
// directory) or it is too long.
bool next_name(const char **at, char (&name)[NAME_MAX + 1])
{
    const char *p = *at;
    while (*p == '/')
        ++p;
    std::size_t len = 0;
    while (p[len] != '\0' && p[len] != '/')
        ++len;
    errno = len == 0 ? EISDIR : ENAMETOOLONG;
    if (len == 0 || len > NAME_MAX)
        return false;
    std::memcpy(name, p, len);
    name[len] = '\0';
    *at = p + len;
    return true;
}

// The link open on `link`, of status `st`, in `dir`: refused (kLinkRefused)
// unless may_follow; else its target goes in front of what is left of the
// walk (`rest`, in `walk`), and `dir` is the root for an absolute one.
// False with *err set.
bool follow_link(unique_fd &dir, int link, const struct stat &st, char (&walk)[kPathSize],
                 const char *rest, StoreError *err)
{
    struct stat dir_st;
    if (::fstat(dir.get(), &dir_st) != 0)
        return err->set("open", errno);
    if (!may_follow(st, dir_st))
        return err->set(kLinkRefused, 0);
    if (!splice_link(link, walk, rest))
        return err->set("open", errno);
    if (walk[0] == '/')
        dir.reset(open_root());
    return true;
}

} // namespace

bool find_place(const char *path, FilePlace *place, StoreError *err)
{
    char walk[kPathSize];
    if (std::strlen(path) >= sizeof walk)
        return err->set("open", ENAMETOOLONG);
    std::strcpy(walk, path);
    unique_fd dir(walk[0] == '/' ? open_root() : ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const char *at = walk;
    for (int links = 0; dir.ok() && next_name(&at, place->name);) {
        const bool last = *at == '\0';
        unique_fd node(::openat(dir.get(), place->name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat &st = place->st;
        if (!node.ok() && errno == ENOENT && last) {
            place->dir = std::move(dir); // a file to create
            return true;
        }
        if (!node.ok() || ::fstat(node.get(), &st) != 0)
            break;
        if (S_ISLNK(st.st_mode)) {
            if (++links > kMaxLinks)
                return err->set("open", ELOOP);
            if (!follow_link(dir, node.get(), st, walk, at, err))
                return false;
            at = walk;
            continue;
        }
        // A directory ends no path to a file; a file is no directory.
        const bool is_dir = S_ISDIR(st.st_mode);
        errno = last ? EISDIR : ENOTDIR;
        if (last == is_dir)
            break;
        if (last) {
            place->found = true;
            place->dir = std::move(dir);
            return true;
        }
        dir = std::move(node);
    }
    return err->set("open", errno);
}

SaveResult save_file(int dir, const char *name, const struct stat *old, const void *data,
                     std::size_t size, StoreError *err)
{
    char tmp[NAME_MAX + 1];
    unique_fd fd = make_temp(dir, name, tmp);
    if (!fd.ok())
        return fail(SaveResult::unopened, "temporary file", err);
    const char *step = fill_temp(fd.get(), old, data, size);
    if (step == nullptr && ::close(fd.release()) != 0)
        step = "close";
    if (step == nullptr && ::renameat(dir, tmp, dir, name) != 0)
        step = "rename";
    if (step != nullptr) {
        const int error = errno;
        ::unlinkat(dir, tmp, 0);
        errno = error;
        return fail(SaveResult::kept, step, err);
    }
    // An O_PATH descriptor cannot be synced: the directory opened for it.
    const unique_fd dir_fd(::openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir_fd.ok() || ::fsync(dir_fd.get()) != 0)
        return fail(SaveResult::unsure, "directory fsync", err);
    const unique_fd back(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!back.ok() || !check_back(back.get(), data, size))
        return fail(SaveResult::unsure, "read-back", err);
    return SaveResult::saved;
}

SaveResult save_file_by_path(const char *path, const void *data, std::size_t size,
                             StoreError *err)
{
    FilePlace place;
    if (!find_place(path, &place, err))
        return SaveResult::unopened;
    return save_file(place.dir.get(), place.name, place.found ? &place.st : nullptr, data, size,
                     err);
}
