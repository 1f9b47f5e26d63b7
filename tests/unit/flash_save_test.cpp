// Saves and recovery on simulated flash: a NOR-like one (programs byte by
// byte) and a NAND-like one (whole pages, a bad block where the copy would
// go). A power cut after every step of a save, and again after every step
// of the recovery that follows, must leave the old or the new record whole
// with the tail unchanged, and a start that reads without recovering must
// read one of the two. The refusals write nothing.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "devinfo/flash_read.h"
#include "devinfo/flash_save.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

class SimFlash final : public Flash {
public:
    SimFlash(FlashGeometry geo, bool nand, std::uint32_t bad)
        : geo_(geo), nand_(nand), bad_(bad), mem(geo.size, 0xFF)
    {
    }

    FlashGeometry geometry() const override { return geo_; }
    bool read(std::uint32_t offset, std::uint8_t *buf, std::size_t size) override
    {
        std::memcpy(buf, mem.data() + offset, size);
        return alive();
    }
    // Half the block, then the other half: a cut leaves it partly erased.
    bool erase(std::uint32_t offset) override
    {
        ++erases;
        EXPECT_EQ(offset % geo_.erase_size, 0u);
        EXPECT_NE(offset, bad_) << "a bad block is never used";
        const std::size_t half = geo_.erase_size / 2;
        for (std::size_t part = 0; part < 2; ++part) {
            if (!step())
                return false;
            std::memset(mem.data() + offset + part * half, 0xFF, half);
        }
        return true;
    }
    // A program only clears bits; NAND takes whole pages, once per erase.
    bool program(std::uint32_t offset, const std::uint8_t *buf, std::size_t size) override
    {
        ++programs;
        EXPECT_NE(offset / geo_.erase_size, bad_ / geo_.erase_size) << "a bad block is never used";
        EXPECT_TRUE(offset % geo_.write_size == 0 && size % geo_.write_size == 0);
        const std::size_t unit = nand_ ? geo_.write_size : 1;
        for (std::size_t i = 0; i < size; i += unit) {
            if (!step())
                return false;
            for (std::size_t j = i; j < i + unit && offset - offset % geo_.erase_size != stuck; ++j)
                mem[offset + j] &= buf[j];
            programmed += unit;
        }
        return true;
    }
    int is_bad(std::uint32_t offset) override { return offset == bad_ ? 1 : 0; }

    // Power back on, to be cut after `steps` more steps (negative: never).
    void PowerOn(long steps)
    {
        cut = false;
        budget = steps;
    }

    long budget = -1;
    bool cut = false;
    std::uint32_t stuck = ~0u; // an erase block that takes no program (and says nothing)
    int erases = 0, programs = 0;
    std::size_t programmed = 0;

private:
    bool alive()
    {
        errno = EIO;
        return !cut;
    }
    bool step()
    {
        cut = cut || budget == 0;
        if (budget > 0)
            --budget;
        return alive();
    }

    FlashGeometry geo_;
    bool nand_;
    std::uint32_t bad_;

public:
    Bytes mem;
};

struct Board {
    const char *name;
    FlashGeometry geo;
    bool nand;
    std::uint32_t bad;
};

// NOR: 4 KiB sectors, write size 1. NAND: 16 KiB blocks, 512-byte pages, block 1 bad.
const Board kBoards[] = {{"NOR", {0x10000, 0x1000, 1}, false, ~0u},
                         {"NAND", {0x10000, 0x4000, 512}, true, 0x4000}};

dev_info Record(const char *name)
{
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    rec.magic = kDevInfoMagic;
    write_text_field(rec.board_name, name);
    return rec;
}

const std::string kTail = "factory calibration 0123456789";

Bytes BlockOf(const dev_info &rec, std::size_t size)
{
    Bytes b(size);
    build_record_block(b.data(), size, reinterpret_cast<const std::uint8_t *>(&rec),
                       reinterpret_cast<const std::uint8_t *>(kTail.data()), kTail.size());
    return b;
}

// As devinfo saves: in place only when asked and there is no copy block.
struct Options {
    bool in_place, take_copy_block;
};

SaveResult Save(SimFlash &f, const dev_info &rec, Options options = {false, false})
{
    FlashState st;
    Refusal refusal = Refusal::none;
    if (!load_flash(f, &st))
        return SaveResult::kept;
    if (options.in_place && st.copy.at == 0)
        return save_in_place(f, st, rec);
    return save_to_flash(f, st, rec, options.take_copy_block, &refusal);
}

void Recover(SimFlash &f)
{
    FlashState st;
    if (load_flash(f, &st))
        recover_flash(f, st);
}

// The flash of `b` holding `rec` and the tail in block 0, nothing else.
SimFlash Fresh(const Board &b, const dev_info &rec)
{
    SimFlash f(b.geo, b.nand, b.bad);
    const Bytes block = BlockOf(rec, b.geo.erase_size);
    std::copy(block.begin(), block.end(), f.mem.begin());
    return f;
}

// The record a start reads from the flash as `cut` left it, without
// recovering: the copy's where the record block is torn, else bytes 0-279.
Bytes StartReads(const SimFlash &cut)
{
    SimFlash g = cut;
    g.PowerOn(-1);
    dev_info rec;
    CopyChoice how;
    const std::uint8_t *p = g.mem.data();
    if (read_copy_choice(g, &rec, &how))
        p = reinterpret_cast<const std::uint8_t *>(&rec);
    EXPECT_EQ(g.mem, cut.mem) << "a read wrote";
    return Bytes(p, p + kDevInfoSize);
}

Bytes RecordOf(const dev_info &rec)
{
    const auto *p = reinterpret_cast<const std::uint8_t *>(&rec);
    return Bytes(p, p + sizeof rec);
}

} // namespace

// The record block after a recovery cut after `j` steps (never when j < 0)
// and a whole one; a start after that cut reads `a` or `b`.
Bytes Recovered(const SimFlash &cut, long j, bool *whole, const Bytes &a, const Bytes &b)
{
    SimFlash g = cut;
    g.PowerOn(j);
    Recover(g);
    *whole = !g.cut;
    const Bytes read = StartReads(g);
    EXPECT_TRUE(read == a || read == b) << "a start after a cut recovery";
    g.PowerOn(-1);
    Recover(g);
    return Bytes(g.mem.begin(), g.mem.begin() + g.geometry().erase_size);
}

TEST(FlashSave, NoRecordLostAtAnyCut)
{
    const dev_info a = Record("A"), b = Record("B");
    for (const Board &board : kBoards) {
        SimFlash base = Fresh(board, a);
        ASSERT_EQ(Save(base, b), SaveResult::saved) << board.name; // the first copy
        std::printf("[ %s ] a save: %d erases, %d program calls, %zu bytes programmed\n",
                    board.name, base.erases, base.programs, base.programmed);
        EXPECT_EQ(base.erases, 2) << board.name;
        EXPECT_EQ(base.programs, 2) << board.name;
        const Bytes olds = BlockOf(b, board.geo.erase_size),
                    news = BlockOf(a, board.geo.erase_size);
        long k = 0;
        for (;; ++k) {
            SimFlash f = base;
            f.PowerOn(k);
            const SaveResult r = Save(f, a);
            if (!f.cut) {
                EXPECT_EQ(r, SaveResult::saved);
                EXPECT_EQ(Bytes(f.mem.begin(), f.mem.begin() + board.geo.erase_size), news);
                break;
            }
            // A start that runs no recovery reads one of the two.
            const Bytes read = StartReads(f);
            ASSERT_TRUE(read == RecordOf(a) || read == RecordOf(b))
                << board.name << ": save cut at step " << k;
            // The recovery that follows is cut at every step of it too.
            bool whole = false;
            for (long j = 0; !whole; ++j) {
                const Bytes got = Recovered(f, j, &whole, RecordOf(a), RecordOf(b));
                ASSERT_TRUE(got == olds || got == news)
                    << board.name << ": save cut at step " << k << ", recovery at " << j;
            }
        }
        std::printf("[ %s ] %ld cut points\n", board.name, k);
        EXPECT_GT(k, board.nand ? 6 : 900) << board.name;
        // A save onto a record block an earlier cut left erased, with no
        // recovery between: the copy holds the only whole record until the
        // save has put it back.
        std::fill(base.mem.begin(), base.mem.begin() + board.geo.erase_size, 0xFF);
        const dev_info c = Record("C");
        for (long step = 0;; ++step) {
            SimFlash f = base;
            f.PowerOn(step);
            Save(f, c);
            const Bytes read = StartReads(f);
            ASSERT_TRUE(read == RecordOf(b) || read == RecordOf(c))
                << board.name << ": save onto an erased record block cut at step " << step;
            if (!f.cut)
                break;
        }
    }
}

// Where no safe save exists, nothing is written unless an option says so.
TEST(FlashSave, RefusalsWriteNothing)
{
    const dev_info a = Record("A"), b = Record("B");
    const Board nor = kBoards[0];
    const FlashGeometry one_block = {0x1000, 0x1000, 1};
    struct Row {
        const char *what;
        FlashGeometry geo;
        Bytes copy_block; // at 0x1000 when given
        Options options;
        SaveResult want;
    };
    const Bytes foreign(0x1000, 0x5A);
    const Row rows[] = {
        {"foreign copy block", nor.geo, foreign, {false, false}, SaveResult::kept},
        {"foreign copy block taken", nor.geo, foreign, {false, true}, SaveResult::saved},
        {"single block", one_block, {}, {false, false}, SaveResult::kept},
        {"single block in place", one_block, {}, {true, false}, SaveResult::saved},
    };
    for (const Row &r : rows) {
        SimFlash f(r.geo, false, ~0u);
        const Bytes block = BlockOf(a, r.geo.erase_size);
        std::copy(block.begin(), block.end(), f.mem.begin());
        std::copy(r.copy_block.begin(), r.copy_block.end(), f.mem.begin() + 0x1000);
        const Bytes before = f.mem;
        EXPECT_EQ(Save(f, b, r.options), r.want) << r.what;
        EXPECT_EQ(f.mem == before, r.want == SaveResult::kept) << r.what;
    }
    // A tail too long for the copy.
    SimFlash f(nor.geo, false, ~0u);
    const Bytes tail(0x1000 - kDevInfoSize - kDevInfoSize, 0x00);
    std::copy(tail.begin(), tail.end(), f.mem.begin() + kDevInfoSize);
    const Bytes before = f.mem;
    EXPECT_EQ(Save(f, b, {true, true}), SaveResult::kept);
    EXPECT_EQ(f.mem, before);
    // A copy block that takes no program: its read-back shows it, the record is not touched.
    SimFlash g = Fresh(nor, a);
    g.stuck = 0x1000;
    EXPECT_EQ(Save(g, b), SaveResult::kept);
    EXPECT_EQ(Bytes(g.mem.begin(), g.mem.begin() + 0x1000), BlockOf(a, 0x1000));
}

// The sequence number goes on from the copy it replaces and wraps.
TEST(FlashSave, SequenceWraps)
{
    const dev_info a = Record("A");
    SimFlash f = Fresh(kBoards[0], a);
    const auto *rec = reinterpret_cast<const std::uint8_t *>(&a);
    build_copy(f.mem.data() + 0x1000, 0x1000, 0xffffffff, rec, rec, nullptr, 0);
    ASSERT_EQ(Save(f, Record("B")), SaveResult::saved);
    FlashState st;
    ASSERT_TRUE(load_flash(f, &st));
    EXPECT_EQ(st.decision.copy.sequence, 0u);
}
