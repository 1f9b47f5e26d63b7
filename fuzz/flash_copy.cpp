// Fuzz target: the choice between the flash record block and its copy. The
// input's two halves are the record block and the copy block (heap blocks
// of exactly that size). Whatever they hold, the choice reads nothing
// outside them, a copy taken as valid is exactly what build_copy makes of
// its parts, and a restore writes only the copy's stored record and tail.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "devinfo/flash_copy.h"

namespace {

bool inside(const std::uint8_t *p, std::size_t n, const std::uint8_t *block, std::size_t size)
{
    return p >= block && n <= size && static_cast<std::size_t>(p - block) <= size - n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::size_t n = size / 2;
    std::unique_ptr<std::uint8_t[]> record(new std::uint8_t[n]);
    std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[n]);
    std::memcpy(record.get(), data, n);
    std::memcpy(copy.get(), data + n, n);
    const Decision d = decide_recovery(record.get(), copy.get(), n);
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
    std::unique_ptr<std::uint8_t[]> again(new std::uint8_t[n]);
    if (!build_copy(again.get(), n, c.sequence, c.new_record, c.old_record, c.tail, c.tail_size) ||
        std::memcmp(again.get(), copy.get(), kCopyFixedSize + c.tail_size) != 0)
        std::abort();
    if (d.action == Recovery::restore) {
        build_record_block(again.get(), n, c.new_record, c.tail, c.tail_size);
        if (std::memcmp(again.get(), c.new_record, kDevInfoSize) != 0)
            std::abort();
    }
    return 0;
}
