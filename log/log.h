// Process-wide debug flag, the tagged debug line writer and a millisecond
// sleep. Every diagnostic line that depends on the `debug` word goes
// through log_notice so its form stays fixed.
#pragma once

#include <cstdint>

// Stores `value` as the debug flag (non-zero means on). Returns 0.
int set_debug_flag(std::int32_t value);

// The debug flag as last stored; 0 at start.
std::int32_t get_debug_flag();

// When the debug flag is set, writes "[bdsetup] NOTICE! ", then "<func>:",
// then the printf-formatted message to standard output. The message brings
// its own line end. Writes nothing when the flag is 0.
void log_notice(const char *func, const char *fmt, ...)
    __attribute__((format(printf, 2, 3)));

// Same, for a fixed text that is written as a line of its own: a newline
// is added after it.
void log_notice_line(const char *func, const char *text);

// Blocks for `ms` milliseconds in select() without busy waiting. Returns
// 0 after the full time, -1 when a signal ended the wait early (the rest
// of the wait is not resumed).
int msleep(std::uint32_t ms);
