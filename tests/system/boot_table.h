// The rows of the board's start table (boot_test.cpp): what each row puts
// on the board and how it starts, and what the board must show afterwards.
#pragma once

#include "board.h"

#include <optional>
#include <ostream>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {

using Str = std::string;
using Strings = std::vector<Str>;

inline const Str kTag = "[bdsetup] NOTICE! ";
inline const Str kSandboxMac = "02:00:00:00:00:01"; // eth0 at the start of a run
inline const Str kSandboxGw = "192.168.77.1";
inline const Str kOtherMac = "02:12:34:56:78:9a";
inline const Str kDdns = "vrn_ddns_client started";
inline const Str kName31 = "BOARD_NAME_OF_31_CHARACTERS_XYZ";
// eth0 already carries the record's MAC: no network command unless a row wants them.
// The partition is larger than the record; the bytes behind it are never touched.
inline const Str kFlash = MakeRecord(0x851, "FROM_FLASH_0123456789", kSandboxMac) + Str(64, 'Z');
inline const Str kFile = MakeRecord(0x2222, "FROM_FILE_0123456789", kSandboxMac);
inline const Str kFirmwareFile = "a regular file where the marker directory belongs\n";
inline const Str kFlashRead = "do_read_dev_mtd:enter!";
inline const Str kFileRead = "do_read_file:read device info  file /tmp/rec success";

// A record text as one shell word: bare when it is only letters, digits
// and "._-:/+=,@", else in single quotes.
inline Str Word(const Str &text)
{
    return std::regex_match(text, std::regex("[A-Za-z0-9._:/+=,@-]*")) ? text : ShellQuote(text);
}

// A record text field as the board takes it: up to the first NUL, nothing
// at all when its 32 bytes hold none.
inline Str TextField(const Str &rec, std::size_t offset)
{
    const std::size_t nul = rec.substr(offset, 32).find('\0');
    return nul == Str::npos ? "" : rec.substr(offset, nul);
}

struct Row {
    explicit Row(Str row_name) : name(std::move(row_name)) {}

    Str name;
    std::optional<Str> record = kFlash;                             // /dev/mtdblock3
    std::vector<std::pair<Str, Str>> files = {{"/tmp/rec", kFile}}; // left as they were
    std::vector<std::pair<Str, Str>> puts;                          // put, then checked by `is`
    Str before, after;                                              // shell around the start
    Strings flags, args;
    Str until = kUntilGuiStarted;
    // What the start takes from the record.
    Str board_name = "FROM_FLASH_0123456789", mac = kSandboxMac, marker = "851";
    Str markers = "851\n"; // ls /firmware ("" for no check)
    // eth0's address at the start ("" for none), the gateway put back.
    Str eth0 = kSandboxMac, gw = kSandboxGw;
    Strings lines;     // the output right behind the echo, tags kept
    bool exits = false; // help and version: status 0, nothing else runs
    Str shm = "size=96 mode=0604";
    bool block_written = true, memcheck = false;
    std::vector<std::pair<Str, Str>> shows, is; // a file contains / equals a text
    std::vector<std::pair<Str, Str>> same;      // two files equal
    Str not_on_board;                           // why a board cannot set the row up

    Row &Record(std::optional<Str> r) { record = std::move(r); return *this; }
    Row &File(Str path, Str bytes) { files.emplace_back(path, bytes); return *this; }
    Row &Puts(Str path, Str bytes) { puts.emplace_back(path, bytes); return *this; }
    Row &Before(Str s) { before += s + "\n"; return *this; }
    Row &After(Str s) { after += s + "\n"; return *this; }
    Row &Args(Strings a) { args = std::move(a); return *this; }
    Row &Until(Str u) { until = std::move(u); return *this; }
    Row &Takes(Str n, Str m, Str id) { board_name = n, mac = m, marker = id, markers = id + "\n"; return *this; }
    Row &Markers(Str listing) { markers = std::move(listing); return *this; }
    Row &Eth0(Str start) { flags.insert(flags.end(), {"--mac", start}), eth0 = start; return *this; }
    Row &Gw(Str g) { gw = std::move(g); return *this; }
    Row &NoEth0() { flags.push_back("--no-eth0"), eth0 = "", gw = ""; return *this; }
    Row &Lines(Strings l) { lines = std::move(l); return *this; }
    Row &Exits() { exits = true; return *this; }
    Row &Shm(Str info, bool written) { shm = std::move(info), block_written = written; return *this; }
    Row &Memcheck() { memcheck = true; return *this; }
    Row &Shows(Str path, Str text) { shows.emplace_back(path, text); return *this; }
    Row &Out(Str text) { return Shows("/tmp/hw.out", text); }
    Row &Log(Str func_message) { return Out(kTag + func_message + "\n"); }
    Row &Is(Str path, Str bytes) { is.emplace_back(path, bytes); return *this; }
    Row &Same(Str a, Str b) { same.emplace_back(a, b); return *this; }
    Row &NotOnBoard(Str why) { not_on_board = std::move(why); return *this; }
};

inline void PrintTo(const Row &r, std::ostream *os) { *os << r.name; }

// Every row of the table, in order.
const std::vector<Row> &BootRows();

} // namespace hwtest
