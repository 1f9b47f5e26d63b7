// The record's text-field helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "devinfo/record.h"

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
