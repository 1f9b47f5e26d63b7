// Status codes as beep patterns on the board's signal line.
#pragma once

#include <array>
#include <cstdint>

#include "log/log.h"

// Status codes 0 to 12, each five beeps: '0' short, anything else long.
// The rows are taken as listed, not from a rule.
inline constexpr std::array<const char *, 13> kStatusPatterns = {
    "00000", "11111", "00010", "00011", "00001", "00100", "00101",
    "00110", "00111", "01000", "01001", "01010", "01011",
};
static_assert(kStatusPatterns.size() == 13, "status codes 0 to 12");

constexpr std::uint32_t kBeepShortMs = 100;
constexpr std::uint32_t kBeepLongMs = 400;
constexpr std::uint32_t kBeepGapMs = 100;

// How long the signal stays on for one pattern character.
constexpr std::uint32_t beep_on_ms(char c)
{
    return c == '0' ? kBeepShortMs : kBeepLongMs;
}

// Plays `pattern` on the signal line: for each character, on, the beep
// time, off, the gap, each wait through `sleep_ms`. Returns 0 always;
// timing is kept even when the line cannot be driven. An empty (or null)
// pattern returns at once.
int signal_play(const char *pattern, int (*sleep_ms)(std::uint32_t) = msleep);
