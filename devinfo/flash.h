// A flash partition as the record's saves, recovery and reads see it: its
// geometry and the few operations they need. The MTD character device
// (io_mtd.h) and the tests' simulated flashes implement it.
#pragma once

#include <cstddef>
#include <cstdint>

// A partition as its device describes it.
struct FlashGeometry {
    std::uint32_t size;       // bytes in the partition
    std::uint32_t erase_size; // bytes in one erase block
    std::uint32_t write_size; // a program covers whole units of this size
};

// Each operation returns false (or -1) with errno set on failure; offsets
// are from the partition's start.
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

// True when the geometry can hold the record and its copy in whole write
// units: erase blocks of at least a record and at most 16 MiB (larger is
// taken for a device that misreports) made of whole write units, a write
// unit a power of two (as every MTD device's is), at least one block.
bool geometry_ok(const FlashGeometry &g);

// The copy's erase block: the first good one after block 0, into *offset
// (0 when there is none). -1 (errno set) when a bad-block query failed at
// *offset.
int find_copy_block(Flash &flash, std::uint32_t *offset);
