// The AX620Q board object and the factory that alone names it.
#include "ax630c_qm/device.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

#include "ax630c_qm/signal.h"
#include "devinfo/devinfo.h"
#include "log/log.h"
#include "base/shell.h"
#include "net/mac.h"

CAX620Q::CAX620Q()
{
    std::memset(&guid, 0, sizeof guid);
    std::snprintf(dev_file, sizeof dev_file, "%s", kFlashDevice);
    g_signal_line = &kAX620QProfile.signal_line;
}

int CAX620Q::CheckDevice()
{
    return 0;
}

int CAX620Q::GetGuid(GUID *out)
{
    std::memset(out, 0, sizeof *out);
    std::memcpy(out, &guid, sizeof guid);
    return 0;
}

int CAX620Q::SetDevFile(const char *path)
{
    if (path[0] == '\0')
        return 0;
    std::snprintf(dev_file, sizeof dev_file, "%s", path);
    log_notice(__func__, "set dev info file %s\n", path);
    return 0;
}

int CAX620Q::ReadDevInfo(dev_info *rec)
{
    return dev_store_read(dev_file, rec);
}

int CAX620Q::SaveDevInfo(const dev_info *rec)
{
    if (dev_store_save(dev_file, rec) != 0)
        return -1;
    char mac[kTextFieldSize];
    read_text_field(rec->mac, mac);
    restore_mac_addr(mac);
    return 0;
}

int CAX620Q::CreateWorkModeID(std::uint32_t id)
{
    log_notice_line(__func__, "begin firmware");
    if (::access("/firmware", F_OK) != 0)
        run_command("mkdir /firmware");

    log_notice_line(__func__, "begin remove");
    char own[64];
    std::snprintf(own, sizeof own, "/firmware/%s", kAX620QProfile.board_id_text);
    if (::access(own, F_OK) == 0) {
        std::remove(own);
        log_notice(__func__, "remove %s\n", own);
    }

    log_notice_line(__func__, "begin touch");
    char cmd[kCommandSize];
    if (format_command(cmd, "touch /firmware/%x", static_cast<unsigned>(id)))
        run_command(cmd);
    return 0;
}

void CAX620Q::Indicator(int)
{
}

int CAX620Q::Buzzer(std::int32_t code)
{
    const auto index = static_cast<std::uint32_t>(code);
    if (index < kStatusPatterns.size())
        signal_play(kStatusPatterns[index]);
    else
        log_notice(__func__, "type_%d not support!\n", code);
    return 0;
}

CDevice *CreateDevice(const char *)
{
    // malloc and placement new: a failed allocation gives null without
    // needing the C++ runtime's throwing operator new.
    void *mem = std::malloc(sizeof(CAX620Q));
    if (mem == nullptr)
        return nullptr;
    return new (mem) CAX620Q();
}
