// Shell commands: bounded formatting, quoting of untrusted text as one word,
// and running a command through system().
#pragma once

#include <cstddef>

// Size of every command buffer. A record text field holds at most 31
// characters, which quote to at most 2 + 31 * 4 = 126; the longest fixed
// command text around one is 58 characters, so a quoted text always fits
// and a command is never cut inside its quotes.
constexpr std::size_t kCommandSize = 256;
constexpr std::size_t kMaxQuotedField = 2 + 31 * 4;
static_assert(58 + kMaxQuotedField < kCommandSize, "quoted record text must fit a command");

// Writes `text` into `out` (of `out_size` bytes, always terminated) as one
// shell word: unchanged when it is made only of letters, digits and
// ". _ - : / + = , @" (the empty text stays empty), otherwise in single
// quotes with each embedded single quote written as '\''. Returns the
// length the whole word needs; a result >= out_size means it was cut.
std::size_t shell_quote(const char *text, char *out, std::size_t out_size);

// Formats a command into `out` (kCommandSize bytes) with snprintf bounds.
// Returns false, leaving an empty command, when the text did not fit, so a
// cut command is never run.
bool format_command(char (&out)[kCommandSize], const char *fmt, ...)
    __attribute__((format(printf, 2, 3)));

// Runs `command` through /bin/sh with system(). Its status is returned for
// callers that want it; the boot steps never examine it.
int run_command(const char *command);
