#include "devinfo/flash_save.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>


namespace {

constexpr int kBuffers = 5;

// Bytes of `image` a program must cover: up to its last byte that is not
// 0xFF, in whole write units.
std::size_t program_size(const std::uint8_t *image, const FlashGeometry &g)
{
    const std::size_t used = trimmed_size(image, g.erase_size);
    const std::size_t unit = g.write_size - 1; // a power of two less one
    return (used + unit) & ~unit;
}

// Erases the block at `offset`, programs st.image into it and reads it
// back. The name of the step that failed (errno set), or nullptr.
const char *write_block(Flash &flash, FlashState &st, std::uint32_t offset)
{
    const std::size_t size = st.geo.erase_size;
    if (!flash.erase(offset))
        return "erase";
    const std::size_t n = program_size(st.image, st.geo);
    if (n > 0 && !flash.program(offset, st.image, n))
        return "program";
    if (!flash.read(offset, st.back, size))
        return "read-back";
    if (std::memcmp(st.back, st.image, size) != 0) {
        errno = EIO;
        return "read-back (the block does not hold what was programmed)";
    }
    return nullptr;
}

// Writes `rec` with the current tail into the record block.
const char *write_record_block(Flash &flash, FlashState &st, const dev_info &rec)
{
    const std::size_t tail_size =
        trimmed_size(st.current + kDevInfoSize, st.geo.erase_size - kDevInfoSize);
    build_record_block(st.image, st.geo.erase_size, reinterpret_cast<const std::uint8_t *>(&rec),
                       st.current + kDevInfoSize, tail_size);
    return write_block(flash, st, 0);
}

SaveResult save_in_place(Flash &flash, FlashState &st, const dev_info &rec)
{
    const char *name = st.name;
    say_line(st.say, "%s: no erase block for a copy: writing the record in place; this save is NOT "
         "protected against a power cut",
         name);
    const char *step = write_record_block(flash, st, rec);
    if (step == nullptr)
        return SaveResult::saved;
    say_line(st.say, "cannot save the record to %s: %s: %s", name, step, std::strerror(errno));
    return SaveResult::unsure;
}

// The copy of `rec` into st.image; false after a message when it does not fit.
bool make_copy(FlashState &st, const dev_info &rec)
{
    const char *name = st.name;
    const std::uint8_t *tail = st.current + kDevInfoSize;
    const std::size_t tail_size = trimmed_size(tail, st.geo.erase_size - kDevInfoSize);
    const std::uint32_t sequence = st.decision.copy_valid ? st.decision.copy.sequence + 1 : 1;
    if (build_copy(st.image, st.geo.erase_size, sequence,
                   reinterpret_cast<const std::uint8_t *>(&rec), st.current, tail, tail_size))
        return true;
    say_line(st.say, "refusing to save to %s: the %zu bytes behind the record in its erase block do not "
         "fit in a copy (at most %zu in %u-byte blocks); nothing written",
         name, tail_size, static_cast<std::size_t>(st.geo.erase_size) - kCopyFixedSize,
         st.geo.erase_size);
    return false;
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
    std::uint8_t **buffers[kBuffers] = {&block0, &copy, &current, &image, &back};
    for (int i = 0; i < kBuffers; ++i)
        *buffers[i] = mem_ + static_cast<std::size_t>(i) * size;
    std::memset(copy, 0xFF, size);
    return true;
}

dev_info FlashState::record() const
{
    dev_info rec;
    std::memcpy(&rec, current, sizeof rec);
    return rec;
}

bool load_flash(Flash &flash, const char *name, Say say, FlashState *st)
{
    st->name = name;
    st->say = say;
    st->geo = flash.geometry();
    if (!geometry_ok(st->geo)) {
        say_line(say, "cannot use %s: partition of %u bytes, erase blocks of %u, write units of %u", name,
             st->geo.size, st->geo.erase_size, st->geo.write_size);
        return false;
    }
    const int bad0 = flash.is_bad(0);
    if (bad0 != 0) {
        say_line(say, "cannot use %s: its first erase block is %s", name,
             bad0 > 0 ? "bad" : "not readable for its bad-block mark");
        return false;
    }
    const std::size_t size = st->geo.erase_size;
    if (find_copy_block(flash, &st->copy_offset) != 0) {
        say_line(say, "cannot read %s: bad-block check at 0x%x: %s", name, st->copy_offset,
                 std::strerror(errno));
        return false;
    }
    if (!st->allocate()) {
        say_line(say, "cannot use %s: %s", name, std::strerror(ENOMEM));
        return false;
    }
    if (!flash.read(0, st->block0, size) ||
        (st->copy_offset != 0 && !flash.read(st->copy_offset, st->copy, size))) {
        say_line(say, "cannot read %s: %s", name, std::strerror(errno));
        return false;
    }
    st->decision = decide_recovery(st->block0, st->copy, size);
    if (st->decision.action == Recovery::restore)
        build_record_block(st->current, size, st->decision.copy.new_record, st->decision.copy.tail,
                           st->decision.copy.tail_size);
    else
        std::memcpy(st->current, st->block0, size);
    return true;
}

SaveResult save_to_flash(Flash &flash, FlashState &st, const dev_info &rec,
                         const FlashOptions &options)
{
    const char *name = st.name;
    if (st.copy_offset == 0) {
        if (options.in_place)
            return save_in_place(flash, st, rec);
        say_line(st.say, "refusing to save to %s: the partition has no good erase block besides the "
             "record's, so there is no room for the copy that keeps a save whole through a "
             "power cut; nothing written (--in-place writes it unprotected)",
             name);
        return SaveResult::kept;
    }
    if (classify_copy_block(st.copy, st.geo.erase_size) == CopyBlock::foreign &&
        !options.take_copy_block) {
        say_line(st.say, "refusing to save to %s: erase block 0x%x, where the copy goes, holds data devinfo "
             "did not write; nothing written (--take-copy-block writes the copy over it)",
             name, st.copy_offset);
        return SaveResult::kept;
    }
    if (!make_copy(st, rec))
        return SaveResult::kept;
    const char *step = write_block(flash, st, st.copy_offset);
    if (step != nullptr) {
        say_line(st.say, "cannot save the record to %s: copy %s: %s; the record was not touched", name, step,
             std::strerror(errno));
        return SaveResult::kept;
    }
    step = write_record_block(flash, st, rec);
    if (step == nullptr)
        return SaveResult::saved;
    say_line(st.say, "cannot save the record to %s: %s: %s; the copy holds the new record (devinfo recover "
         "puts it in place)",
         name, step, std::strerror(errno));
    return SaveResult::unsure;
}

bool recover_flash(Flash &flash, FlashState &st, bool *wrote)
{
    const char *name = st.name;
    *wrote = false;
    const Decision &d = st.decision;
    switch (d.action) {
    case Recovery::nothing:
        return true;
    case Recovery::keep:
        say_line(st.say, "%s: the record differs from the copy saved at sequence %u; kept the record (the "
             "next save rewrites the copy)",
             name, d.copy.sequence);
        return true;
    case Recovery::none_whole:
        say_line(st.say, "%s: no whole record: the record has no magic and there is no valid copy; left as "
             "it is",
             name);
        return false;
    case Recovery::restore:
        break;
    }
    std::memcpy(st.image, st.current, st.geo.erase_size);
    *wrote = true;
    const char *step = write_block(flash, st, 0);
    if (step != nullptr) {
        say_line(st.say, "%s: cannot restore the record from the copy saved at sequence %u: %s: %s", name,
             d.copy.sequence, step, std::strerror(errno));
        return false;
    }
    say_line(st.say, "%s: record was %s; restored the copy saved at sequence %u", name,
         d.erased ? "erased" : "torn", d.copy.sequence);
    return true;
}
