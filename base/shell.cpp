#include "base/shell.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

bool is_plain(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return std::strchr("._-:/+=,@", c) != nullptr && c != '\0';
}

bool needs_quotes(const char *text)
{
    for (const char *p = text; *p != '\0'; ++p) {
        if (!is_plain(*p))
            return true;
    }
    return false;
}

// Appends `piece` at `len` without ever writing past `size`; keeps the
// count of what the whole word needs.
void put(char *out, std::size_t size, std::size_t &len, const char *piece, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i, ++len) {
        if (len + 1 < size)
            out[len] = piece[i];
    }
}

} // namespace

std::size_t shell_quote(const char *text, char *out, std::size_t out_size)
{
    std::size_t len = 0;
    if (!needs_quotes(text)) {
        put(out, out_size, len, text, std::strlen(text));
    } else {
        put(out, out_size, len, "'", 1);
        for (const char *p = text; *p != '\0'; ++p) {
            if (*p == '\'')
                put(out, out_size, len, "'\\''", 4);
            else
                put(out, out_size, len, p, 1);
        }
        put(out, out_size, len, "'", 1);
    }
    if (out_size > 0)
        out[len < out_size ? len : out_size - 1] = '\0';
    return len;
}

bool format_command(char (&out)[kCommandSize], const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int n = std::vsnprintf(out, sizeof out, fmt, ap);
    va_end(ap);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof out) {
        out[0] = '\0';
        return false;
    }
    return true;
}
