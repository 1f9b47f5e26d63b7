#include "devinfo/flash.h"

#include "devinfo/record.h"

namespace {

constexpr std::uint32_t kMaxEraseSize = 16u << 20;

} // namespace

bool geometry_ok(const FlashGeometry &g)
{
    // Masks, not division: 32-bit ARM has no divide instruction to spare
    // the library call.
    const std::uint32_t unit = g.write_size - 1;
    return g.erase_size >= kDevInfoSize && g.erase_size <= kMaxEraseSize && g.write_size > 0 &&
           (g.write_size & unit) == 0 && (g.erase_size & unit) == 0 && g.size >= g.erase_size;
}

int find_copy_block(Flash &flash, std::uint32_t *offset)
{
    const FlashGeometry g = flash.geometry();
    for (std::uint32_t off = g.erase_size; off <= g.size - g.erase_size; off += g.erase_size) {
        *offset = off;
        const int bad = flash.is_bad(off);
        if (bad <= 0)
            return bad;
    }
    *offset = 0;
    return 0;
}
