// Fuzz target: the choice between the flash record block and its copy, as
// recovery makes it over whole blocks and as a start makes it reading only
// what it needs. Input: one byte (bit 0: make the copy's CRC right, so the
// fuzzer gets past it to the code behind), then the record block and the
// copy block, half of the rest each. Whatever they hold, neither choice
// reads outside the blocks, both agree, a copy taken as valid is exactly
// what build_copy makes of its parts, and a restore or a start takes only
// the copy's stored record.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "devinfo/copy_block.h"
#include "devinfo/flash_read.h"

namespace {

using Block = std::unique_ptr<std::uint8_t[]>;

bool inside(const std::uint8_t *p, std::size_t n, const std::uint8_t *block, std::size_t size)
{
    return p >= block && n <= size && static_cast<std::size_t>(p - block) <= size - n;
}

// The two blocks as a partition that a read may not leave; it only reads.
class Partition final : public Flash {
public:
    Partition(const std::uint8_t *record, const std::uint8_t *copy, std::size_t n)
        : image_(new std::uint8_t[2 * n]), n_(n)
    {
        std::memcpy(image_.get(), record, n);
        std::memcpy(image_.get() + n, copy, n);
    }
    FlashGeometry geometry() const override
    {
        return {static_cast<std::uint32_t>(2 * n_), static_cast<std::uint32_t>(n_), 1};
    }
    bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) override
    {
        if (offset > 2 * n_ || size > 2 * n_ - offset)
            std::abort();
        std::memcpy(buf, image_.get() + offset, size);
        return true;
    }
    bool erase(std::uint32_t) override { std::abort(); }
    bool program(std::uint32_t, const std::uint8_t *, std::size_t) override { std::abort(); }
    int is_bad(std::uint32_t) override { return 0; }

private:
    Block image_;
    std::size_t n_;
};

// Makes the copy's CRC right for the payload its header names, when that
// lies inside the block.
void fix_crc(std::uint8_t *copy, std::size_t n)
{
    CopyHeader h;
    if (n < sizeof h)
        return;
    std::memcpy(&h, copy, sizeof h);
    if (h.payload_size > n - sizeof h)
        return;
    const auto *head = reinterpret_cast<const std::uint8_t *>(&h);
    h.crc = crc32(copy + sizeof h, h.payload_size, crc32(head, offsetof(CopyHeader, crc)));
    std::memcpy(copy, &h, sizeof h);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1 || size > 1 + (64u << 10))
        return 0;
    const bool fix = (data[0] & 1) != 0;
    const std::size_t n = (size - 1) / 2;
    Block record(new std::uint8_t[n]);
    Block copy(new std::uint8_t[n]);
    std::memcpy(record.get(), data + 1, n);
    std::memcpy(copy.get(), data + 1 + n, n);
    if (fix)
        fix_crc(copy.get(), n);

    const Decision d = decide_recovery(record.get(), copy.get(), n);
    Partition flash(record.get(), copy.get(), n);
    dev_info rec;
    CopyChoice how;
    // Half the runs hand over the record's bytes, as hw_start does.
    std::memcpy(&rec, record.get(), n < sizeof rec ? n : sizeof rec);
    const std::size_t have = (data[0] & 2) != 0 && n >= sizeof rec ? sizeof rec : 0;
    const bool from_copy =
        read_copy_choice(flash, &rec, &how, reinterpret_cast<const std::uint8_t *>(&rec), have);
    if (from_copy != (d.action == Recovery::restore))
        std::abort(); // a start reads what recovery would put in place
    if (!d.copy_valid) {
        if (d.action == Recovery::restore || d.action == Recovery::keep)
            std::abort(); // nothing to restore from, nothing to keep against
        return 0;
    }
    const CopyView &c = d.copy;
    if (c.new_record != copy.get() + sizeof(CopyHeader) ||
        !inside(c.old_record, kDevInfoSize, copy.get(), n) ||
        !inside(c.tail, c.tail_size, copy.get(), n) || kDevInfoSize + c.tail_size > n)
        std::abort();
    Block again(new std::uint8_t[n]);
    if (!build_copy(again.get(), n, c.sequence, c.new_record, c.old_record, c.tail, c.tail_size) ||
        std::memcmp(again.get(), copy.get(), kCopyFixedSize + c.tail_size) != 0)
        std::abort();
    if (from_copy &&
        (std::memcmp(&rec, c.new_record, kDevInfoSize) != 0 || how.sequence != c.sequence))
        std::abort();
    return 0;
}
