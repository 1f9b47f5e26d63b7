// The choice between the flash record block and its copy, as rows over
// byte images: what a cut save, a cut erase, a foreign write or a broken
// copy leave, and what recovery makes of it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "devinfo/flash_copy.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kBlock = 1024;

Bytes Record(const char *name)
{
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    rec.magic = kDevInfoMagic;
    write_text_field(rec.board_name, name);
    const auto *p = reinterpret_cast<const std::uint8_t *>(&rec);
    return Bytes(p, p + sizeof rec);
}

const Bytes kOld = Record("OLD"), kNew = Record("NEW");
const std::string kTail = "calibration";

Bytes Block(const Bytes &rec)
{
    Bytes b(kBlock);
    build_record_block(b.data(), kBlock, rec.data(),
                       reinterpret_cast<const std::uint8_t *>(kTail.data()), kTail.size());
    return b;
}

Bytes Copy(std::uint32_t sequence = 7)
{
    Bytes b(kBlock);
    EXPECT_TRUE(build_copy(b.data(), kBlock, sequence, kNew.data(), kOld.data(),
                           reinterpret_cast<const std::uint8_t *>(kTail.data()), kTail.size()));
    return b;
}

// `to`'s first `n` bytes over `from`.
Bytes Cut(Bytes from, const Bytes &to, std::size_t n)
{
    std::copy(to.begin(), to.begin() + static_cast<long>(n), from.begin());
    return from;
}

Bytes Flip(Bytes b, std::size_t at)
{
    b[at] ^= 0x10;
    return b;
}

const Bytes kErased(kBlock, 0xFF);

} // namespace

TEST(FlashCopy, RecoveryChoosesTheWholeRecord)
{
    struct Row {
        const char *what;
        Bytes record, copy;
        Recovery want;
    };
    const Bytes garbage = Flip(Block(kOld), 3);
    const Row rows[] = {
        {"saved", Block(kNew), Copy(), Recovery::nothing},
        {"cut before the erase", Block(kOld), Copy(), Recovery::keep},
        {"erased", kErased, Copy(), Recovery::restore},
        {"partly erased", Cut(kErased, Block(kOld), 100), Copy(), Recovery::restore},
        {"partly programmed", Cut(kErased, Block(kNew), 70), Copy(), Recovery::restore},
        {"tail not yet programmed", Cut(kErased, Block(kNew), 280), Copy(), Recovery::restore},
        {"written by something else", Block(Record("DD")), Copy(), Recovery::keep},
        {"no magic, copy whole", garbage, Copy(), Recovery::restore},
        {"sequence wrapped", kErased, Copy(0xffffffff), Recovery::restore},
        {"torn copy", Block(kOld), Cut(kErased, Copy(), 300), Recovery::nothing},
        {"bad CRC", Block(kOld), Flip(Copy(), 40), Recovery::nothing},
        {"bad CRC, record erased", kErased, Flip(Copy(), 700 - 400), Recovery::none_whole},
        {"erased copy block", Block(kOld), kErased, Recovery::nothing},
        {"nothing anywhere", kErased, kErased, Recovery::none_whole},
        {"foreign copy block", garbage, Block(kNew), Recovery::none_whole},
    };
    for (const Row &r : rows) {
        const Decision d = decide_recovery(r.record.data(), r.copy.data(), kBlock);
        EXPECT_EQ(d.action, r.want) << r.what;
        if (d.copy_valid) {
            EXPECT_EQ(Bytes(d.copy.new_record, d.copy.new_record + kDevInfoSize), kNew) << r.what;
        }
    }
    EXPECT_EQ(decide_recovery(kErased.data(), Copy(0xffffffff).data(), kBlock).copy.sequence,
              0xffffffffu);
}

TEST(FlashCopy, CopyBlockKindsAndFit)
{
    EXPECT_EQ(classify_copy_block(kErased.data(), kBlock), CopyBlock::erased);
    EXPECT_EQ(classify_copy_block(Copy().data(), kBlock), CopyBlock::ours);
    EXPECT_EQ(classify_copy_block(Cut(kErased, Copy(), 2).data(), kBlock), CopyBlock::ours);
    EXPECT_EQ(classify_copy_block(Block(kOld).data(), kBlock), CopyBlock::foreign);
    Bytes b(kBlock);
    const Bytes tail(kBlock - kCopyFixedSize + 1, 0);
    EXPECT_FALSE(
        build_copy(b.data(), kBlock, 1, kNew.data(), kOld.data(), tail.data(), tail.size()));
    EXPECT_TRUE(
        build_copy(b.data(), kBlock, 1, kNew.data(), kOld.data(), tail.data(), tail.size() - 1));
    EXPECT_EQ(crc32(reinterpret_cast<const std::uint8_t *>("123456789"), 9), 0xCBF43926u);
}
