// What devinfo's system tests share: the real binary put into the board
// sandbox as /sbin/devinfo, and a record with every byte set.
//
//   HW_DEVINFO_BIN   the devinfo binary under test (default: this build's)
#pragma once

#include "board.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace hwtest {

using Str = std::string;

// Runs through the emulator of a cross build, like `hw`.
inline const Str kPrelude = "devinfo() { $HW_RUNNER /sbin/devinfo \"$@\"; }\n";
inline const Str kGuid = "0102030405060708090a0b0c0d0e0f101112131415161718"; // bytes 1..24

// `bytes` at the start of the `size`-byte field at `offset`, the rest zero.
inline Str Patch(Str rec, std::size_t offset, const Str &bytes, std::size_t size = 32)
{
    rec.replace(offset, size, size, '\0');
    return rec.replace(offset, bytes.size(), bytes);
}

// GUID and reserved bytes not zero, so a save that loses or moves them shows.
inline const Str kRec = [] {
    Str rec = MakeRecord(0x851, "IPC_AX620Q", "02:12:34:56:78:9a", "P2P-SAMPLE-0001");
    for (int i = 0; i < 24; ++i)
        rec[8 + i] = static_cast<char>(i + 1);
    for (std::size_t i = 132; i < rec.size(); ++i)
        rec[i] = static_cast<char>(i * 7);
    return rec;
}();

inline Str Mac(const Str &text)
{
    return Patch(kRec, 68, text);
}

class DevinfoTest : public BoardTest {
protected:
    void SetUp() override
    {
        BoardTest::SetUp();
        if (IsSkipped())
            return;
        const char *env = std::getenv("HW_DEVINFO_BIN");
        std::ifstream in(env != nullptr && *env != '\0' ? env : HW_DEVINFO_BIN_DEFAULT,
                         std::ios::binary);
        ASSERT_TRUE(in) << "no devinfo binary";
        board.Put("/sbin/devinfo", Str(std::istreambuf_iterator<char>(in), {}), 0755);
    }

    RunResult Sh(const Str &script) { return board.Run(kPrelude + script); }
};

} // namespace hwtest
