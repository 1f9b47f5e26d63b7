// IPv4 default gateway of the kernel's main routing table, read over an
// rtnetlink route dump.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr std::size_t kRouteBufSize = 8192;

// Scratch record for one route message; network byte order.
struct RouteInfo {
    std::uint32_t dst;
    std::uint32_t gw;
};

// Gathers the dump's reply datagrams one behind the other into `buf`
// (kRouteBufSize bytes) until NLMSG_DONE or a datagram without
// NLM_F_MULTI. Returns the bytes gathered (the NLMSG_DONE datagram not
// counted), or -1 after a perror line on a receive error, a runt or
// malformed first header, or an NLMSG_ERROR reply.
int read_nl_sock(int sock, unsigned char *buf);

// Examines one message of `len` bytes (its nlmsg_len, already checked to
// lie within the gathered bytes) and reads nothing beyond them; `info`
// comes zeroed. A main-table IPv4 route whose destination is 0.0.0.0 (a
// missing RTA_DST counts as that) writes its gateway's dotted-decimal text
// ("0.0.0.0" without RTA_GATEWAY) into `gw_text` (at least 16 bytes);
// anything else, a message too short to hold rtm_table included, leaves it
// alone. Attributes whose payload is shorter than an address are ignored.
void parse_route_msg(const unsigned char *msg, std::size_t len, RouteInfo *info, char *gw_text);

// Walks `total` gathered bytes message by message with a signed remaining
// count, parse_route_msg on each; a message that runs past the end stops
// the walk without failing. The last default route in dump order wins.
void walk_route_dump(const unsigned char *buf, std::size_t total, char *gw_text);

// Looks the default gateway up into `gw_text` (at least 16 bytes). 0 when
// the table was read, whether or not a default route was found (the buffer
// is then untouched); -1 after the failure lines, buffer untouched.
int get_default_gw(char *gw_text);
