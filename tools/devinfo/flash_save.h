// Power-cut-safe saves and the start-time recovery of the record on a flash
// partition, over a small flash interface: the device (mtd_flash.h) and the
// unit tests' simulated flashes implement it. The copy's format and the
// choice between record and copy are flash_copy.h's.
//
// A save reads the record block (erase block 0) and the copy block (the
// first good erase block after it), then writes the copy - erase, program,
// read back - and only when it is whole erases and programs the record
// block (record, then the tail it held) and reads that back. Recovery
// writes only the record block, and only from a whole copy.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/dev_info.h"
#include "tools/devinfo/flash_copy.h"
#include "tools/devinfo/save.h"

// A partition as its device describes it.
struct FlashGeometry {
    std::uint32_t size;       // bytes in the partition
    std::uint32_t erase_size; // bytes in one erase block
    std::uint32_t write_size; // a program covers whole units of this size
};

// The operations a save needs. Each returns false (or -1) with errno set
// on failure; offsets are from the partition's start.
class Flash {
public:
    virtual FlashGeometry geometry() const = 0;
    // Reads `size` bytes at `offset`.
    virtual bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) = 0;
    // Erases the erase block that starts at `offset`.
    virtual bool erase(std::uint32_t offset) = 0;
    // Programs `size` bytes (whole write units) at `offset` of an erased block.
    virtual bool program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size) = 0;
    // 1 when the erase block at `offset` is bad, 0 when good, -1 on error.
    virtual int is_bad(std::uint32_t offset) = 0;

protected:
    ~Flash() = default;
};

// What a save or recovery read from the partition, and the buffers it
// writes from. Owns its memory.
class FlashState {
public:
    FlashState() = default;
    ~FlashState();
    FlashState(const FlashState &) = delete;
    FlashState &operator=(const FlashState &) = delete;

    FlashGeometry geo = {0, 0, 0};
    std::uint32_t copy_offset = 0;   // 0: no good erase block for a copy
    std::uint8_t *block0 = nullptr;  // the record block as read
    std::uint8_t *copy = nullptr;    // the copy block as read
    std::uint8_t *current = nullptr; // the record block a save starts from:
                                     // block0, or made from the copy when
                                     // the decision is to restore
    std::uint8_t *image = nullptr;   // what is being written
    std::uint8_t *back = nullptr;    // what was read back
    Decision decision = {};

    // The record a save starts from (bytes 0-279 of `current`).
    dev_info record() const;
    // Allocates the five buffers for `geo`; false when out of memory.
    bool allocate();

private:
    std::uint8_t *mem_ = nullptr;
};

// Reads the geometry, finds the copy block and reads both blocks into
// `st`, with the recovery decision over them. False after a message (on
// `name`, the store as the user knows it) when the partition cannot be
// read or its geometry makes no sense.
bool load_flash(Flash &flash, const char *name, FlashState *st);

// How a save may go where the partition leaves no safe way.
struct FlashOptions {
    bool in_place;        // a single-block partition: write the record in place
    bool take_copy_block; // write the copy over data devinfo did not write
};

// Saves `rec` into the partition loaded in `st`, keeping the record
// block's tail. saved: both blocks written and read back. kept: refused or
// failed before the record block was touched (after a message).
// unsure: failed after the record block was erased; the copy holds `rec`.
SaveResult save_to_flash(Flash &flash, FlashState &st, const dev_info &rec,
                         const FlashOptions &options, const char *name);

// Puts the record block back from the copy when the decision in `st` says
// so, and says in one line on standard error what it did; says nothing
// when there is nothing to do. Never writes the copy block. Returns true
// when a whole record is in the record block afterwards (or kept there).
bool recover_flash(Flash &flash, FlashState &st, const char *name, bool *wrote);
