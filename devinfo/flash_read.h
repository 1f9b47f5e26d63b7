// How a reader takes the record of a flash partition that may hold the
// record's copy (flash_copy.h): when a save was cut while the record block
// was being erased or programmed and the copy is whole, the copy's new
// record stands for the record block. Reads only what that choice needs
// (the copy, then the record and its tail; the rest of the record block
// only after a cut) and writes nothing: repairing is recovery's.
#pragma once

#include <cstdint>

#include "devinfo/dev_info.h"
#include "devinfo/flash.h"

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
// to be taken as it is.
bool read_copy_choice(Flash &flash, dev_info *rec, CopyChoice *how);
