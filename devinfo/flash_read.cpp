#include "devinfo/flash_read.h"

#include <cerrno>
#include <cstring>

namespace {

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

bool read_copy(Flash &flash, CopyRead *out)
{
    const FlashGeometry g = flash.geometry();
    std::uint8_t header[sizeof(CopyHeader)];
    if (find_copy_block(flash, &out->at) != 0 ||
        (out->at != 0 && !flash.read(out->at, header, sizeof header)))
        return false;
    if (out->at == 0)
        return true;
    std::memcpy(&out->first_word, header, sizeof out->first_word);
    const std::size_t size = copy_size(header, g.erase_size);
    if (size == 0)
        return true;
    out->bytes = static_cast<std::uint8_t *>(std::malloc(size));
    if (out->bytes == nullptr) {
        errno = ENOMEM;
        return false;
    }
    // parse_copy checks the header again within these bytes, so a header
    // that changed since it was measured cannot widen the copy.
    const bool read = flash.read(out->at, out->bytes, size);
    if (!read || !parse_copy(out->bytes, size, &out->view)) {
        std::free(out->bytes);
        out->bytes = nullptr;
    }
    return read;
}

bool read_copy_choice(Flash &flash, dev_info *rec, CopyChoice *how, const std::uint8_t *have,
                      std::size_t have_size)
{
    const FlashGeometry g = flash.geometry();
    CopyRead copy;
    if (!geometry_ok(g) || flash.is_bad(0) != 0 || !read_copy(flash, &copy) ||
        copy.bytes == nullptr)
        return false;
    const CopyView &c = copy.view;
    const std::size_t prefix = kDevInfoSize + c.tail_size;
    // The record and its tail: what the caller read of them, or read here.
    auto *own = static_cast<std::uint8_t *>(have_size >= prefix ? nullptr : std::malloc(prefix));
    const std::uint8_t *block = own != nullptr ? own : have;
    BlockView view = {block, prefix, true};
    bool restore = block != nullptr && (own == nullptr || flash.read(0, own, prefix));
    // The rest of the block decides only for a block on its way or one
    // without the magic; a whole record does not need it read.
    if (restore && (choose_recovery(view, c) == Recovery::restore || !has_record_magic(block))) {
        const int rest = rest_erased(flash, static_cast<std::uint32_t>(prefix), g.erase_size);
        view.rest_erased = rest == 1;
        restore = rest >= 0;
    }
    restore = restore && choose_recovery(view, c) == Recovery::restore;
    if (restore) {
        how->sequence = c.sequence;
        how->erased = view.rest_erased && trimmed_size(block, prefix) == 0;
        std::memcpy(rec, c.new_record, sizeof *rec);
    }
    std::free(own);
    return restore;
}
