#include "base/shell.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/text.h"

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

} // namespace

std::size_t shell_quote(const char *text, char *out, std::size_t out_size)
{
    TextWriter w(out, out_size);
    if (!needs_quotes(text)) {
        w.append(text);
        return w.length();
    }
    w.put('\'');
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p == '\'')
            w.append("'\\''");
        else
            w.put(*p);
    }
    w.put('\'');
    return w.length();
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
