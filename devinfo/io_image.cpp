#include "devinfo/io_image.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "devinfo/copy_block.h"
#include "devinfo/io_access.h"

namespace {

// True when `erase` can be the erase size of the `size`-byte image.
bool erase_size_fits(const std::uint8_t *bytes, std::size_t size, std::size_t erase)
{
    const FlashGeometry g = {static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(erase),
                             1};
    return erase >= kCopyFixedSize && size / erase >= 2 && geometry_ok(g) &&
           copy_size(bytes + erase, erase) != 0;
}

} // namespace

std::uint32_t image_erase_size(const std::uint8_t *bytes, std::size_t size)
{
    if (size <= kDevInfoSize || size > kMaxImageSize)
        return 0;
    // The divisors of the size, smallest first: those up to its square
    // root, then their partners from the largest of those down.
    std::size_t root = 1;
    for (std::size_t d = 1; d * d <= size; ++d) {
        root = d;
        if (size % d == 0 && erase_size_fits(bytes, size, d))
            return static_cast<std::uint32_t>(d);
    }
    for (std::size_t d = root; d >= 1; --d) {
        if (size % d == 0 && erase_size_fits(bytes, size, size / d))
            return static_cast<std::uint32_t>(size / d);
    }
    return 0;
}

CImageFlash::~CImageFlash()
{
    std::free(bytes_);
}

bool CImageFlash::Load(int fd)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    errno = 0;
    const auto file_size = static_cast<std::size_t>(st.st_size);
    if (!S_ISREG(st.st_mode) || file_size <= kDevInfoSize || file_size > kMaxImageSize)
        return false;
    bytes_ = static_cast<std::uint8_t *>(std::malloc(file_size));
    if (bytes_ == nullptr) {
        errno = ENOMEM;
        return false;
    }
    const ssize_t n = read_at(fd, bytes_, file_size);
    if (n < 0)
        return false;
    if (static_cast<std::size_t>(n) != file_size) {
        errno = EIO; // the file changed size while it was read
        return false;
    }
    geo_.size = static_cast<std::uint32_t>(file_size);
    geo_.erase_size = image_erase_size(bytes_, file_size);
    errno = 0;
    return geo_.erase_size != 0;
}

bool CImageFlash::inside(std::uint32_t offset, std::size_t size) const
{
    if (size <= geo_.size && offset <= geo_.size - size)
        return true;
    errno = EINVAL;
    return false;
}

bool CImageFlash::read(std::uint32_t offset, std::uint8_t *buf, std::size_t size)
{
    if (!inside(offset, size))
        return false;
    std::memcpy(buf, bytes_ + offset, size);
    return true;
}

bool CImageFlash::erase(std::uint32_t offset)
{
    if (!inside(offset, geo_.erase_size))
        return false;
    std::memset(bytes_ + offset, 0xFF, geo_.erase_size);
    return true;
}

bool CImageFlash::program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size)
{
    if (!inside(offset, size))
        return false;
    for (std::size_t i = 0; i < size; ++i)
        bytes_[offset + i] &= buf[i];
    return true;
}
