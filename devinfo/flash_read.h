// How a reader finds the record's copy on a flash partition (copy_block.h)
// and takes the record: when a save was cut while the record block was
// being erased or programmed and the copy is whole, the copy's new record
// stands for the record block. Reads only what that needs - the copy's
// header, then exactly the copy, then the record and its tail; the rest of
// the record block only after a cut - and writes nothing: repairing is
// recovery's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "devinfo/copy_block.h"
#include "devinfo/flash.h"
#include "devinfo/record.h"

// The copy of a partition as read_copy found it.
class CopyRead {
public:
    CopyRead() = default;
    ~CopyRead() { std::free(bytes); }
    CopyRead(const CopyRead &) = delete;
    CopyRead &operator=(const CopyRead &) = delete;

    std::uint32_t at = 0;                 // its erase block; 0: no good one
    std::uint32_t first_word = 0xFFFFFFFF; // of that block (foreign_copy_block)
    std::uint8_t *bytes = nullptr;        // the copy, malloc'ed: only when valid
    CopyView view = {};                   // into `bytes`
};

// Reads the copy of the partition into *out: the first good erase block
// after block 0, its header, and when that can begin a valid copy, exactly
// the copy. False (errno set) when a bad-block check or a read failed, or
// memory ran out.
bool read_copy(Flash &flash, CopyRead *out);

// What the choice found when the copy stands for the record block.
struct CopyChoice {
    std::uint32_t sequence; // the copy's
    bool erased;            // the record block is all 0xFF
};

// True with *rec set to the copy's new record (and *how filled) when the
// record block is erased, torn or on its way from old to new while the
// copy is whole - the blocks recovery would restore. False, *rec untouched,
// in every other case: no usable geometry, a bad first block, no good
// block for a copy, no valid copy, a read that failed, or a record block
// to be taken as it is. The first `have_size` bytes of the record block,
// when the caller read them already (`have`; may point into *rec), save
// reading them again.
bool read_copy_choice(Flash &flash, dev_info *rec, CopyChoice *how,
                      const std::uint8_t *have = nullptr, std::size_t have_size = 0);
