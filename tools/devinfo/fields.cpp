#include "tools/devinfo/fields.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/text.h"

namespace {

constexpr std::size_t kMacTextLength = 17; // "xx:xx:xx:xx:xx:xx"
constexpr std::size_t kMacOctets = 6;

// Room for a command-line value quoted in a message: the rest of the
// line is short, so a cut value still leaves the reason readable.
constexpr std::size_t kQuotedValueSize = 96;

int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool is_upper_hex(char c)
{
    return c >= 'A' && c <= 'F';
}


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

void add_problem(Problems *out, const char *label, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

void add_problem(Problems *out, const char *label, const char *fmt, ...)
{
    if (out->count >= kMaxProblems)
        return;
    Problem &p = out->items[out->count++];
    p.label = label;
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(p.message, sizeof p.message, fmt, ap);
    va_end(ap);
}

} // namespace

bool find_field(const char *name, std::size_t len, Field *out)
{
    for (const FieldName &f : kFieldNames) {
        if (std::strlen(f.name) == len && std::memcmp(f.name, name, len) == 0) {
            *out = f.field;
            return true;
        }
    }
    return false;
}

const char *field_name(Field field)
{
    for (const FieldName &f : kFieldNames) {
        if (f.field == field)
            return f.name;
    }
    return "?";
}

std::size_t escape_text(const char *bytes, std::size_t len, char *out, std::size_t out_size)
{
    TextWriter w(out, out_size);
    for (std::size_t i = 0; i < len; ++i) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        if (c == '\\') {
            w.append("\\\\");
        } else if (c >= 0x20 && c < 0x7f) {
            w.put(bytes[i]);
        } else {
            w.append("\\x");
            w.hex(c);
        }
    }
    return w.length();
}

MacCheck check_mac(const char *text, std::size_t len)
{
    if (len == 0)
        return MacCheck::empty;
    if (len != kMacTextLength)
        return MacCheck::format;
    unsigned char octets[kMacOctets] = {};
    bool upper = false;
    for (std::size_t i = 0; i < kMacOctets; ++i) {
        const char *group = text + 3 * i;
        if (i > 0 && group[-1] != ':')
            return MacCheck::format;
        const int hi = hex_value(group[0]);
        const int lo = hex_value(group[1]);
        if (hi < 0 || lo < 0)
            return MacCheck::format;
        upper = upper || is_upper_hex(group[0]) || is_upper_hex(group[1]);
        octets[i] = static_cast<unsigned char>(hi << 4 | lo);
    }
    if (upper)
        return MacCheck::upper_case;

    bool all_zero = true;
    bool all_ones = true;
    for (unsigned char o : octets) {
        all_zero = all_zero && o == 0x00;
        all_ones = all_ones && o == 0xff;
    }
    if (all_zero)
        return MacCheck::all_zero;
    if (all_ones)
        return MacCheck::broadcast;
    if ((octets[0] & 0x01) != 0)
        return MacCheck::multicast;
    return MacCheck::ok;
}

const char *mac_check_message(MacCheck check)
{
    switch (check) {
    case MacCheck::ok:
        return "";
    case MacCheck::empty:
        return "is empty";
    case MacCheck::format:
        return "is not six two-digit lower-case hexadecimal groups joined by colons";
    case MacCheck::upper_case:
        return "has upper-case digits: eth0's address never reads back equal, so every "
               "start would set it again";
    case MacCheck::all_zero:
        return "is the all-zero address";
    case MacCheck::broadcast:
        return "is the broadcast address";
    case MacCheck::multicast:
        return "is a multicast address (low bit of the first octet set)";
    }
    return "";
}

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

void check_record(const dev_info &rec, std::size_t stored_size, bool with_magic, Problems *out)
{
    out->count = 0;
    if (with_magic && stored_size < kDevInfoSize)
        add_problem(out, "size", "the store holds %zu bytes; a record is %zu", stored_size,
                    kDevInfoSize);
    if (with_magic && rec.magic != kDevInfoMagic)
        add_problem(out, "magic", "0x%016llx is not 0x%016llx",
                    static_cast<unsigned long long>(rec.magic),
                    static_cast<unsigned long long>(kDevInfoMagic));
    for (const TextField &t : kTextFields) {
        if (stored_length(rec.*t.member) == kTextFieldSize)
            add_problem(out, field_name(t.field), "no NUL within its %zu bytes", kTextFieldSize);
    }
    const std::size_t mac_len = stored_length(rec.mac);
    if (mac_len < kTextFieldSize) {
        const MacCheck check = check_mac(rec.mac, mac_len);
        if (check != MacCheck::ok) {
            char escaped[kEscapedFieldSize];
            escape_text(rec.mac, mac_len, escaped, sizeof escaped);
            add_problem(out, "mac", "\"%s\" %s", escaped, mac_check_message(check));
        }
    }
}
