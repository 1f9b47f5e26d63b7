// The record's fields by name, and what a whole, usable record is: the
// problems devinfo's verify reports and set and create refuse. Pure
// functions over caller-owned bytes.
#pragma once

#include <cstddef>

#include "devinfo/record.h"

// The record's fields by name. magic_ok is derived (the magic itself is
// not a value anyone sets); the others are stored fields.
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

// Room for one message line, without line end.
constexpr std::size_t kMessageSize = 256;

// Room for any 32-byte field escaped (escape_text): at most four
// characters a byte.
constexpr std::size_t kEscapedFieldSize = 4 * kTextFieldSize + 1;

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
