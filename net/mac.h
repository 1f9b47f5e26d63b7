// Makes eth0 carry the recorded MAC address, through the board's shell
// tools, and puts the default route back afterwards.
#pragma once

#include <cstddef>

constexpr const char kMacFile[] = "/config/mac";

// Writes eth0's current address as "xx:xx:xx:xx:xx:xx" into `buf`
// (bounded by `size`). 0 on success; -1 when no socket could be opened
// (silently) or the address could not be read (after the plain line
// "init_private_ip get mac failed: <reason> "); `buf` is not written then.
int get_eth_mac_addr(char *buf, std::size_t size);

// Takes eth0 down, gives it `mac`, brings it up and restores the default
// route found before. `mac` goes into the shell as exactly one word.
void set_eth_mac_addr(const char *mac);

// Compares `mac` with eth0's address (an unreadable address counts as the
// empty text) and sets it when they differ; equal texts run nothing.
void sync_mac_addr(const char *mac);

// Sets `mac` without comparing, then rewrites /config/mac with it.
void restore_mac_addr(const char *mac);
