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
