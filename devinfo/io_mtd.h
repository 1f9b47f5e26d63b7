// The flash partition through its MTD character device, as flash tools use
// it: geometry from MEMGETINFO, bad blocks from MEMGETBADBLOCK, MEMERASE,
// then plain writes and reads at offsets - never the block driver's
// read-modify-write of a whole erase block.
#pragma once

#include <cerrno>
#include <mtd/mtd-user.h>

#include "base/unique_fd.h"
#include "devinfo/flash.h"

class CMtdFlash final : public Flash {
public:
    CMtdFlash() = default;

    // Opens `path` (read-write for a save or recovery, read-only for a
    // read) and asks its geometry. False with errno set (ENOENT when there
    // is no such device).
    bool Open(const char *path, bool writable = true);
    // The errno of an Open that found no such device on this board.
    static bool NoDevice(int error) { return error == ENOENT || error == ENODEV || error == ENXIO; }
    bool ok() const { return fd_.ok(); }

    FlashGeometry geometry() const override;
    bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) override;
    bool erase(std::uint32_t offset) override;
    bool program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size) override;
    // NOR and other flash without bad blocks (EOPNOTSUPP) has only good ones.
    int is_bad(std::uint32_t offset) override;

private:
    unique_fd fd_;
    mtd_info_user info_ = {};
};
