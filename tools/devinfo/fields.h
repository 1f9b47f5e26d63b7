// The pure part of devinfo: what the record's fields may hold, how command
// line values become field bytes, and the problems `verify` reports. No
// I/O here: every function works on caller-owned bytes and fixed buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "devinfo/dev_info.h"

// The record's fields as devinfo names them. magic_ok is derived (the magic
// itself is not a value anyone sets); the others are stored fields.
enum class Field { magic_ok, guid, board_id, board_name, mac, p2p_id };

struct FieldName {
    Field field;
    const char *name;
};

// In the order `show` prints them.
constexpr FieldName kFieldNames[] = {
    {Field::magic_ok, "magic_ok"},     {Field::guid, "guid"}, {Field::board_id, "board_id"},
    {Field::board_name, "board_name"}, {Field::mac, "mac"},   {Field::p2p_id, "p2p_id"},
};
static_assert(sizeof kFieldNames / sizeof kFieldNames[0] == 6, "one name per field");

// Looks `len` bytes of `name` up among kFieldNames. False when unknown.
bool find_field(const char *name, std::size_t len, Field *out);
const char *field_name(Field field);

// --- text fields -------------------------------------------------------------

// The three text fields of a record, for walks over all of them.
struct TextField {
    Field field;
    char (dev_info::*member)[kTextFieldSize];
};
constexpr TextField kTextFields[] = {
    {Field::board_name, &dev_info::board_name},
    {Field::mac, &dev_info::mac},
    {Field::p2p_id, &dev_info::p2p_id},
};

// Room for any 32-byte field escaped: at most four characters a byte.
constexpr std::size_t kEscapedFieldSize = 4 * kTextFieldSize + 1;

// Writes `len` bytes of `bytes` into `out` so that every byte is visible:
// printable ASCII stays as it is, a backslash becomes "\\" and every other
// byte (control characters, NUL, DEL, bytes of 0x80 and above) becomes
// "\xHH" in lower-case hexadecimal. `out` is always terminated; returns
// the length the whole text needs (>= out_size means it was cut).
std::size_t escape_text(const char *bytes, std::size_t len, char *out, std::size_t out_size);

// --- MAC text -----------------------------------------------------------------

enum class MacCheck { ok, empty, format, upper_case, all_zero, broadcast, multicast };

// Checks `len` bytes of `text`: ok only for 17 characters of six two-digit
// lower-case hexadecimal groups joined by colons (as "%02x:...:%02x"
// prints them) naming an address an interface can carry: not all-zero,
// not broadcast, not multicast (low bit of the first octet). A text that
// would be right in lower case is upper_case, since hw_start compares the
// texts exactly and would set the address again at every start.
MacCheck check_mac(const char *text, std::size_t len);

// Why a MAC check failed, as a clause ("is all-zero"); "" for ok.
const char *mac_check_message(MacCheck check);

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

constexpr std::size_t kMessageSize = 256;

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

// --- verifying a record ------------------------------------------------------------

struct Problem {
    const char *label;          // "size", "magic" or the field's name
    char message[kMessageSize]; // one line, without line end
};

// At most one problem per field, plus one for the size.
constexpr std::size_t kMaxProblems = 6;

struct Problems {
    Problem items[kMaxProblems];
    std::size_t count;
};

// Everything wrong with `rec` as a store delivered it, `stored_size` being
// how many bytes the store held (280 or more for a whole record): a short
// store, a wrong magic, a text field with no NUL in its 32 bytes, and a MAC
// text that check_mac refuses (checked only when its field is terminated).
// `with_magic` false leaves out the size and magic checks.
void check_record(const dev_info &rec, std::size_t stored_size, bool with_magic, Problems *out);
