#include "net/mac.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "log/log.h"
#include "base/shell.h"
#include "base/unique_fd.h"
#include "net/route.h"

namespace {

constexpr std::size_t kTextSize = 32; // MAC and gateway texts
constexpr const char kIfName[] = "eth0";
static_assert(sizeof kIfName <= IFNAMSIZ, "interface name fits ifr_name");

// Puts `text` into `word` as one shell word. False when the quoted form
// was cut, so it never reaches a command.
bool quote_word(const char *text, char (&word)[kCommandSize])
{
    return shell_quote(text, word, sizeof word) < sizeof word;
}

// Runs a formatted command, then names it in a debug line under `func`; a
// command that did not fit runs nothing.
void run_logged(const char *func, bool formatted, const char (&cmd)[kCommandSize])
{
    if (!formatted)
        return;
    run_command(cmd);
    log_notice(func, "excute %s\n", cmd);
}

} // namespace

int get_eth_mac_addr(char *buf, std::size_t size)
{
    unique_fd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock.ok())
        return -1;

    ifreq ifr{};
    std::memcpy(ifr.ifr_name, kIfName, sizeof kIfName);
    if (ioctl(sock.get(), SIOCGIFHWADDR, &ifr) < 0) {
        std::printf("init_private_ip get mac failed: %s \n", std::strerror(errno));
        return -1;
    }

    const auto *hw = reinterpret_cast<const unsigned char *>(ifr.ifr_hwaddr.sa_data);
    std::snprintf(buf, size, "%02x:%02x:%02x:%02x:%02x:%02x", hw[0], hw[1], hw[2], hw[3], hw[4],
                  hw[5]);
    return 0;
}

void set_eth_mac_addr(const char *mac)
{
    // Taken before the interface goes down, which drops the default route.
    char gw[kTextSize] = {};
    get_default_gw(gw);

    char word[kCommandSize];
    const bool quoted = quote_word(mac, word);
    char cmd[kCommandSize];

    run_command("ifconfig eth0 down");
    if (quoted && format_command(cmd, "ifconfig eth0 hw ether %s", word))
        run_command(cmd);
    run_command("ifconfig eth0 up");
    // The gateway text is digits and dots only (or empty): no quoting.
    if (format_command(cmd, "route add default gw  %s", gw))
        run_command(cmd);
}

void sync_mac_addr(const char *mac)
{
    // An address that cannot be read stays the empty text.
    char current[kTextSize] = {};
    get_eth_mac_addr(current, sizeof current);
    if (std::strcmp(mac, current) == 0)
        return;
    log_notice(__func__, "mac not match, dev_info mac = %s, eth0 mac = %s, restore it\n", mac,
               current);
    set_eth_mac_addr(mac);
}

void restore_mac_addr(const char *mac)
{
    set_eth_mac_addr(mac);

    char cmd[kCommandSize];
    run_logged(__func__, format_command(cmd, "rm %s", kMacFile), cmd);
    run_logged(__func__, format_command(cmd, "touch %s", kMacFile), cmd);
    char word[kCommandSize];
    const bool echo_ok =
        quote_word(mac, word) && format_command(cmd, "echo %s > %s", word, kMacFile);
    run_logged(__func__, echo_ok, cmd);
}
