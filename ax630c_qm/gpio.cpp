#include "ax630c_qm/gpio.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>

#include "log/log.h"
#include "base/unique_fd.h"

const GpioLine *g_signal_line = nullptr;

namespace {

constexpr std::uint32_t kPageMask = 0xFFFFF000;
constexpr std::uint32_t kMaxGroup = 10;

// A shared mapping of the /dev/mem page that holds a register; unmaps
// itself. The length asked for is 1: the kernel maps the whole page, and
// only words inside that page are ever addressed.
class MemPage {
public:
    MemPage(int fd, std::uint32_t address)
        : addr_(::mmap(nullptr, kLength, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                       static_cast<off_t>(address & kPageMask)))
    {
    }
    MemPage(const MemPage &) = delete;
    MemPage &operator=(const MemPage &) = delete;
    ~MemPage()
    {
        if (ok())
            ::munmap(addr_, kLength);
    }

    bool ok() const { return addr_ != MAP_FAILED; }

    // The 32-bit word that holds `address`: an unaligned address is rounded
    // down to its word. Index 0 to 1023, always inside the mapped page.
    volatile std::uint32_t *word(std::uint32_t address) const
    {
        const std::uint32_t index = ((address & ~3u) - (address & kPageMask)) / 4;
        return static_cast<volatile std::uint32_t *>(addr_) + index;
    }

private:
    static constexpr std::size_t kLength = 1;
    void *addr_;
};

// Opens /dev/mem for one access. Its failure is told on every access,
// whatever the debug flag.
unique_fd open_mem()
{
    unique_fd fd(::open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC));
    if (!fd.ok())
        std::printf("cannot open /dev/mem.");
    return fd;
}

const PinmuxEntry *find_pinmux(std::uint32_t grp, std::uint32_t pin)
{
    const auto it = std::find_if(PINMUX_TABLE.begin(), PINMUX_TABLE.end(),
                                 [&](const PinmuxEntry &e) { return e.grp == grp && e.pin == pin; });
    return it == PINMUX_TABLE.end() ? nullptr : &*it;
}

// Read, set `bit`, write back; -1 at the first failed access.
int set_reg_bit(std::uint32_t base, std::uint32_t offset, std::uint32_t bit)
{
    std::uint32_t value = 0;
    if (gpio_read_reg(base, offset, &value) != 0)
        return -1;
    return gpio_write_reg(base, offset, value | bit);
}

} // namespace

int devmem_access(std::uint32_t address, bool write, std::uint32_t *value)
{
    const unique_fd fd = open_mem();
    if (!fd.ok())
        return -1;
    const MemPage page(fd.get(), address);
    if (!page.ok())
        return -1;
    volatile std::uint32_t *reg = page.word(address);
    if (write)
        *reg = *value;
    else
        *value = *reg;
    return 0;
}

RegisterAccess g_register_access = devmem_access;

int gpio_read_reg(std::uint32_t base, std::uint32_t offset, std::uint32_t *value)
{
    return g_register_access(base + offset, false, value);
}

int gpio_write_reg(std::uint32_t base, std::uint32_t offset, std::uint32_t value)
{
    return g_register_access(base + offset, true, &value);
}

std::uint32_t gpio_line_bit(std::uint32_t grp, std::uint32_t pin)
{
    // Odd groups keep their lines in the second byte and up.
    const std::uint32_t shift = (grp & 1) * 8;
    if (pin >= 32 - shift)
        return 0;
    return (1u << pin) << shift;
}

void gpio_func_enable(std::uint32_t grp, std::uint32_t pin)
{
    const PinmuxEntry *entry = find_pinmux(grp, pin);
    if (entry == nullptr) {
        log_notice(__func__, "grp_%d, pin_%d not find!\n", static_cast<int>(grp),
                   static_cast<int>(pin));
        return;
    }
    std::uint32_t value = 0;
    if (gpio_read_reg(entry->base, entry->offset, &value) != 0)
        return;
    gpio_write_reg(entry->base, entry->offset, (value & ~entry->clear_bits) | entry->set_bits);
}

void gpio_set_dir(std::uint32_t grp, std::uint32_t pin)
{
    if (grp > kMaxGroup) {
        log_notice_line(__func__, "gpio grp overflow");
        return;
    }
    const std::uint32_t bit = gpio_line_bit(grp, pin);
    if (bit == 0) {
        log_notice_line(__func__, "gpio pin overflow");
        return;
    }
    gpio_func_enable(grp, pin);
    const std::uint32_t base = GPIO_GROUP_BASE[grp];
    if (set_reg_bit(base, kGpioDirReg1, bit) != 0)
        return;
    set_reg_bit(base, kGpioDirReg2, bit);
}

int gpio_set_state(std::uint32_t grp, std::int32_t pin, std::uint32_t state)
{
    if (grp > kMaxGroup) {
        log_notice_line(__func__, "gpio grp overflow");
        return -1;
    }
    // A negative pin turns into a huge one and so has no bit.
    const std::uint32_t bit = gpio_line_bit(grp, static_cast<std::uint32_t>(pin));
    if (bit == 0) {
        log_notice_line(__func__, "gpio pin overflow");
        return -1;
    }
    const std::uint32_t base = GPIO_GROUP_BASE[grp];
    std::uint32_t value = 0;
    if (gpio_read_reg(base, kGpioLevelReg, &value) != 0)
        return -1;
    value = state == 1 ? (value | bit) : (value & ~bit);
    return gpio_write_reg(base, kGpioLevelReg, value);
}

int signal_set(int on)
{
    const GpioLine *line = g_signal_line;
    if (line == nullptr)
        return 0;
    gpio_set_dir(line->grp, line->pin);
    const std::uint32_t level = on != 0 ? line->active_level : 1 - line->active_level;
    gpio_set_state(line->grp, static_cast<std::int32_t>(line->pin), level);
    return 0;
}
