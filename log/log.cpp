#include "log/log.h"

#include <cstdarg>
#include <cstdio>
#include <sys/select.h>

namespace {
std::int32_t g_debug_flag = 0;

constexpr const char kTag[] = "[bdsetup] NOTICE! ";
} // namespace

int set_debug_flag(std::int32_t value)
{
    g_debug_flag = value;
    return 0;
}

std::int32_t get_debug_flag()
{
    return g_debug_flag;
}

void log_notice(const char *func, const char *fmt, ...)
{
    if (g_debug_flag == 0)
        return;
    std::fputs(kTag, stdout);
    std::printf("%s:", func);
    va_list ap;
    va_start(ap, fmt);
    std::vprintf(fmt, ap);
    va_end(ap);
}

void log_notice_line(const char *func, const char *text)
{
    if (g_debug_flag == 0)
        return;
    std::fputs(kTag, stdout);
    std::printf("%s:", func);
    std::puts(text);
}

int msleep(std::uint32_t ms)
{
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(ms / 1000);
    tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    return select(0, nullptr, nullptr, nullptr, &tv);
}
