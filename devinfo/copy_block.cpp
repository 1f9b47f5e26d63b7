#include "devinfo/copy_block.h"

#include <cstring>

namespace {

constexpr std::uint8_t kErased = 0xFF;
constexpr std::size_t kCrcOffset = offsetof(CopyHeader, crc);

// The CRC a copy of header `h` with `payload` must carry.
std::uint32_t copy_crc(const CopyHeader &h, const std::uint8_t *payload)
{
    const std::uint32_t crc = crc32(reinterpret_cast<const std::uint8_t *>(&h), kCrcOffset);
    return crc32(payload, h.payload_size, crc);
}

// Byte `i` of the record block that `record` and `tail` make.
std::uint8_t block_byte(const std::uint8_t *record, const std::uint8_t *tail, std::size_t tail_size,
                        std::size_t i)
{
    if (i < kDevInfoSize)
        return record[i];
    i -= kDevInfoSize;
    return i < tail_size ? tail[i] : kErased;
}

// How the record block compares with the old and the new block the copy
// describes.
struct Match {
    bool is_new, is_old, erasing, programming;
};

Match compare_block(const BlockView &block, const CopyView &c)
{
    // Behind what was read, both blocks are 0xFF: the rest must be too.
    const bool rest = block.rest_erased;
    Match m = {rest, rest, rest, rest};
    for (std::size_t i = 0; i < block.size; ++i) {
        const std::uint8_t b = block.bytes[i];
        const std::uint8_t o = block_byte(c.old_record, c.tail, c.tail_size, i);
        const std::uint8_t n = block_byte(c.new_record, c.tail, c.tail_size, i);
        m.is_new = m.is_new && b == n;
        m.is_old = m.is_old && b == o;
        // An erase only sets bits, a program only clears them.
        m.erasing = m.erasing && (b & o) == o;
        m.programming = m.programming && (b & n) == n;
    }
    return m;
}

} // namespace

std::uint32_t crc32(const std::uint8_t *data, std::size_t size, std::uint32_t crc)
{
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

std::size_t trimmed_size(const std::uint8_t *data, std::size_t size)
{
    while (size > 0 && data[size - 1] == kErased)
        --size;
    return size;
}

bool has_record_magic(const std::uint8_t *bytes)
{
    std::uint64_t magic = 0;
    std::memcpy(&magic, bytes, sizeof magic);
    return magic == kDevInfoMagic;
}

std::size_t copy_size(const std::uint8_t *header, std::size_t block_size)
{
    CopyHeader h;
    if (block_size < sizeof h)
        return 0;
    std::memcpy(&h, header, sizeof h);
    const std::size_t room = block_size - sizeof h;
    if (h.magic != kCopyMagic || h.version != kCopyVersion || h.header_size != sizeof h ||
        h.record_size != kDevInfoSize || h.payload_size > room || h.tail_size > h.payload_size ||
        h.payload_size - h.tail_size != 2 * kDevInfoSize || h.reserved != 0)
        return 0;
    return sizeof h + h.payload_size;
}

bool parse_copy(const std::uint8_t *block, std::size_t size, CopyView *out)
{
    if (size < sizeof(CopyHeader) || copy_size(block, size) == 0)
        return false;
    CopyHeader h;
    std::memcpy(&h, block, sizeof h);
    const std::uint8_t *payload = block + sizeof h;
    if (copy_crc(h, payload) != h.crc)
        return false;
    *out = {h.sequence, payload, payload + kDevInfoSize, payload + 2 * kDevInfoSize, h.tail_size};
    return true;
}

bool build_copy(std::uint8_t *block, std::size_t size, std::uint32_t sequence,
                const std::uint8_t *new_record, const std::uint8_t *old_record,
                const std::uint8_t *tail, std::size_t tail_size)
{
    if (size < kCopyFixedSize || tail_size > size - kCopyFixedSize)
        return false;
    CopyHeader h = {kCopyMagic,
                    kCopyVersion,
                    sizeof(CopyHeader),
                    sequence,
                    kDevInfoSize,
                    static_cast<std::uint32_t>(tail_size),
                    static_cast<std::uint32_t>(2 * kDevInfoSize + tail_size),
                    0,
                    0};
    std::uint8_t *payload = block + sizeof h;
    std::memset(block, kErased, size);
    std::memcpy(payload, new_record, kDevInfoSize);
    std::memcpy(payload + kDevInfoSize, old_record, kDevInfoSize);
    if (tail_size > 0)
        std::memcpy(payload + 2 * kDevInfoSize, tail, tail_size);
    h.crc = copy_crc(h, payload);
    std::memcpy(block, &h, sizeof h);
    return true;
}

void build_record_block(std::uint8_t *block, std::size_t size, const std::uint8_t *record,
                        const std::uint8_t *tail, std::size_t tail_size)
{
    std::memset(block, kErased, size);
    std::memcpy(block, record, kDevInfoSize);
    if (tail_size > 0)
        std::memcpy(block + kDevInfoSize, tail, tail_size);
}

bool build_partition_image(std::uint8_t *image, std::size_t part_size, std::size_t erase_size,
                           const std::uint8_t *record)
{
    if (erase_size < kCopyFixedSize || part_size % erase_size != 0 || part_size / erase_size < 2)
        return false;
    build_record_block(image, erase_size, record, nullptr, 0);
    std::memset(image + erase_size, kErased, part_size - erase_size);
    return build_copy(image + erase_size, erase_size, 1, record, record, nullptr, 0);
}

bool foreign_copy_block(std::uint32_t first_word)
{
    return (first_word & kCopyMagic) != kCopyMagic;
}

Recovery choose_recovery(const BlockView &block, const CopyView &copy)
{
    const Match m = compare_block(block, copy);
    if (m.is_new)
        return Recovery::nothing;
    const bool on_its_way = m.erasing || m.programming || !has_record_magic(block.bytes);
    return !m.is_old && on_its_way ? Recovery::restore : Recovery::keep;
}

Decision decide(const std::uint8_t *record_block, std::size_t size, const CopyView *copy)
{
    Decision d = {Recovery::nothing, false, false, {0, nullptr, nullptr, nullptr, 0}};
    d.erased = trimmed_size(record_block, size) == 0;
    // A valid copy's record and tail fit a block: its payload did.
    d.copy_valid = copy != nullptr && size >= kDevInfoSize;
    if (!d.copy_valid) {
        // The record block is touched only after a whole copy was read back.
        const bool magic = size >= kDevInfoSize && has_record_magic(record_block);
        d.action = magic ? Recovery::nothing : Recovery::none_whole;
        return d;
    }
    d.copy = *copy;
    d.action = choose_recovery({record_block, size, true}, d.copy);
    return d;
}

Decision decide_recovery(const std::uint8_t *record_block, const std::uint8_t *copy_block,
                         std::size_t size)
{
    CopyView c;
    return decide(record_block, size, parse_copy(copy_block, size, &c) ? &c : nullptr);
}
