// The identity record's text fields, its two stores' round trips and the
// store selection rule.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "devinfo/dev_info.h"
#include "devinfo/store.h"

namespace {

std::string field_text(const char (&field)[kTextFieldSize])
{
    char out[kTextFieldSize];
    read_text_field(field, out);
    return out;
}

class TempDir : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/hw_record_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }
    std::string dir_;
};

dev_info sample_record()
{
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    rec.magic = kDevInfoMagic;
    for (std::size_t i = 0; i < sizeof rec.guid; ++i)
        reinterpret_cast<unsigned char *>(&rec.guid)[i] = static_cast<unsigned char>(0xA0 + i);
    rec.board_id = 0x851;
    write_text_field(rec.board_name, "AX620Q-cam");
    write_text_field(rec.mac, "02:11:22:33:44:55");
    std::memset(rec.p2p_id, 'P', sizeof rec.p2p_id); // unterminated on purpose
    for (std::size_t i = 0; i < sizeof rec.reserved; ++i)
        rec.reserved[i] = static_cast<unsigned char>(i * 7);
    return rec;
}

} // namespace

TEST(TextField, WriteCutsToThirtyOneAndTerminates)
{
    dev_info rec;
    std::memset(&rec, 0xEE, sizeof rec);
    write_text_field(rec.board_name, "0123456789012345678901234567890123456789"); // 40
    EXPECT_EQ(std::string(rec.board_name, 31), "0123456789012345678901234567890");
    EXPECT_EQ(rec.board_name[31], '\0');
    EXPECT_EQ(static_cast<unsigned char>(rec.mac[0]), 0xEE) << "neighbour field untouched";

    write_text_field(rec.board_name, "ab");
    for (std::size_t i = 2; i < sizeof rec.board_name; ++i)
        ASSERT_EQ(rec.board_name[i], '\0') << "bytes behind the text are cleared";
}

TEST(TextField, ReadStopsAtFieldEnd)
{
    dev_info rec;
    std::memset(&rec, 0xFF, sizeof rec); // erased flash
    EXPECT_EQ(field_text(rec.board_name), "") << "no NUL in the field: empty text";

    std::memset(rec.mac, 'a', sizeof rec.mac);
    rec.mac[31] = '\0';
    EXPECT_EQ(field_text(rec.mac), std::string(31, 'a'));
}

TEST(StoreSelection, FlashWhenPathContainsDevMtd)
{
    EXPECT_TRUE(store_is_flash("/dev/mtdblock3"));
    EXPECT_TRUE(store_is_flash("/dev/mtdblock5"));
    EXPECT_TRUE(store_is_flash("/data/dev/mtd.bin"));
    EXPECT_FALSE(store_is_flash("/DEV/MTDBLOCK3"));
    EXPECT_FALSE(store_is_flash("/tmp/dev_info.bin"));
}

TEST_F(TempDir, FileStoreRoundTripKeepsEveryByte)
{
    const std::string path = dir_ + "/rec.bin";
    const dev_info saved = sample_record();
    ASSERT_EQ(dev_store_save(path.c_str(), &saved), 0);

    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 280);
    EXPECT_EQ(st.st_mode & 0777, 0644u & ~[] { mode_t m = umask(0); umask(m); return m; }());

    dev_info read;
    std::memset(&read, 0, sizeof read);
    ASSERT_EQ(dev_store_read(path.c_str(), &read), 0);
    EXPECT_EQ(std::memcmp(&read, &saved, sizeof read), 0);

    // Saving what was read leaves guid, p2p_id and reserved as they were.
    ASSERT_EQ(dev_store_save(path.c_str(), &read), 0);
    dev_info again;
    ASSERT_EQ(dev_store_read(path.c_str(), &again), 0);
    EXPECT_EQ(std::memcmp(&again, &saved, sizeof again), 0);
}

TEST_F(TempDir, FileStoreShortAndMissingFiles)
{
    const std::string path = dir_ + "/short.bin";
    const dev_info full = sample_record();
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(&full, 1, 100, f);
    std::fclose(f);

    dev_info rec;
    std::memset(&rec, 0x5A, sizeof rec);
    EXPECT_EQ(do_read_file(path.c_str(), &rec), 0) << "a short file still reads";
    EXPECT_EQ(std::memcmp(&rec, &full, 100), 0);
    for (std::size_t i = 100; i < sizeof rec; ++i)
        ASSERT_EQ(reinterpret_cast<unsigned char *>(&rec)[i], 0x5A) << "caller's byte at " << i;

    EXPECT_EQ(do_read_file((dir_ + "/missing").c_str(), &rec), -1);
    EXPECT_EQ(do_save_file((dir_ + "/no/such/dir").c_str(), &full), -1);
}
