// The device information record: the board's identity as the flash
// partition and record files hold it. One 280-byte little-endian image that
// is both the structure in memory and the stored form, read and written
// whole.
#pragma once

#include <cstddef>
#include <cstdint>

// 24-byte GUID as the board carries it everywhere: Data1 (64-bit, debug
// lines print its low 32 bits), Data2, Data3, Data4, then 4 bytes of
// padding. Always copied as all 24 bytes.
struct GUID {
    std::uint64_t Data1;   // 0
    std::uint16_t Data2;   // 8
    std::uint16_t Data3;   // 10
    std::uint8_t Data4[8]; // 12
    std::uint8_t pad[4];   // 20, explicit: the natural padding of Data1's alignment
};
static_assert(sizeof(GUID) == 24, "GUID is 24 bytes");
static_assert(offsetof(GUID, Data1) == 0, "GUID.Data1 offset");
static_assert(offsetof(GUID, Data2) == 8, "GUID.Data2 offset");
static_assert(offsetof(GUID, Data3) == 10, "GUID.Data3 offset");
static_assert(offsetof(GUID, Data4) == 12, "GUID.Data4 offset");
static_assert(offsetof(GUID, pad) == 20, "GUID.pad offset");

constexpr std::size_t kGuidSize = sizeof(GUID);
constexpr std::size_t kTextFieldSize = 32;
constexpr std::uint64_t kDevInfoMagic = 0xfedcba9801234567ULL;

// Stored as 67 45 23 01 98 BA DC FE at offset 0 of the partition.
struct dev_info {
    std::uint64_t magic;                // 0, 8 bytes
    GUID guid;                          // 8, 24 bytes, carried unchanged
    std::uint32_t board_id;             // 32, names the work-mode marker
    char board_name[kTextFieldSize];    // 36, text, NUL within 32 bytes
    char mac[kTextFieldSize];           // 68, text, "xx:xx:xx:xx:xx:xx"
    char p2p_id[kTextFieldSize];        // 100, text, carried unchanged
    std::uint8_t reserved[148];         // 132, carried unchanged
};
static_assert(sizeof(dev_info) == 280, "dev_info is 280 bytes");
static_assert(offsetof(dev_info, magic) == 0, "dev_info.magic offset");
static_assert(offsetof(dev_info, guid) == 8, "dev_info.guid offset");
static_assert(offsetof(dev_info, guid) + offsetof(GUID, Data2) == 16, "dev_info.guid.Data2 offset");
static_assert(offsetof(dev_info, guid) + offsetof(GUID, Data3) == 18, "dev_info.guid.Data3 offset");
static_assert(offsetof(dev_info, guid) + offsetof(GUID, Data4) == 20, "dev_info.guid.Data4 offset");
static_assert(offsetof(dev_info, board_id) == 32, "dev_info.board_id offset");
static_assert(offsetof(dev_info, board_name) == 36, "dev_info.board_name offset");
static_assert(offsetof(dev_info, mac) == 68, "dev_info.mac offset");
static_assert(offsetof(dev_info, p2p_id) == 100, "dev_info.p2p_id offset");
static_assert(offsetof(dev_info, reserved) == 132, "dev_info.reserved offset");

constexpr std::size_t kDevInfoSize = sizeof(dev_info);

// Copies a stored text field into `out` (kTextFieldSize bytes): the
// characters before the field's first NUL. A field with no NUL in its 32
// bytes (erased flash reads as 0xFF) gives the empty text. Never reads
// past the field; `out` is always terminated.
void read_text_field(const char (&field)[kTextFieldSize], char (&out)[kTextFieldSize]);

// Clears the field, then stores at most 31 characters of `text` and a NUL.
void write_text_field(char (&field)[kTextFieldSize], const char *text);
