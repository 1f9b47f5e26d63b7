#include "app/startup.h"

#include <cstring>

#include "ax630c_qm/signal.h"
#include "devinfo/devinfo.h"
#include "log/log.h"
#include "net/mac.h"

char dev_file_path[kPathSize];

int start_device(CDevice *dev)
{
    if (dev_file_path[0] != '\0')
        dev->SetDevFile(dev_file_path);

    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    // An unreadable record is not fatal: boot goes on with what it holds.
    dev->ReadDevInfo(&rec);

    char mac[kTextFieldSize];
    read_text_field(rec.mac, mac);
    sync_mac_addr(mac);

    boot(0, &rec, dev);
    return 0;
}

namespace {

// One pass over the pattern through an on/off switch of the board.
template <typename Switch>
void show_pass(const char *pattern, Switch &&set, int (*sleep_ms)(std::uint32_t))
{
    for (const char *p = pattern; *p != '\0'; ++p) {
        set(1);
        sleep_ms(beep_on_ms(*p));
        set(0);
        sleep_ms(kBeepGapMs);
    }
}

} // namespace

int show_result(std::uint32_t code, CDevice *dev, int (*sleep_ms)(std::uint32_t))
{
    if (code >= kStatusPatterns.size()) {
        log_notice("show_result", "type_%d not support!\n",
                   static_cast<int>(code));
        return 0;
    }
    const char *pattern = kStatusPatterns[code];
    show_pass(pattern, [dev](int on) { dev->Buzzer(on); }, sleep_ms);
    show_pass(pattern, [dev](int on) { dev->Indicator(on); }, sleep_ms);
    return 0;
}
