// The choice between the flash record block and its copy, as rows over
// byte images: what a cut save, a cut erase, a foreign write or a broken
// copy leave, what recovery makes of it, and what a start reads - the same
// choice, reading only what it needs. Crafted headers with a right CRC
// break every size rule of the copy and are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "devinfo/copy_block.h"
#include "devinfo/flash_read.h"

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

// The record block and, when given, the copy block, as a flash that only
// reads (and counts what it read).
class Blocks final : public Flash {
public:
    Blocks(const Bytes &record, const Bytes &copy) : mem(record)
    {
        mem.insert(mem.end(), copy.begin(), copy.end());
    }
    FlashGeometry geometry() const override
    {
        return {static_cast<std::uint32_t>(mem.size()), kBlock, 1};
    }
    bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) override
    {
        EXPECT_LE(offset + size, mem.size());
        std::memcpy(buf, mem.data() + offset, size);
        read_bytes += size;
        return true;
    }
    bool erase(std::uint32_t) override { return Wrote(); }
    bool program(std::uint32_t, const std::uint8_t *, std::size_t) override { return Wrote(); }
    int is_bad(std::uint32_t) override { return 0; }

    Bytes mem;
    std::size_t read_bytes = 0;

private:
    static bool Wrote()
    {
        ADD_FAILURE() << "a read wrote";
        return false;
    }
};

// What a start reads from the two blocks: the copy's new record, or ""
// when it takes the record block as it is. Like hw_start, it hands over
// the record's bytes it has read already.
std::string StartReads(Blocks &f)
{
    dev_info rec;
    std::memcpy(&rec, f.mem.data(), sizeof rec);
    CopyChoice how = {};
    if (!read_copy_choice(f, &rec, &how, reinterpret_cast<const std::uint8_t *>(&rec), sizeof rec))
        return "";
    const auto *p = reinterpret_cast<const char *>(&rec);
    return std::string(p, sizeof rec);
}

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
        {"torn copy", Block(kOld), Cut(kErased, Copy(), 300), Recovery::nothing},
        {"bad CRC", Block(kOld), Flip(Copy(), 40), Recovery::nothing},
        {"bad CRC, record erased", kErased, Flip(Copy(), 700 - 400), Recovery::none_whole},
        {"erased copy block", Block(kOld), kErased, Recovery::nothing},
        {"nothing anywhere", kErased, kErased, Recovery::none_whole},
        {"foreign copy block", garbage, Block(kNew), Recovery::none_whole},
    };
    const std::string news(kNew.begin(), kNew.end());
    for (const Row &r : rows) {
        const Decision d = decide_recovery(r.record.data(), r.copy.data(), kBlock);
        EXPECT_EQ(d.action, r.want) << r.what;
        if (d.copy_valid) {
            EXPECT_EQ(Bytes(d.copy.new_record, d.copy.new_record + kDevInfoSize), kNew) << r.what;
        }
        // A start takes the copy exactly where recovery would restore it;
        // a whole record is read without the rest of its erase block.
        Blocks f(r.record, r.copy);
        EXPECT_EQ(StartReads(f), r.want == Recovery::restore ? news : "") << r.what;
        if (r.want == Recovery::nothing || r.want == Recovery::keep) {
            EXPECT_LE(f.read_bytes,
                      sizeof(CopyHeader) + kCopyFixedSize + kDevInfoSize + 2 * kTail.size())
                << r.what;
        }
    }
    Blocks no_copy_block(kErased, {});
    EXPECT_EQ(StartReads(no_copy_block), "") << "a partition of one erase block";
}

TEST(FlashCopy, CopyBlockKindsAndFit)
{
    const auto first_word = [](const Bytes &b) {
        std::uint32_t w;
        std::memcpy(&w, b.data(), sizeof w);
        return w;
    };
    EXPECT_FALSE(foreign_copy_block(first_word(kErased)));
    EXPECT_FALSE(foreign_copy_block(first_word(Copy())));
    EXPECT_FALSE(foreign_copy_block(first_word(Cut(kErased, Copy(), 2))));
    EXPECT_TRUE(foreign_copy_block(first_word(Block(kOld))));
    Bytes b(kBlock);
    const Bytes tail(kBlock - kCopyFixedSize + 1, 0);
    EXPECT_FALSE(
        build_copy(b.data(), kBlock, 1, kNew.data(), kOld.data(), tail.data(), tail.size()));
    EXPECT_TRUE(
        build_copy(b.data(), kBlock, 1, kNew.data(), kOld.data(), tail.data(), tail.size() - 1));
}

// A copy whose header `edit` changed, with the CRC made right again over
// what the header now says (read on past the block where it says so).
Bytes Crafted(void (*edit)(CopyHeader &))
{
    Bytes big(2 * kBlock, 0xFF);
    const Bytes tail(kBlock - kCopyFixedSize, 0x11); // a copy that fills its block
    EXPECT_TRUE(
        build_copy(big.data(), kBlock, 3, kNew.data(), kOld.data(), tail.data(), tail.size()));
    CopyHeader h;
    std::memcpy(&h, big.data(), sizeof h);
    edit(h);
    const auto *head = reinterpret_cast<const std::uint8_t *>(&h);
    const std::size_t payload = std::min<std::size_t>(h.payload_size, big.size() - sizeof h);
    h.crc = crc32(big.data() + sizeof h, payload, crc32(head, offsetof(CopyHeader, crc)));
    std::memcpy(big.data(), &h, sizeof h);
    return Bytes(big.begin(), big.begin() + kBlock);
}

// Each size rule of the header alone keeps a crafted copy out, although its
// CRC is right: nothing is taken from it and nothing read past the block.
TEST(FlashCopy, EveryHeaderRuleHoldsAgainstARightCrc)
{
    struct Row {
        const char *what;
        void (*edit)(CopyHeader &);
        bool valid;
    };
    const Row rows[] = {
        {"as built: the tail fills the block", [](CopyHeader &) {}, true},
        {"magic", [](CopyHeader &h) { h.magic ^= 0x100; }, false},
        {"version", [](CopyHeader &h) { h.version = 2; }, false},
        {"header size", [](CopyHeader &h) { h.header_size = 28; }, false},
        {"record size", [](CopyHeader &h) { h.record_size = 281; }, false},
        {"reserved word", [](CopyHeader &h) { h.reserved = 1; }, false},
        {"payload past the block",
         [](CopyHeader &h) {
             ++h.payload_size;
             ++h.tail_size;
         },
         false},
        // Payload less tail wraps round to two records.
        {"tail larger than the payload",
         [](CopyHeader &h) {
             h.payload_size = 100;
             h.tail_size = 100u - 560u;
         },
         false},
        {"payload not two records and the tail", [](CopyHeader &h) { --h.payload_size; }, false},
        {"payload huge, tail to match",
         [](CopyHeader &h) {
             h.payload_size = 0xFFFFFFFFu;
             h.tail_size = 0xFFFFFFFFu - 2 * kDevInfoSize;
         },
         false},
    };
    for (const Row &r : rows) {
        const Bytes copy = Crafted(r.edit);
        // Exactly the block on the heap: a read past it is caught by the
        // sanitizer build.
        std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[kBlock]);
        std::memcpy(block.get(), copy.data(), kBlock);
        CopyView v;
        EXPECT_EQ(parse_copy(block.get(), kBlock, &v), r.valid) << r.what;
        EXPECT_EQ(copy_size(block.get(), kBlock) != 0, r.valid) << r.what;
        Blocks f(kErased, copy);
        EXPECT_EQ(StartReads(f).empty(), !r.valid) << r.what;
    }
}

// The test vectors of docs/record-format.md: each ```hex block is a
// partition image ("OFFSET: HH HH*N ...", 0xFF where no byte is given) and
// what a start publishes from it.
TEST(FlashCopy, RecordFormatPageVectors)
{
    std::ifstream page(HW_SOURCE_DIR "/docs/record-format.md");
    Blocks f(kErased, kErased);
    int vectors = 0;
    for (std::string line, name; std::getline(page, line);) {
        std::istringstream in(line);
        std::string word;
        in >> word;
        if (word == "vector:") {
            name = line;
            f.mem.assign(2 * kBlock, 0xFF);
        } else if (word == "publishes:") {
            const std::string copy = StartReads(f);
            dev_info rec;
            std::memcpy(&rec, copy.empty() ? static_cast<const void *>(f.mem.data()) : copy.data(),
                        sizeof rec);
            char board_name[kTextFieldSize], mac[kTextFieldSize];
            read_text_field(rec.board_name, board_name);
            read_text_field(rec.mac, mac);
            EXPECT_EQ(word + (copy.empty() ? " record block" : " copy") + ": board_name=\"" +
                          board_name + "\" mac=\"" + mac + "\"",
                      line)
                << name;
            ++vectors;
            name.clear();
        } else if (!name.empty()) {
            for (std::size_t at = std::stoul(word, nullptr, 16); in >> word;) {
                const auto byte = static_cast<std::uint8_t>(std::stoul(word, nullptr, 16));
                for (std::size_t n = word.size() > 3 ? std::stoul(word.substr(3)) : 1; n > 0; --n)
                    f.mem.at(at++) = byte;
            }
        }
    }
    EXPECT_EQ(vectors, 6);
}
