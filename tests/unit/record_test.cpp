// The record's text-field helpers and a save-then-read round trip.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "devinfo/dev_info.h"
#include "devinfo/store.h"

// At most 31 characters and a NUL, the rest of the field cleared, the
// neighbour untouched; a field without NUL reads as the empty text.
TEST(TextField, WriteCutsAndReadStopsAtTheField)
{
    dev_info rec;
    std::memset(&rec, 0xEE, sizeof rec);
    write_text_field(rec.board_name, std::string(40, 'n').c_str());
    const char *bytes = reinterpret_cast<const char *>(&rec);
    EXPECT_EQ(std::string(bytes + 36, 33), std::string(31, 'n') + '\0' + '\xEE');
    write_text_field(rec.board_name, "ab");
    EXPECT_EQ(std::string(rec.board_name, 32), "ab" + std::string(30, '\0'));
    char out[kTextFieldSize];
    read_text_field(rec.board_name, out);
    EXPECT_STREQ(out, "ab");
    std::memset(rec.mac, 'a', sizeof rec.mac);
    read_text_field(rec.mac, out);
    EXPECT_STREQ(out, "");
}

// Every byte comes back, GUID, unterminated p2p_id and reserved included.
TEST(FileStore, SaveThenReadKeepsEveryByte)
{
    dev_info saved, back{};
    for (std::size_t i = 0; i < sizeof saved; ++i)
        reinterpret_cast<unsigned char *>(&saved)[i] = static_cast<unsigned char>(i * 7 + 1);
    char path[] = "/tmp/hw_record_XXXXXX";
    close(mkstemp(path));
    EXPECT_EQ(dev_store_save(path, &saved), 0);
    EXPECT_EQ(dev_store_read(path, &back), 0);
    struct stat st = {};
    stat(path, &st);
    unlink(path);
    EXPECT_EQ(st.st_size, 280);
    EXPECT_EQ(std::memcmp(&back, &saved, sizeof back), 0);
}
