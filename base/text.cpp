#include "base/text.h"

#include <cstring>

TextWriter::TextWriter(char *out, std::size_t size) : out_(out), size_(size)
{
    if (size_ > 0)
        out_[0] = '\0';
}

void TextWriter::put(char c)
{
    if (len_ + 1 < size_) {
        out_[len_] = c;
        out_[len_ + 1] = '\0';
    }
    ++len_;
}

void TextWriter::append(const char *text)
{
    for (const char *p = text; *p != '\0'; ++p)
        put(*p);
}

void TextWriter::append(const char *bytes, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        put(bytes[i]);
}

void TextWriter::hex(unsigned char byte)
{
    put(kHexDigits[byte >> 4]);
    put(kHexDigits[byte & 0xf]);
}

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

std::size_t stored_length(const char *field, std::size_t size)
{
    const void *nul = std::memchr(field, '\0', size);
    return nul == nullptr ? size : static_cast<std::size_t>(static_cast<const char *>(nul) - field);
}

std::size_t text_length(const char *field, std::size_t size)
{
    const std::size_t len = stored_length(field, size);
    return len == size ? 0 : len;
}
