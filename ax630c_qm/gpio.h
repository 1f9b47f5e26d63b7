// SoC GPIO and pin-function registers, driven directly through physical
// memory (/dev/mem) without a kernel GPIO driver.
#pragma once

#include <array>
#include <cstdint>

// One GPIO line of the board.
struct GpioLine {
    std::uint32_t grp;          // GPIO group, 0 to 10 when the line exists
    std::uint32_t pin;          // line within the group
    std::uint32_t active_level; // state (0 or 1) that switches the line on
};

// Register block of each of the 11 GPIO groups: 0x1B000000 + g * 0x10000.
constexpr std::array<std::uint32_t, 11> GPIO_GROUP_BASE = {
    0x1B000000, 0x1B010000, 0x1B020000, 0x1B030000, 0x1B040000, 0x1B050000,
    0x1B060000, 0x1B070000, 0x1B080000, 0x1B090000, 0x1B0A0000,
};
static_assert(GPIO_GROUP_BASE.size() == 11, "eleven GPIO groups");

constexpr std::uint32_t kGpioLevelReg = 0x0;
constexpr std::uint32_t kGpioDirReg2 = 0x4; // direction set-up, set second
constexpr std::uint32_t kGpioDirReg1 = 0x8; // direction set-up, set first

// A line whose pin function gpio_func_enable knows how to select: one
// register changed by read, mask and write.
struct PinmuxEntry {
    std::uint32_t grp;
    std::uint32_t pin;
    std::uint32_t base;
    std::uint32_t offset;
    std::uint32_t clear_bits;
    std::uint32_t set_bits;
};

constexpr std::array<PinmuxEntry, 2> PINMUX_TABLE = {{
    {6, 0, 0x28200000, 0xA0, 0x00000002, 0x00000000},
    {4, 0, 0x28200000, 0xD0, 0x00000000, 0x00000001},
}};
static_assert(PINMUX_TABLE.size() == 2, "two known pin functions");

// The line that signal_set drives; null until the board object exists.
extern const GpioLine *g_signal_line;

// One 32-bit access at a physical address: the word is read into *value,
// or *value is written to it when `write` is true. 0, or -1 when the
// register could not be reached (*value then untouched).
using RegisterAccess = int (*)(std::uint32_t address, bool write, std::uint32_t *value);

// The board's registers: opens /dev/mem, maps the page that holds the
// address anew, makes the one access to the word that holds it (an
// unaligned address is rounded down), unmaps and closes. -1 after printing
// "cannot open /dev/mem." when it cannot be opened, and -1 without a word
// when it cannot be mapped; no memory is touched then.
int devmem_access(std::uint32_t address, bool write, std::uint32_t *value);

// The one accessor every register access goes through: devmem_access on
// the board; a test points it at a buffer of its own.
extern RegisterAccess g_register_access;

// One 32-bit access to the register at base + offset (computed in 32
// bits) through g_register_access; its result.
int gpio_read_reg(std::uint32_t base, std::uint32_t offset, std::uint32_t *value);
int gpio_write_reg(std::uint32_t base, std::uint32_t offset, std::uint32_t value);

// Bit of a line in its group's registers, or 0 when the pin has no bit
// in the 32-bit registers (32 or more, 24 or more in an odd group).
std::uint32_t gpio_line_bit(std::uint32_t grp, std::uint32_t pin);

// Selects the GPIO function of the pin when PINMUX_TABLE lists it (read,
// mask, write; nothing is written when the read fails). An unlisted line
// only gets the debug line "grp_%d, pin_%d not find!".
void gpio_func_enable(std::uint32_t grp, std::uint32_t pin);

// Pin function, then the line's bit set at offset 0x8 and at 0x4; the
// first failed access ends it. Groups above 10 ("gpio grp overflow") and
// pins without a bit ("gpio pin overflow") touch no register.
void gpio_set_dir(std::uint32_t grp, std::uint32_t pin);

// Sets (state 1) or clears (any other state) the line's level bit. 0 on
// success; -1 for a group above 10, a pin without a bit or a failed access.
int gpio_set_state(std::uint32_t grp, std::int32_t pin, std::uint32_t state);

// Switches g_signal_line on (non-zero) or off. Always 0: failures of the
// register access never reach the caller.
int signal_set(int on);
