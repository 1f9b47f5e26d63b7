#include "devinfo/flash_save.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kBuffers = 4;

// Bytes of `image` a program must cover: up to its last byte that is not
// 0xFF, in whole write units.
std::size_t program_size(const std::uint8_t *image, const FlashGeometry &g)
{
    const std::size_t used = trimmed_size(image, g.erase_size);
    const std::size_t unit = g.write_size - 1; // a power of two less one
    return (used + unit) & ~unit;
}

// Why the partition in `st` cannot take a copy of `rec` (after which
// st.image holds the copy), or Refusal::none.
Refusal make_copy(FlashState &st, const dev_info &rec, bool take_copy_block)
{
    if (st.copy.at == 0)
        return Refusal::no_copy_block;
    if (!take_copy_block && foreign_copy_block(st.copy.first_word))
        return Refusal::foreign_copy;
    const std::uint8_t *tail = st.current + kDevInfoSize;
    const std::size_t tail_size = trimmed_size(tail, st.geo.erase_size - kDevInfoSize);
    const std::uint32_t sequence = st.decision.copy_valid ? st.decision.copy.sequence + 1 : 1;
    const bool fits =
        build_copy(st.image, st.geo.erase_size, sequence,
                   reinterpret_cast<const std::uint8_t *>(&rec), st.current, tail, tail_size);
    return fits ? Refusal::none : Refusal::tail_too_large;
}

} // namespace

FlashState::~FlashState()
{
    std::free(mem_);
}

bool FlashState::allocate()
{
    const std::size_t size = geo.erase_size;
    mem_ = static_cast<std::uint8_t *>(std::malloc(kBuffers * size));
    if (mem_ == nullptr)
        return false;
    std::uint8_t **buffers[kBuffers] = {&block0, &current, &image, &back};
    for (int i = 0; i < kBuffers; ++i)
        *buffers[i] = mem_ + static_cast<std::size_t>(i) * size;
    return true;
}

dev_info FlashState::record() const
{
    dev_info rec;
    std::memcpy(&rec, current, sizeof rec);
    return rec;
}

bool write_block(Flash &flash, FlashState &st, std::uint32_t offset)
{
    // The steps as the message names them: the record's block, the copy's.
    static const char *const kSteps[2][4] = {
        {"erase", "program", "read-back", "read back other bytes"},
        {"copy erase", "copy program", "copy read-back", "copy read back other bytes"}};
    const char *const *step = kSteps[offset != 0];
    const std::size_t size = st.geo.erase_size;
    if (!flash.erase(offset))
        return st.err.set(step[0], errno);
    const std::size_t n = program_size(st.image, st.geo);
    if (n > 0 && !flash.program(offset, st.image, n))
        return st.err.set(step[1], errno);
    if (!flash.read(offset, st.back, size))
        return st.err.set(step[2], errno);
    if (std::memcmp(st.back, st.image, size) != 0)
        return st.err.set(step[3], 0);
    return true;
}

bool write_record_block(Flash &flash, FlashState &st, const dev_info &rec)
{
    const std::size_t tail_size =
        trimmed_size(st.current + kDevInfoSize, st.geo.erase_size - kDevInfoSize);
    build_record_block(st.image, st.geo.erase_size, reinterpret_cast<const std::uint8_t *>(&rec),
                       st.current + kDevInfoSize, tail_size);
    return write_block(flash, st, 0);
}

bool load_flash(Flash &flash, FlashState *st)
{
    st->geo = flash.geometry();
    const std::size_t size = st->geo.erase_size;
    if (!geometry_ok(st->geo))
        return st->err.set("odd erase or write size", 0);
    if (flash.is_bad(0) != 0)
        return st->err.set("bad first erase block", 0);
    if (!st->allocate())
        return st->err.set("memory", ENOMEM);
    if (!read_copy(flash, &st->copy) || !flash.read(0, st->block0, size))
        return st->err.set("read", errno);
    st->decision =
        decide(st->block0, size, st->copy.bytes != nullptr ? &st->copy.view : nullptr);
    const CopyView &c = st->decision.copy;
    if (st->decision.action == Recovery::restore)
        build_record_block(st->current, size, c.new_record, c.tail, c.tail_size);
    else
        std::memcpy(st->current, st->block0, size);
    return true;
}

SaveResult save_to_flash(Flash &flash, FlashState &st, const dev_info &rec, bool take_copy_block,
                         Refusal *refusal)
{
    *refusal = make_copy(st, rec, take_copy_block);
    if (*refusal != Refusal::none) {
        st.err.set(*refusal == Refusal::no_copy_block ? "no erase block for the copy"
                   : *refusal == Refusal::foreign_copy
                       ? "foreign data in the copy's block"
                       : "the tail does not fit in a copy",
                   0);
        return SaveResult::kept;
    }
    // A record block that an earlier cut left torn has its only whole
    // record in the copy, which this save is about to erase: put the record
    // block back from the copy first.
    if (st.decision.action == Recovery::restore) {
        std::uint8_t *copy = st.image;
        st.image = st.current;
        const bool restored = write_block(flash, st, 0);
        st.image = copy;
        if (!restored)
            return SaveResult::kept;
    }
    if (!write_block(flash, st, st.copy.at))
        return SaveResult::kept;
    return write_record_block(flash, st, rec) ? SaveResult::saved : SaveResult::unsure;
}
