// devinfo's pure parts: which MAC texts and field values it lets into a
// record, how it makes any stored byte visible, and its JSON.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "app/shmem.h"
#include "devinfo/tool/fields.h"
#include "devinfo/tool/report.h"

namespace {

dev_info good_record()
{
    dev_info rec;
    std::memset(&rec, 0, sizeof rec);
    rec.magic = kDevInfoMagic;
    rec.board_id = 0x851;
    write_text_field(rec.board_name, "IPC_AX620Q");
    write_text_field(rec.mac, "02:12:34:56:78:9a");
    write_text_field(rec.p2p_id, "P2P-1");
    return rec;
}

} // namespace

TEST(DevinfoMac, TableOfTexts)
{
    struct Case {
        std::string text;
        MacCheck want;
    };
    const Case cases[] = {
        {"02:12:34:56:78:9a", MacCheck::ok},
        {"00:11:22:33:44:55", MacCheck::ok},
        {"fe:ff:ff:ff:ff:ff", MacCheck::ok}, // even first octet, not broadcast
        {"", MacCheck::empty},
        {"02:12:34:56:78:9", MacCheck::format},    // 16 characters
        {"02:12:34:56:78:9a0", MacCheck::format},  // 18
        {"02:12:34:56:78:9a\n", MacCheck::format}, // trailing line end
        {"02-12-34-56-78-9a", MacCheck::format},
        {"0212:34:56:78:9a:", MacCheck::format}, // colons misplaced
        {"02:12:34:56:78:9g", MacCheck::format},
        {" 2:12:34:56:78:9a", MacCheck::format},
        {std::string("02:12:34:56:78:9\0", 17), MacCheck::format},
        {"02:12:34:56:78:9A", MacCheck::upper_case},
        {"FF:FF:FF:FF:FF:FF", MacCheck::upper_case}, // the form is wrong before the value
        {"00:00:00:00:00:00", MacCheck::all_zero},
        {"ff:ff:ff:ff:ff:ff", MacCheck::broadcast},
        {"01:00:5e:00:00:01", MacCheck::multicast},
        {"33:33:00:00:00:01", MacCheck::multicast},
        {"03:00:00:00:00:00", MacCheck::multicast},
    };
    for (const Case &c : cases)
        EXPECT_EQ(check_mac(c.text.data(), c.text.size()), c.want) << '"' << c.text << '"';

    char unterminated[kTextFieldSize];
    std::memset(unterminated, 'a', sizeof unterminated);
    EXPECT_EQ(check_mac(unterminated, sizeof unterminated), MacCheck::format);
}

TEST(DevinfoSetField, RefusesWhatDoesNotFitAndLeavesTheRecord)
{
    struct Case {
        Field field;
        std::string value;
        bool ok;
        const char *why; // part of the refusal
    };
    const Case cases[] = {
        {Field::board_name, std::string(31, 'n'), true, ""},
        {Field::board_name, std::string(32, 'n'), false, "32 characters, at most 31 fit"},
        {Field::p2p_id, std::string(40, 'p'), false, "p2p_id: 40 characters"},
        {Field::board_name, "", true, ""},
        {Field::mac, "02:aa:bb:cc:dd:ee", true, ""},
        {Field::mac, "02:AA:bb:cc:dd:ee", false, "upper-case"},
        {Field::mac, "01:aa:bb:cc:dd:ee", false, "multicast"},
        {Field::mac, "00:00:00:00:00:00", false, "all-zero"},
        {Field::mac, "ff:ff:ff:ff:ff:ff", false, "broadcast"},
        {Field::mac, "02:aa:bb:cc:dd:ee\x1b[2J", false, "\\x1b[2J"}, // shown escaped
        {Field::board_id, "0x851", true, ""},
        {Field::board_id, "4294967295", true, ""},
        {Field::board_id, "0xffffffff", true, ""},
        {Field::board_id, "4294967296", false, "not a 32-bit number"},
        {Field::board_id, "0x100000000", false, "not a 32-bit number"},
        {Field::board_id, "-1", false, "board_id"},
        {Field::board_id, "", false, "board_id"},
        {Field::board_id, "0x", false, "board_id"},
        {Field::board_id, "12a", false, "board_id"},
        {Field::guid, std::string(48, 'F'), true, ""},
        {Field::guid, std::string(47, 'f'), false, "48 hexadecimal digits"},
        {Field::guid, std::string(49, 'f'), false, "48 hexadecimal digits"},
        {Field::guid, std::string(46, 'f') + "g0", false, "48 hexadecimal digits"},
    };
    for (const Case &c : cases) {
        dev_info rec = good_record();
        const dev_info before = rec;
        char why[kMessageSize] = "";
        EXPECT_EQ(set_field(&rec, c.field, c.value.c_str(), why), c.ok) << c.value;
        if (!c.ok) {
            EXPECT_EQ(std::memcmp(&rec, &before, sizeof rec), 0) << c.value;
            EXPECT_NE(std::string(why).find(c.why), std::string::npos) << why;
        }
    }

    dev_info rec = good_record();
    char why[kMessageSize];
    ASSERT_TRUE(set_field(&rec, Field::board_id, "2129", why));
    EXPECT_EQ(rec.board_id, 2129u);
    const std::string guid = "00112233445566778899aabbccddeeff0011223344556677";
    ASSERT_TRUE(set_field(&rec, Field::guid, guid.c_str(), why));
    char back[kGuidTextSize];
    format_guid(rec.guid, back);
    EXPECT_EQ(back, guid);
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&rec.guid)[0], 0x00);
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&rec.guid)[23], 0x77);
}

TEST(DevinfoSetField, AssignmentNamesOnlySettableFields)
{
    Field f;
    const char *value = nullptr;
    ASSERT_TRUE(parse_assignment("board_name==x", &f, &value));
    EXPECT_EQ(f, Field::board_name);
    EXPECT_STREQ(value, "=x");
    EXPECT_FALSE(parse_assignment("magic_ok=yes", &f, &value));
    EXPECT_FALSE(parse_assignment("colour=red", &f, &value));
    EXPECT_FALSE(parse_assignment("mac", &f, &value));
    EXPECT_FALSE(parse_assignment("MAC=02:00:00:00:00:01", &f, &value));
}

TEST(DevinfoEscape, EveryByteVisible)
{
    struct Case {
        std::string in;
        std::string out;
    };
    const Case cases[] = {
        {"IPC_AX620Q", "IPC_AX620Q"},
        {"a\\b", "a\\\\b"},
        {"\t\n\r\x1b\x7f", "\\x09\\x0a\\x0d\\x1b\\x7f"},
        {"caf\xc3\xa9", "caf\\xc3\\xa9"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\xff\x80", "\\xff\\x80"},
    };
    for (const Case &c : cases) {
        char out[kEscapedFieldSize];
        EXPECT_EQ(escape_text(c.in.data(), c.in.size(), out, sizeof out), c.out.size());
        EXPECT_EQ(out, c.out);
    }
    char small[6];
    EXPECT_EQ(escape_text("\x01\x02", 2, small, sizeof small), 8u) << "length the text needs";
    EXPECT_STREQ(small, "\\x01\\");
}

TEST(DevinfoReport, TextAndJsonOfAHostileRecord)
{
    dev_info rec = good_record();
    rec.magic = 0;
    std::memcpy(rec.board_name, "q\"b\\\x01\xe9", 7);
    std::memset(rec.p2p_id, 'P', sizeof rec.p2p_id); // no NUL: all 32 bytes, no more
    rec.reserved[0] = 'X';
    const std::string p32(32, 'P');

    char out[kReportSize];
    format_record(rec, Format::text, out, sizeof out);
    EXPECT_EQ(std::string(out), "magic_ok=no\n"
                                "guid=000000000000000000000000000000000000000000000000\n"
                                "board_id=0x851\n"
                                "board_name=q\"b\\\\\\x01\\xe9\n"
                                "mac=02:12:34:56:78:9a\n"
                                "p2p_id=" +
                                    p32 + "\n");

    format_record(rec, Format::json, out, sizeof out);
    EXPECT_EQ(std::string(out),
              "{\"magic_ok\":false,"
              "\"guid\":\"000000000000000000000000000000000000000000000000\","
              "\"board_id\":\"0x851\",\"board_name\":\"q\\\"b\\\\\\\\\\\\x01\\\\xe9\","
              "\"mac\":\"02:12:34:56:78:9a\",\"p2p_id\":\"" +
                  p32 + "\"}\n");

    char json[16];
    json_string("\x01\x1f", json, sizeof json);
    EXPECT_STREQ(json, "\"\\u0001\\u001f\"");
    EXPECT_EQ(format_record(rec, Format::json, json, sizeof json), std::strlen(out));
    EXPECT_EQ(std::strlen(json), sizeof json - 1) << "cut, terminated";
}

TEST(DevinfoReport, SharedBlockAsHwStartWritesIt)
{
    GUID guid;
    for (std::size_t i = 0; i < sizeof guid; ++i)
        reinterpret_cast<unsigned char *>(&guid)[i] = static_cast<unsigned char>(i);
    const shmem_info info = make_shmem_info(0, "IPC_AX620Q", &guid);
    char out[kReportSize];
    format_shm(info, Format::text, out, sizeof out);
    EXPECT_EQ(std::string(out), "magic=0x95279528\n"
                                "guid=000102030405060708090a0b0c0d0e0f1011121314151617\n"
                                "run_mode=0x0\n"
                                "name=IPC_AX620Q\n"
                                "flag=0x78cfde02\n");
}
