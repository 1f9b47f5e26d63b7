// Bounded text: the one writer into fixed buffers, the one table of
// hexadecimal digits, and the length of a text kept in a fixed-size field.
#pragma once

#include <cstddef>

// Lower-case hexadecimal digits, indexed by value.
inline constexpr char kHexDigits[] = "0123456789abcdef";

// The value of a hexadecimal digit of either case, or -1.
int hex_value(char c);

// Appends to a caller's buffer of `size` bytes without ever writing past
// it. The text stays terminated after every step (a buffer of size 0 gets
// nothing); length() counts what the whole text needs, so length() >= size
// means it was cut.
class TextWriter {
public:
    TextWriter(char *out, std::size_t size);

    void put(char c);
    void append(const char *text);                 // up to its NUL
    void append(const char *bytes, std::size_t n); // exactly n bytes
    void hex(unsigned char byte);                  // two lower-case digits

    std::size_t length() const { return len_; }

private:
    char *out_;
    std::size_t size_;
    std::size_t len_ = 0;
};

// Writes `len` bytes of `bytes` into `out` so that every byte is visible:
// printable ASCII stays as it is, a backslash becomes "\\" and every other
// byte (control characters, NUL, DEL, bytes of 0x80 and above) becomes
// "\xHH" in lower-case hexadecimal. `out` is always terminated; returns
// the length the whole text needs (>= out_size means it was cut).
std::size_t escape_text(const char *bytes, std::size_t len, char *out, std::size_t out_size);

// The length of a text kept in a field of `size` bytes, for its two
// readers; neither looks past the field:
// - text_length: the text the board takes from a record, the bytes before
//   the first NUL; none at all when the field holds no NUL (erased flash
//   reads as 0xFF, which is no name).
// - stored_length: the bytes a field stores, up to its first NUL; all
//   `size` bytes when it holds none (devinfo shows them all).
std::size_t text_length(const char *field, std::size_t size);
std::size_t stored_length(const char *field, std::size_t size);

template <std::size_t N> std::size_t text_length(const char (&field)[N])
{
    return text_length(field, N);
}

template <std::size_t N> std::size_t stored_length(const char (&field)[N])
{
    return stored_length(field, N);
}
