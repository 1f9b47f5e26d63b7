#include "devinfo/record_check.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/text.h"

namespace {

constexpr std::size_t kMacTextLength = 17; // "xx:xx:xx:xx:xx:xx"
constexpr std::size_t kMacOctets = 6;

// The three text fields of a record.
struct TextField {
    Field field;
    char (dev_info::*member)[kTextFieldSize];
};
constexpr TextField kTextFields[] = {
    {Field::board_name, &dev_info::board_name},
    {Field::mac, &dev_info::mac},
    {Field::p2p_id, &dev_info::p2p_id},
};

bool is_upper_hex(char c)
{
    return c >= 'A' && c <= 'F';
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
