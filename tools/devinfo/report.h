// What devinfo prints: a record or the shared block as key=value lines or
// as one JSON object, formatted into caller-owned fixed buffers.
#pragma once

#include <cstddef>

#include "devinfo/devinfo.h"
#include "tools/devinfo/fields.h"
#include "hw_start/shmem_info.h"

enum class Format { text, json };

// Room for one value: an escaped text field, a GUID or a number.
constexpr std::size_t kValueSize = kEscapedFieldSize;
static_assert(kValueSize >= kGuidTextSize, "a GUID text fits a value");

// Room for a whole report: six values, each at most doubled by JSON.
constexpr std::size_t kReportSize = 2048;
static_assert(kReportSize > 6 * (2 * kValueSize + 16), "a report fits");

// One field of `rec` as `get` prints it: magic_ok "yes" or "no", guid its
// 24 bytes in stored order as 48 lower-case hexadecimal digits, board_id
// "0x" and lower-case hexadecimal, text fields escaped (escape_text) up to
// their NUL, or all 32 bytes when the field holds none.
void format_field(const dev_info &rec, Field field, char (&out)[kValueSize]);

// All fields of kFieldNames: "key=value" lines, or one JSON object on one
// line ("magic_ok" a JSON boolean, the rest strings of the same texts,
// '"' and '\' escaped, other bytes below 0x20 as \u00XX; values are
// printable ASCII, so the JSON stays ASCII whatever the record holds).
// Always terminated; returns the length needed (>= size means cut).
std::size_t format_record(const dev_info &rec, Format format, char *out, std::size_t size);

// The shared block: magic, guid, run_mode, name and flag, in the forms
// format_field uses (numbers as "0x..." hexadecimal), as lines or JSON.
std::size_t format_shm(const shmem_info &info, Format format, char *out, std::size_t size);
