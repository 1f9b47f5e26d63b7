// The record's fields as devinfo's command line names them, and how
// command-line values become field bytes. No I/O here: every function
// works on caller-owned bytes and fixed buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/devinfo.h"

// --- numbers --------------------------------------------------------------------

// "0x" followed by 1-8 hexadecimal digits, or 1-10 decimal digits, with a
// value that fits 32 bits. False for anything else (signs, blanks, empty).
bool parse_board_id(const char *text, std::uint32_t *out);

// The 24 GUID bytes in stored order, two hexadecimal digits each.
constexpr std::size_t kGuidTextSize = 2 * kGuidSize + 1;
void format_guid(const GUID &guid, char (&out)[kGuidTextSize]);

// Exactly 48 hexadecimal digits (either case), the inverse of format_guid.
// False, leaving *out untouched, for anything else.
bool parse_guid(const char *text, GUID *out);

// --- changing a record -------------------------------------------------------------

// Splits "FIELD=VALUE" into its field and the value behind the first '='.
// False when there is no '=' or FIELD is not a field that can be set
// (guid, board_id, board_name, mac, p2p_id).
bool parse_assignment(const char *arg, Field *field, const char **value);

// Stores `value` into `field` of `rec` after the checks that keep a bad
// value out of a record: a MAC that check_mac refuses, a text over 31
// characters, a board id or GUID that does not parse. True when stored;
// false with the reason in `why` (one line, without line end), `rec`
// unchanged.
bool set_field(dev_info *rec, Field field, const char *value, char (&why)[kMessageSize]);
