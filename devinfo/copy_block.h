// The flash partition's second copy of the record and the choice between
// it and the record itself, as pure functions over byte images: no device
// here, so tests and the fuzz target reach them directly.
//
// Partition layout (erase blocks of the device's erase size):
//   record block = erase block 0: bytes 0-279 the record exactly as
//                  hw_start reads it; the rest (the "tail") belongs to
//                  whoever put it there and every save keeps it.
//   copy block   = the first good erase block after block 0: a CopyHeader,
//                  then the payload - the new record (280 bytes), the
//                  record block's previous record (280 bytes) and the tail
//                  trimmed of its trailing 0xFF bytes - then 0xFF to the
//                  end of the block.
// A save writes the copy (erase, program, read back) before it touches the
// record block, so at every instant one of the two holds a whole record.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/record.h"

// The copy block's header; little-endian like the record (every board this
// runs on is little-endian). CRC-32 (IEEE, as zlib) over bytes 0-27 of the
// header followed by the payload.
struct CopyHeader {
    std::uint32_t magic;        // 0, kCopyMagic: "DIC1"
    std::uint16_t version;      // 4, kCopyVersion
    std::uint16_t header_size;  // 6, sizeof(CopyHeader)
    std::uint32_t sequence;     // 8, one more than the copy it replaced, wraps
    std::uint32_t record_size;  // 12, kDevInfoSize
    std::uint32_t tail_size;    // 16, bytes of tail in the payload
    std::uint32_t payload_size; // 20, 2 * record_size + tail_size
    std::uint32_t reserved;     // 24, zero
    std::uint32_t crc;          // 28, CRC-32 of bytes 0-27 and the payload
};
static_assert(sizeof(CopyHeader) == 32, "CopyHeader is 32 bytes");
static_assert(offsetof(CopyHeader, magic) == 0, "CopyHeader.magic offset");
static_assert(offsetof(CopyHeader, version) == 4, "CopyHeader.version offset");
static_assert(offsetof(CopyHeader, header_size) == 6, "CopyHeader.header_size offset");
static_assert(offsetof(CopyHeader, sequence) == 8, "CopyHeader.sequence offset");
static_assert(offsetof(CopyHeader, record_size) == 12, "CopyHeader.record_size offset");
static_assert(offsetof(CopyHeader, tail_size) == 16, "CopyHeader.tail_size offset");
static_assert(offsetof(CopyHeader, payload_size) == 20, "CopyHeader.payload_size offset");
static_assert(offsetof(CopyHeader, reserved) == 24, "CopyHeader.reserved offset");
static_assert(offsetof(CopyHeader, crc) == 28, "CopyHeader.crc offset");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the copy is stored little-endian");

constexpr std::uint32_t kCopyMagic = 0x31434944; // bytes 'D' 'I' 'C' '1'
constexpr std::uint16_t kCopyVersion = 1;
// Bytes a copy takes before its tail.
constexpr std::size_t kCopyFixedSize = sizeof(CopyHeader) + 2 * kDevInfoSize;

// CRC-32 (IEEE 802.3, reflected, as zlib's crc32) of `size` bytes, going on
// from `crc` (0 to start).
std::uint32_t crc32(const std::uint8_t *data, std::size_t size, std::uint32_t crc = 0);

// `size` less the trailing 0xFF bytes of `data`.
std::size_t trimmed_size(const std::uint8_t *data, std::size_t size);

// A valid copy, pointing into the copy block it was parsed from.
struct CopyView {
    std::uint32_t sequence;
    const std::uint8_t *new_record; // kDevInfoSize bytes
    const std::uint8_t *old_record; // kDevInfoSize bytes
    const std::uint8_t *tail;       // tail_size bytes
    std::size_t tail_size;
};

// Bytes a copy takes in an erase block of `block_size` bytes, from its
// header (sizeof(CopyHeader) bytes): the header and its payload. 0 when
// the header cannot begin a valid copy there (magic, version, sizes, the
// reserved word zero), so a reader fetches exactly the copy and nothing
// behind it.
std::size_t copy_size(const std::uint8_t *header, std::size_t block_size);

// True with *out set when the `size`-byte block holds a whole copy: the
// header as copy_size wants it with the payload inside the block, and the
// CRC right. Reads nothing outside the block.
bool parse_copy(const std::uint8_t *block, std::size_t size, CopyView *out);

// Fills the `size`-byte `block` with a copy: header with `sequence`, the
// new and the old record, the `tail_size` bytes of `tail`, 0xFF behind.
// False, `block` untouched, when the copy does not fit.
bool build_copy(std::uint8_t *block, std::size_t size, std::uint32_t sequence,
                const std::uint8_t *new_record, const std::uint8_t *old_record,
                const std::uint8_t *tail, std::size_t tail_size);

// Fills the `size`-byte record block: `record` (kDevInfoSize bytes), the
// tail, 0xFF behind. `size` must hold both.
void build_record_block(std::uint8_t *block, std::size_t size, const std::uint8_t *record,
                        const std::uint8_t *tail, std::size_t tail_size);

// A whole partition image of `part_size` bytes in erase blocks of
// `erase_size`, as a flash programmer writes it: the record block (`record`,
// then 0xFF), the copy (sequence 1, old and new record both `record`) in
// erase block 1, 0xFF everywhere else. False, `image` untouched, unless
// the partition is two or more whole erase blocks that hold a copy.
bool build_partition_image(std::uint8_t *image, std::size_t part_size, std::size_t erase_size,
                           const std::uint8_t *record);

// True when the block meant for the copy, whose first word is `first_word`,
// holds data devinfo did not write: a copy of ours - whole, torn, or cut
// while being erased or programmed - and an erased block begin with a word
// that has every 1-bit of kCopyMagic.
bool foreign_copy_block(std::uint32_t first_word);

// What recovery does with the record block.
enum class Recovery {
    nothing,    // the record block holds the copy's new record, or there is
                // no valid copy and the record block has the record's magic
    restore,    // a save was cut while the record block was being erased or
                // programmed (or it holds no record): write it from the copy
    keep,       // a valid copy, but the record block holds another whole
                // record (put there by something else): keep it, no write
    none_whole, // no valid copy and no record magic in the record block
};

struct Decision {
    Recovery action;
    bool copy_valid; // `copy` is set
    bool erased;     // the record block is all 0xFF
    CopyView copy;
};

// What a reader has of the record block: its first `size` bytes (at least
// the record and the copy's tail) and whether every byte behind them is
// 0xFF. A whole block has nothing behind it.
struct BlockView {
    const std::uint8_t *bytes;
    std::size_t size;
    bool rest_erased;
};

// The choice over the record block and a valid copy. The record block
// equal to the copy's new record and tail is nothing to do; equal to the
// old one (a save cut before it erased the block, or the old record
// written back by hand) is kept; on its way from old to new - every byte
// keeping all 1-bits of the old block (cut erase) or of the new one (cut
// program) - or without the record's magic is restored; any other whole
// record is kept.
Recovery choose_recovery(const BlockView &block, const CopyView &copy);

// The choice over the whole record block (`size` bytes) and the copy, when
// there is a valid one (else null): without one, a record block with the
// record's magic is nothing to do, one without is none_whole.
Decision decide(const std::uint8_t *record_block, std::size_t size, const CopyView *copy);

// The same over the whole record block and copy block, `size` bytes each.
Decision decide_recovery(const std::uint8_t *record_block, const std::uint8_t *copy_block,
                         std::size_t size);

// The first 8 bytes of `bytes` are the record's magic.
bool has_record_magic(const std::uint8_t *bytes);
