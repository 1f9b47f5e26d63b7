#include "devinfo/io_mtd.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "devinfo/io_access.h"

bool CMtdFlash::Open(const char *path, bool writable)
{
    fd_.reset(::open(path, (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    if (!fd_.ok())
        return false;
    if (::ioctl(fd_.get(), MEMGETINFO, &info_) != 0) {
        fd_.reset();
        return false;
    }
    return true;
}

FlashGeometry CMtdFlash::geometry() const
{
    return {info_.size, info_.erasesize, info_.writesize};
}

bool CMtdFlash::read(std::uint32_t offset, std::uint8_t *buf, std::size_t size)
{
    const ssize_t n = read_at(fd_.get(), buf, size, offset);
    if (n >= 0 && static_cast<std::size_t>(n) != size)
        errno = EIO; // the partition ended before the bytes asked for
    return n >= 0 && static_cast<std::size_t>(n) == size;
}

bool CMtdFlash::erase(std::uint32_t offset)
{
    erase_info_user e = {offset, info_.erasesize};
    return ::ioctl(fd_.get(), MEMERASE, &e) == 0;
}

bool CMtdFlash::program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size)
{
    const ssize_t n = write_at(fd_.get(), buf, size, offset);
    if (n >= 0 && static_cast<std::size_t>(n) != size)
        errno = EIO; // the partition took no more
    return n >= 0 && static_cast<std::size_t>(n) == size;
}

int CMtdFlash::is_bad(std::uint32_t offset)
{
    // The kernel takes a 64-bit offset (its loff_t).
    std::int64_t at = offset;
    const int r = ::ioctl(fd_.get(), MEMGETBADBLOCK, &at);
    if (r < 0)
        return errno == EOPNOTSUPP ? 0 : -1;
    return r > 0 ? 1 : 0;
}
