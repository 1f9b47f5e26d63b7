#include "devinfo/say.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

void say_line(Say say, const char *fmt, ...)
{
    if (say == nullptr)
        return;
    const int error = errno;
    char line[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    say(line);
    errno = error;
}
