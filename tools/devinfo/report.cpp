#include "tools/devinfo/report.h"

#include <cstdio>
#include <cstring>

#include "base/text.h"

namespace {

void json_string_to(TextWriter &w, const char *text)
{
    w.put('"');
    for (const char *p = text; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c == '"' || c == '\\') {
            w.put('\\');
            w.put(*p);
        } else if (c < 0x20) {
            w.append("\\u00");
            w.hex(c);
        } else {
            w.put(*p);
        }
    }
    w.put('"');
}

// One member of a report: "key=value\n", or ,"key":value in an object.
void member(TextWriter &w, Format format, bool first, const char *key, const char *value,
            bool json_bare = false)
{
    if (format == Format::text) {
        w.append(key);
        w.put('=');
        w.append(value);
        w.put('\n');
        return;
    }
    if (!first)
        w.put(',');
    json_string_to(w, key);
    w.put(':');
    if (json_bare)
        w.append(value);
    else
        json_string_to(w, value);
}

void open_report(TextWriter &w, Format format)
{
    if (format == Format::json)
        w.put('{');
}

void close_report(TextWriter &w, Format format)
{
    if (format == Format::json)
        w.append("}\n");
}

void format_hex32(std::uint32_t value, char (&out)[kValueSize])
{
    std::snprintf(out, sizeof out, "0x%x", static_cast<unsigned>(value));
}

void format_text(const char (&field)[kTextFieldSize], char (&out)[kValueSize])
{
    escape_text(field, stored_length(field), out, sizeof out);
}

} // namespace

void format_field(const dev_info &rec, Field field, char (&out)[kValueSize])
{
    switch (field) {
    case Field::magic_ok:
        std::snprintf(out, sizeof out, "%s", rec.magic == kDevInfoMagic ? "yes" : "no");
        return;
    case Field::guid: {
        char guid[kGuidTextSize];
        format_guid(rec.guid, guid);
        std::snprintf(out, sizeof out, "%s", guid);
        return;
    }
    case Field::board_id:
        format_hex32(rec.board_id, out);
        return;
    case Field::board_name:
        format_text(rec.board_name, out);
        return;
    case Field::mac:
        format_text(rec.mac, out);
        return;
    case Field::p2p_id:
        format_text(rec.p2p_id, out);
        return;
    }
    out[0] = '\0';
}

std::size_t format_record(const dev_info &rec, Format format, char *out, std::size_t size)
{
    TextWriter w(out, size);
    open_report(w, format);
    bool first = true;
    for (const FieldName &f : kFieldNames) {
        char value[kValueSize];
        format_field(rec, f.field, value);
        if (f.field == Field::magic_ok && format == Format::json)
            member(w, format, first, f.name, rec.magic == kDevInfoMagic ? "true" : "false", true);
        else
            member(w, format, first, f.name, value);
        first = false;
    }
    close_report(w, format);
    return w.length();
}

std::size_t format_shm(const shmem_info &info, Format format, char *out, std::size_t size)
{
    TextWriter w(out, size);
    char value[kValueSize];
    open_report(w, format);

    format_hex32(info.magic, value);
    member(w, format, true, "magic", value);

    GUID guid;
    static_assert(sizeof guid == sizeof info.guid, "the block carries a whole GUID");
    std::memcpy(&guid, info.guid, sizeof guid);
    char guid_text[kGuidTextSize];
    format_guid(guid, guid_text);
    member(w, format, false, "guid", guid_text);

    format_hex32(info.run_mode, value);
    member(w, format, false, "run_mode", value);

    static_assert(sizeof info.name == kTextFieldSize, "the block's name is a text field");
    format_text(info.name, value);
    member(w, format, false, "name", value);

    format_hex32(info.flag, value);
    member(w, format, false, "flag", value);

    close_report(w, format);
    return w.length();
}
