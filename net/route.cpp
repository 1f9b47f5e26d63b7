#include "net/route.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace {

// Wire layout of what is read here; the kernel's own structs are used only
// to build the request, replies are read field by field with memcpy since
// a datagram gathered behind another one need not be aligned for them.
constexpr std::size_t kNlHeaderSize = 16;    // nlmsghdr
constexpr std::size_t kNlLenOffset = 0;      // u32 nlmsg_len
constexpr std::size_t kNlTypeOffset = 4;     // u16 nlmsg_type
constexpr std::size_t kNlFlagsOffset = 6;    // u16 nlmsg_flags
constexpr std::size_t kRtmFamilyOffset = 16; // u8 rtm_family
constexpr std::size_t kRtmTableOffset = 20;  // u8 rtm_table
constexpr std::size_t kRtaStart = 28;        // nlmsghdr + rtmsg
constexpr std::size_t kRtaHeaderSize = 4;    // u16 rta_len, u16 rta_type
constexpr std::size_t kRtaTypeOffset = 2;
constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kRequestSize = kRtaStart;

static_assert(sizeof(nlmsghdr) == kNlHeaderSize, "nlmsghdr is 16 bytes");
static_assert(offsetof(nlmsghdr, nlmsg_len) == kNlLenOffset, "nlmsg_len offset");
static_assert(offsetof(nlmsghdr, nlmsg_type) == kNlTypeOffset, "nlmsg_type offset");
static_assert(offsetof(nlmsghdr, nlmsg_flags) == kNlFlagsOffset, "nlmsg_flags offset");
static_assert(offsetof(nlmsghdr, nlmsg_seq) == 8, "nlmsg_seq offset");
static_assert(offsetof(nlmsghdr, nlmsg_pid) == 12, "nlmsg_pid offset");
static_assert(sizeof(rtmsg) == kRtaStart - kNlHeaderSize, "rtmsg is 12 bytes");
static_assert(offsetof(rtmsg, rtm_family) == kRtmFamilyOffset - kNlHeaderSize, "rtm_family offset");
static_assert(offsetof(rtmsg, rtm_table) == kRtmTableOffset - kNlHeaderSize, "rtm_table offset");
static_assert(sizeof(rtattr) == kRtaHeaderSize, "rtattr is 4 bytes");
static_assert(offsetof(rtattr, rta_type) == kRtaTypeOffset, "rta_type offset");
static_assert(kRouteBufSize >= kRequestSize, "the request is built in the buffer");

static_assert(RTM_GETROUTE == 26 && (NLM_F_REQUEST | NLM_F_DUMP) == 0x0301, "request values");
static_assert(NLMSG_ERROR == 2 && NLMSG_DONE == 3 && NLM_F_MULTI == 0x0002, "reply values");
static_assert(AF_INET == 2 && RT_TABLE_MAIN == 254 && RTA_DST == 1 && RTA_GATEWAY == 5,
              "route values");

std::uint16_t load_u16(const unsigned char *p)
{
    std::uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

std::uint32_t load_u32(const unsigned char *p)
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Netlink pads every message and attribute to a multiple of 4.
std::ptrdiff_t align4(std::uint32_t len)
{
    return static_cast<std::ptrdiff_t>((static_cast<std::size_t>(len) + 3) & ~std::size_t{3});
}

void build_request(unsigned char *buf)
{
    nlmsghdr hdr{};
    hdr.nlmsg_len = kRequestSize;
    hdr.nlmsg_type = RTM_GETROUTE;
    hdr.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    hdr.nlmsg_seq = 0;
    hdr.nlmsg_pid = static_cast<std::uint32_t>(getpid());
    // The 12 rtmsg bytes stay zero: every family, every table.
    std::memcpy(buf, &hdr, sizeof hdr);
}

} // namespace

int read_nl_sock(int sock, unsigned char *buf)
{
    std::size_t total = 0;
    for (;;) {
        unsigned char *pos = buf + total;
        // Once the buffer is full this asks for 0 bytes and gets 0, which
        // fails below as a runt: a dump that does not fit is an error.
        const ssize_t n = recv(sock, pos, kRouteBufSize - total, 0);
        if (n < 0) {
            std::perror("SOCK READ: ");
            return -1;
        }
        const auto got = static_cast<std::size_t>(n);
        if (got < kNlHeaderSize) {
            std::perror("Error in recieved packet");
            return -1;
        }
        const std::uint32_t len = load_u32(pos + kNlLenOffset);
        const std::uint16_t type = load_u16(pos + kNlTypeOffset);
        const std::uint16_t flags = load_u16(pos + kNlFlagsOffset);
        if (len < kNlHeaderSize || len > got || type == NLMSG_ERROR) {
            std::perror("Error in recieved packet");
            return -1;
        }
        if (type == NLMSG_DONE)
            return static_cast<int>(total);
        total += got;
        if ((flags & NLM_F_MULTI) == 0)
            return static_cast<int>(total);
    }
}

void parse_route_msg(const unsigned char *msg, std::size_t len, RouteInfo *info, char *gw_text)
{
    if (len <= kRtmTableOffset)
        return;
    if (msg[kRtmFamilyOffset] != AF_INET || msg[kRtmTableOffset] != RT_TABLE_MAIN)
        return;

    // Signed: a padded step past the last attribute leaves it negative.
    std::ptrdiff_t off = kRtaStart;
    std::ptrdiff_t remaining = static_cast<std::ptrdiff_t>(len) - off;
    while (remaining >= static_cast<std::ptrdiff_t>(kRtaHeaderSize)) {
        const unsigned char *attr = msg + off;
        const std::uint16_t rta_len = load_u16(attr);
        if (rta_len < kRtaHeaderSize || rta_len > remaining)
            break;
        const std::uint16_t type = load_u16(attr + kRtaTypeOffset);
        // A payload too short for an address is not read at all.
        if (rta_len >= kRtaHeaderSize + kIpv4Size) {
            if (type == RTA_DST)
                std::memcpy(&info->dst, attr + kRtaHeaderSize, kIpv4Size);
            else if (type == RTA_GATEWAY)
                std::memcpy(&info->gw, attr + kRtaHeaderSize, kIpv4Size);
        }
        off += align4(rta_len);
        remaining -= align4(rta_len);
    }

    if (info->dst != 0)
        return;
    in_addr gw{};
    gw.s_addr = info->gw;
    // Dotted decimal, as inet_ntoa gives it, but into the caller's buffer.
    inet_ntop(AF_INET, &gw, gw_text, INET_ADDRSTRLEN);
}

void walk_route_dump(const unsigned char *buf, std::size_t total, char *gw_text)
{
    RouteInfo info{};
    std::ptrdiff_t off = 0;
    std::ptrdiff_t remaining = static_cast<std::ptrdiff_t>(total);
    while (remaining >= static_cast<std::ptrdiff_t>(kNlHeaderSize)) {
        const unsigned char *msg = buf + off;
        const std::uint32_t len = load_u32(msg + kNlLenOffset);
        if (len < kNlHeaderSize || len > static_cast<std::size_t>(remaining))
            break;
        info = RouteInfo{};
        parse_route_msg(msg, len, &info, gw_text);
        off += align4(len);
        remaining -= align4(len);
    }
}

int get_default_gw(char *gw_text)
{
    unique_fd sock(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!sock.ok()) {
        std::perror("Socket Creation: ");
        return -1;
    }

    unsigned char buf[kRouteBufSize] = {};
    build_request(buf);
    // Unbound and unaddressed: the datagram goes to the kernel.
    if (send(sock.get(), buf, kRequestSize, 0) < 0) {
        sock.reset();
        std::printf("Write To Socket Failed.../n");
        return -1;
    }

    const int total = read_nl_sock(sock.get(), buf);
    if (total < 0) {
        std::printf("Read From Socket Failed.../n");
        return -1;
    }
    walk_route_dump(buf, static_cast<std::size_t>(total), gw_text);
    return 0;
}
