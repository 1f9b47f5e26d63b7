#include "ax630c_qm/signal.h"

#include <cstring>

#include "ax630c_qm/gpio.h"

int signal_play(const char *pattern, int (*sleep_ms)(std::uint32_t))
{
    if (pattern == nullptr)
        return 0;
    for (std::size_t i = 0; i < std::strlen(pattern); ++i) {
        signal_set(1);
        sleep_ms(beep_on_ms(pattern[i]));
        signal_set(0);
        sleep_ms(kBeepGapMs);
    }
    return 0;
}
