#include "devinfo/flash_read.h"

#include <cstdlib>
#include <cstring>

#include "devinfo/flash_copy.h"

namespace {

// Owns one malloc'ed buffer.
class Buffer {
public:
    explicit Buffer(std::size_t size) : p_(static_cast<std::uint8_t *>(std::malloc(size))) {}
    ~Buffer() { std::free(p_); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
    std::uint8_t *get() const { return p_; }

private:
    std::uint8_t *p_;
};

// 1 when every byte of the record block from `from` to its end is 0xFF,
// 0 when one is not, -1 when a read failed.
int rest_erased(Flash &flash, std::uint32_t from, std::uint32_t block_size)
{
    std::uint8_t chunk[512];
    for (std::uint32_t at = from; at < block_size;) {
        const std::size_t n = block_size - at < sizeof chunk ? block_size - at : sizeof chunk;
        if (!flash.read(at, chunk, n))
            return -1;
        if (trimmed_size(chunk, n) != 0)
            return 0;
        at += static_cast<std::uint32_t>(n);
    }
    return 1;
}

} // namespace

bool read_copy_choice(Flash &flash, dev_info *rec, CopyChoice *how)
{
    const FlashGeometry g = flash.geometry();
    std::uint32_t at = 0;
    if (!geometry_ok(g) || flash.is_bad(0) != 0 || find_copy_block(flash, &at) != 0 || at == 0)
        return false;
    std::uint8_t header[sizeof(CopyHeader)];
    if (!flash.read(at, header, sizeof header))
        return false;
    const std::size_t size = copy_size(header, g.erase_size);
    if (size == 0)
        return false;
    // The copy as copy_size measured it: parse_copy checks it again within
    // these bytes, so a header that changed in between cannot widen it.
    const Buffer copy(size);
    CopyView c;
    if (copy.get() == nullptr || !flash.read(at, copy.get(), size) ||
        !parse_copy(copy.get(), size, &c))
        return false;
    const std::size_t prefix = kDevInfoSize + c.tail_size;
    const Buffer block(prefix);
    if (block.get() == nullptr || !flash.read(0, block.get(), prefix))
        return false;
    BlockView view = {block.get(), prefix, true};
    // The rest of the block decides only for a block on its way or one
    // without the magic; a whole record does not need it read.
    if (choose_recovery(view, c) == Recovery::restore || !has_record_magic(block.get())) {
        const int rest = rest_erased(flash, static_cast<std::uint32_t>(prefix), g.erase_size);
        if (rest < 0)
            return false;
        view.rest_erased = rest == 1;
    }
    if (choose_recovery(view, c) != Recovery::restore)
        return false;
    std::memcpy(rec, c.new_record, sizeof *rec);
    how->sequence = c.sequence;
    how->erased = view.rest_erased && trimmed_size(block.get(), prefix) == 0;
    return true;
}
