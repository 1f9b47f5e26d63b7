// Power-cut-safe saves and the start-time recovery of the record on a flash
// partition, over the small flash interface of flash.h. The copy's format
// and the choice between record and copy are copy_block.h's.
//
// A save reads the record block (erase block 0) and the copy block (the
// first good erase block after it), then writes the copy - erase, program,
// read back - and only when it is whole erases and programs the record
// block (record, then the tail it held) and reads that back. A record block
// that an earlier cut left torn is first put back from the copy, since the
// copy is about to be erased. Recovery writes only the record block, and
// only from a whole copy.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/copy_block.h"
#include "devinfo/flash.h"
#include "devinfo/flash_read.h"
#include "devinfo/record.h"
#include "devinfo/record_error.h"

// What a save or recovery read from the partition, the buffers it writes
// from, and what went wrong. Owns its memory.
class FlashState {
public:
    FlashState() = default;
    ~FlashState();
    FlashState(const FlashState &) = delete;
    FlashState &operator=(const FlashState &) = delete;

    StoreError err; // what failed, after a function below returned failure
    FlashGeometry geo = {0, 0, 0};
    CopyRead copy;                   // the copy block and the copy in it
    std::uint8_t *block0 = nullptr;  // the record block as read
    std::uint8_t *current = nullptr; // the record block a save starts from:
                                     // block0, or made from the copy when
                                     // the decision is to restore
    std::uint8_t *image = nullptr;   // what is being written
    std::uint8_t *back = nullptr;    // what was read back
    Decision decision = {};

    // The record a save starts from (bytes 0-279 of `current`).
    dev_info record() const;
    // Allocates the four buffers for `geo`; false when out of memory.
    bool allocate();

private:
    std::uint8_t *mem_ = nullptr;
};

// Reads the geometry, finds the copy block, reads the copy (read_copy) and
// the whole record block into `st`, with the recovery decision over them.
// False (st->err set) when the partition cannot be read or its geometry
// makes no sense.
bool load_flash(Flash &flash, FlashState *st);

// Why a save refused to write: there is no safe way.
enum class Refusal {
    none,
    no_copy_block,  // no good erase block besides the record's
    foreign_copy,   // the copy's block holds data devinfo did not write
    tail_too_large, // the bytes behind the record do not fit in a copy
};

// Saves `rec` into the partition loaded in `st`, keeping the record
// block's tail. saved: both blocks written and read back. kept: refused
// (*refusal says why; a foreign copy block is taken only with
// `take_copy_block`) or failed before the record block was touched (or while
// it was being put back from the copy).
// unsure: failed after the record block was erased; the copy holds `rec`.
// st.err says what failed or was refused.
SaveResult save_to_flash(Flash &flash, FlashState &st, const dev_info &rec, bool take_copy_block,
                         Refusal *refusal);

// Erases the block at `offset`, programs st.image into it (up to its last
// byte that is not 0xFF) and reads it back. False with st.err set (steps
// "erase", "program", "read-back", "verify"; for the copy's block "copy
// erase" and so on).
bool write_block(Flash &flash, FlashState &st, std::uint32_t offset);

// Writes `rec` with the tail of st.current into the record block, as
// write_block does.
bool write_record_block(Flash &flash, FlashState &st, const dev_info &rec);

// --- flash_recover.cpp: what devinfo alone does ---------------------------------

// Writes `rec` into the record block of a partition without a copy block,
// unprotected against a power cut. saved or unsure (st.err set).
SaveResult save_in_place(Flash &flash, FlashState &st, const dev_info &rec);

// Puts the record block back from the copy when the decision in `st` is to
// restore (st.decision tells what was found). Never writes the copy block.
// False (st.err set) when the write failed.
bool recover_flash(Flash &flash, FlashState &st);
