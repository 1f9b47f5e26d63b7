#include "ax630c_qm/signal.h"

#include <cstring>

#include "ax630c_qm/gpio.h"
#include "log/log.h"

int signal_play(const char *pattern)
{
    if (pattern == nullptr)
        return 0;
    for (std::size_t i = 0; i < std::strlen(pattern); ++i) {
        signal_set(1);
        msleep(beep_on_ms(pattern[i]));
        signal_set(0);
        msleep(kBeepGapMs);
    }
    return 0;
}
