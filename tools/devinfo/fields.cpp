#include "tools/devinfo/fields.h"

#include <cstdio>
#include <cstring>

#include "base/text.h"

namespace {

// Room for a command-line value quoted in a message: the rest of the
// line is short, so a cut value still leaves the reason readable.
constexpr std::size_t kQuotedValueSize = 96;

// A command-line value, escaped and cut to fit a message.
void quote_value(const char *value, char (&out)[kQuotedValueSize])
{
    escape_text(value, std::strlen(value), out, sizeof out);
}

bool set_text(char (&field)[kTextFieldSize], Field which, const char *value,
              char (&why)[kMessageSize])
{
    const std::size_t len = std::strlen(value);
    if (len >= kTextFieldSize) {
        std::snprintf(why, sizeof why, "%s: %zu characters, at most %zu fit", field_name(which),
                      len, kTextFieldSize - 1);
        return false;
    }
    write_text_field(field, value);
    return true;
}

} // namespace

bool parse_board_id(const char *text, std::uint32_t *out)
{
    std::uint64_t value = 0;
    std::size_t digits = 0;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        for (const char *p = text + 2; *p != '\0'; ++p, ++digits) {
            const int v = hex_value(*p);
            if (v < 0 || digits == 8)
                return false;
            value = value << 4 | static_cast<std::uint64_t>(v);
        }
    } else {
        for (const char *p = text; *p != '\0'; ++p, ++digits) {
            if (*p < '0' || *p > '9' || digits == 10)
                return false;
            value = value * 10 + static_cast<std::uint64_t>(*p - '0');
        }
    }
    if (digits == 0 || value > 0xffffffffULL)
        return false;
    *out = static_cast<std::uint32_t>(value);
    return true;
}

void format_guid(const GUID &guid, char (&out)[kGuidTextSize])
{
    unsigned char bytes[kGuidSize];
    std::memcpy(bytes, &guid, sizeof bytes);
    TextWriter w(out, sizeof out);
    for (unsigned char b : bytes)
        w.hex(b);
}

bool parse_guid(const char *text, GUID *out)
{
    unsigned char bytes[kGuidSize];
    for (std::size_t i = 0; i < kGuidSize; ++i) {
        // Checked pair by pair, so a short text stops at its NUL.
        const int hi = hex_value(text[2 * i]);
        if (hi < 0)
            return false;
        const int lo = hex_value(text[2 * i + 1]);
        if (lo < 0)
            return false;
        bytes[i] = static_cast<unsigned char>(hi << 4 | lo);
    }
    if (text[2 * kGuidSize] != '\0')
        return false;
    std::memcpy(out, bytes, sizeof bytes);
    return true;
}

bool parse_assignment(const char *arg, Field *field, const char **value)
{
    const char *eq = std::strchr(arg, '=');
    if (eq == nullptr || !find_field(arg, static_cast<std::size_t>(eq - arg), field) ||
        *field == Field::magic_ok)
        return false;
    *value = eq + 1;
    return true;
}

bool set_field(dev_info *rec, Field field, const char *value, char (&why)[kMessageSize])
{
    char quoted[kQuotedValueSize];
    switch (field) {
    case Field::guid: {
        GUID guid;
        if (!parse_guid(value, &guid)) {
            quote_value(value, quoted);
            std::snprintf(why, sizeof why, "guid: \"%s\" is not 48 hexadecimal digits", quoted);
            return false;
        }
        rec->guid = guid;
        return true;
    }
    case Field::board_id: {
        std::uint32_t id = 0;
        if (!parse_board_id(value, &id)) {
            quote_value(value, quoted);
            std::snprintf(why, sizeof why,
                          "board_id: \"%s\" is not a 32-bit number (decimal, or hexadecimal "
                          "after 0x)",
                          quoted);
            return false;
        }
        rec->board_id = id;
        return true;
    }
    case Field::mac: {
        const MacCheck check = check_mac(value, std::strlen(value));
        if (check != MacCheck::ok) {
            quote_value(value, quoted);
            std::snprintf(why, sizeof why, "mac: \"%s\" %s", quoted, mac_check_message(check));
            return false;
        }
        write_text_field(rec->mac, value);
        return true;
    }
    case Field::board_name:
        return set_text(rec->board_name, field, value, why);
    case Field::p2p_id:
        return set_text(rec->p2p_id, field, value, why);
    case Field::magic_ok:
        break;
    }
    std::snprintf(why, sizeof why, "%s cannot be set", field_name(field));
    return false;
}

