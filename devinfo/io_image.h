// A partition image file - what a flash programmer writes into the
// record's partition (devinfo create --partition-size), or a partition
// read out of a board - held in memory and used as a flash (flash.h), so a
// save or a recovery of the image runs the flash's own protocol and leaves
// in it what the flash would hold after the same save or repair.
//
// A file is taken for a partition image when it is larger than a record
// and its erase size E can be found: E divides it into two or more erase
// blocks of at least a copy's fixed part (and a geometry geometry_ok
// takes), and erase block 1 begins with a copy header that fits a block of
// E bytes (copy_size). Its CRC is not asked for there, so an image whose
// copy is damaged is still one. The smallest such E is taken. An image has
// no bad blocks, and programs byte by byte as NOR flash does: bits go from
// 1 to 0 only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/flash.h"

// Larger files are no partition image (and no image is made larger).
constexpr std::uint32_t kMaxImageSize = 256u << 20;

// The erase size of the `size`-byte image `bytes`, as above; 0 when it is
// no partition image.
std::uint32_t image_erase_size(const std::uint8_t *bytes, std::size_t size);

class CImageFlash final : public Flash {
public:
    CImageFlash() = default;
    ~CImageFlash();
    CImageFlash(const CImageFlash &) = delete;
    CImageFlash &operator=(const CImageFlash &) = delete;

    // Reads the whole file open on `fd` and takes it for a partition image.
    // False when it is none (errno 0) or could not be read (errno set).
    bool Load(int fd);
    // The image, changed by erase and program.
    const std::uint8_t *bytes() const { return bytes_; }
    std::size_t size() const { return geo_.size; }

    FlashGeometry geometry() const override { return geo_; }
    bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) override;
    bool erase(std::uint32_t offset) override;
    bool program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size) override;
    int is_bad(std::uint32_t) override { return 0; }

private:
    // True when `size` bytes at `offset` lie inside the image; else EINVAL.
    bool inside(std::uint32_t offset, std::size_t size) const;

    std::uint8_t *bytes_ = nullptr;
    FlashGeometry geo_ = {0, 0, 1};
};
