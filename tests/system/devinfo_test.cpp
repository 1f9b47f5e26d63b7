// devinfo on the board sandbox: the real binary (copied to /sbin/devinfo)
// against record files, the flash partition /dev/mtdblock3, eth0,
// /config/mac and the shared block that a booted hw_start wrote; and a C
// program built against hw_start/shmem_info.h reading that block.
//
//   HW_DEVINFO_BIN   the devinfo binary under test (default: this build's)
#include "board.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifndef HW_DEVINFO_BIN_DEFAULT
#error "HW_DEVINFO_BIN_DEFAULT must name the devinfo binary of the build"
#endif

namespace hwtest {
namespace {

// Runs through the emulator of a cross build, like `hw`.
const std::string kPrelude = "devinfo() { $HW_RUNNER /sbin/devinfo \"$@\"; }\n";

const std::string kGuidHex = "0102030405060708090a0b0c0d0e0f101112131415161718";
const std::string kSandboxMac = "02:00:00:00:00:01\n"; // eth0 at the start of a run

// Overwrites a 32-byte text field (or any bytes) of a record image.
std::string Patch(std::string rec, std::size_t offset, const std::string &bytes,
                  std::size_t field = 32)
{
    rec.replace(offset, field, field, '\0');
    rec.replace(offset, bytes.size(), bytes);
    return rec;
}

std::string BoardId(std::uint32_t id)
{
    std::string le(4, '\0');
    for (int i = 0; i < 4; ++i)
        le[i] = static_cast<char>((id >> (8 * i)) & 0xff);
    return le;
}

// A record whose GUID and reserved bytes are not zero, so a save that
// loses or moves them shows.
std::string Distinct(const std::string &mac = "02:12:34:56:78:9a")
{
    std::string rec = MakeRecord(0x851, "IPC_AX620Q", mac, "P2P-SAMPLE-0001");
    for (int i = 0; i < 24; ++i)
        rec[8 + i] = static_cast<char>(i + 1);
    for (int i = 0; i < 148; ++i)
        rec[132 + i] = static_cast<char>(i * 7 + 3);
    return rec;
}

class DevinfoTest : public BoardTest
{
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
        std::ostringstream bytes;
        bytes << in.rdbuf();
        board.Put("/sbin/devinfo", bytes.str(), 0755);
    }

    RunResult Sh(const std::string &script) { return board.Run(kPrelude + script); }
};

TEST_F(DevinfoTest, CreateThenShowAndGetRoundTripEveryField)
{
    const std::string name = std::string("cam\t\x01\xc3\xa9\\\"q") + "'";
    RunResult r =
        Sh("devinfo create /tmp/rec --board-id 0x1234abcd --board-name " + ShellQuote(name) +
           " --mac 02:aa:bb:cc:dd:ee --p2p-id=P2P-0042 --guid " + kGuidHex);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");

    std::string want = MakeRecord(0x1234abcd, name, "02:aa:bb:cc:dd:ee", "P2P-0042");
    for (int i = 0; i < 24; ++i)
        want[8 + i] = static_cast<char>(i + 1);
    EXPECT_EQ(board.Read("/tmp/rec"), want) << "the image as hw_start reads it";

    const std::string escaped = "cam\\x09\\x01\\xc3\\xa9\\\\\"q'";
    r = Sh("devinfo show /tmp/rec && devinfo verify /tmp/rec");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "magic_ok=yes\nguid=" + kGuidHex + "\nboard_id=0x1234abcd\nboard_name=" +
                         escaped + "\nmac=02:aa:bb:cc:dd:ee\np2p_id=P2P-0042\n");
    EXPECT_EQ(r.err, "");

    r = Sh("devinfo show --json /tmp/rec");
    EXPECT_EQ(r.out, "{\"magic_ok\":true,\"guid\":\"" + kGuidHex +
                         "\",\"board_id\":\"0x1234abcd\",\"board_name\":"
                         "\"cam\\\\x09\\\\x01\\\\xc3\\\\xa9\\\\\\\\\\\"q'\","
                         "\"mac\":\"02:aa:bb:cc:dd:ee\",\"p2p_id\":\"P2P-0042\"}\n");

    // get prints what show prints, and its values feed create back.
    r = Sh("for f in magic_ok guid board_id board_name mac p2p_id; do devinfo get $f /tmp/rec;"
           " done; devinfo create /tmp/again --board-id $(devinfo get board_id /tmp/rec)"
           " --board-name \"$(printf 'cam\\t\\001\\303\\251\\\\\"q')'\" --mac $(devinfo get mac"
           " /tmp/rec) --p2p-id $(devinfo get p2p_id /tmp/rec) --guid $(devinfo get guid "
           "/tmp/rec)");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "yes\n" + kGuidHex + "\n0x1234abcd\n" + escaped + "\n02:aa:bb:cc:dd:ee\nP2P-0042\n");
    EXPECT_EQ(board.Read("/tmp/again"), want);
    EXPECT_TRUE(board.ShellLog().empty()) << "create touches no network";
}

TEST_F(DevinfoTest, VerifyFlagsEachKindOfProblem)
{
    struct Case {
        const char *name;
        std::string image;
        std::vector<std::string> lines; // stdout, each "label: ..." prefix
    };
    const std::string good = Distinct();
    const Case cases[] = {
        {"good", good, {}},
        {"short", good.substr(0, 100), {"size: the store holds 100 bytes; a record is 280"}},
        {"magic",
         Patch(good, 0, std::string(8, '\0'), 8),
         {"magic: 0x0000000000000000 is not 0xfedcba9801234567"}},
        {"erased",
         std::string(280, '\xff'),
         {"magic: 0xffffffffffffffff", "board_name: no NUL", "mac: no NUL", "p2p_id: no NUL"}},
        {"name_unterminated", Patch(good, 36, std::string(32, 'N')), {"board_name: no NUL"}},
        {"p2p_unterminated", Patch(good, 100, std::string(32, 'P')), {"p2p_id: no NUL"}},
        {"mac_upper", Patch(good, 68, "02:AB:34:56:78:9A"), {"mac: \"02:AB:34:56:78:9A\" has"}},
        {"mac_zero", Patch(good, 68, "00:00:00:00:00:00"), {"mac: \"00:00:00:00:00:00\" is the"}},
        {"mac_broadcast", Patch(good, 68, "ff:ff:ff:ff:ff:ff"), {"mac: \"ff:ff:ff:ff:ff:ff\" is"}},
        {"mac_multicast", Patch(good, 68, "01:00:5e:00:00:01"), {"mac: \"01:00:5e:00:00:01\" is"}},
        {"mac_dashes", Patch(good, 68, "02-12-34-56-78-9a"), {"mac: \"02-12-34-56-78-9a\" is not"}},
        {"mac_empty", Patch(good, 68, ""), {"mac: \"\" is empty"}},
    };
    for (const Case &c : cases) {
        board.Put(std::string("/tmp/v/") + c.name, c.image);
        RunResult r = Sh(std::string("devinfo verify /tmp/v/") + c.name);
        EXPECT_EQ(r.status, c.lines.empty() ? 0 : 1) << c.name << ": " << r.err;
        std::vector<std::string> got = Lines(r.out);
        ASSERT_EQ(got.size(), c.lines.size()) << c.name << ":\n" << r.out;
        for (std::size_t i = 0; i < got.size(); ++i)
            EXPECT_EQ(got[i].rfind(c.lines[i], 0), 0u) << c.name << ": " << got[i];
    }

    // No STORE: the flash partition; any /dev/mtd path selects it too.
    board.PutRecord(Patch(good, 68, "01:00:5e:00:00:01"));
    RunResult r = Sh("devinfo verify; echo rc=$?; devinfo verify /dev/mtdblock7");
    EXPECT_EQ(r.out, "mac: \"01:00:5e:00:00:01\" is a multicast address (low bit of the first "
                     "octet set)\nrc=1\n"
                     "mac: \"01:00:5e:00:00:01\" is a multicast address (low bit of the first "
                     "octet set)\n");
    EXPECT_EQ(r.err, "devinfo: /dev/mtdblock7 selects the flash store /dev/mtdblock3\n");
}

TEST_F(DevinfoTest, SetRefusesBadInputAndLeavesTheStoreByteIdentical)
{
    struct Case {
        std::string args;
        int status;
        std::string why; // in stderr
    };
    const Case cases[] = {
        {"/tmp/rec mac=02:AA:BB:CC:DD:EE", 1, "has upper-case digits"},
        {"/tmp/rec mac=00:00:00:00:00:00", 1, "is the all-zero address"},
        {"/tmp/rec mac=ff:ff:ff:ff:ff:ff", 1, "is the broadcast address"},
        {"/tmp/rec mac=03:00:00:00:00:01", 1, "is a multicast address"},
        {"/tmp/rec mac=02:00:00:00:01", 1, "is not six two-digit"},
        {"/tmp/rec board_name=" + std::string(32, 'n'), 1, "32 characters, at most 31 fit"},
        {"/tmp/rec p2p_id=" + std::string(40, 'p'), 1, "40 characters, at most 31 fit"},
        {"/tmp/rec board_id=0x1g", 1, "is not a 32-bit number"},
        {"/tmp/rec guid=0102", 1, "is not 48 hexadecimal digits"},
        {"/tmp/bad_magic board_name=X", 1, "magic: 0x0000000000000000"},
        {"/tmp/short board_name=X", 1, "size: the store holds 279 bytes"},
        // Set writes only records verify accepts: a broken field it does
        // not replace is refused too.
        {"/tmp/upper board_name=X", 1, "name the field to replace it"},
        {"/tmp/none board_name=X", 1, "cannot open /tmp/none"},
        {"/tmp/rec colour=red", 2, "FIELD is one of"},
        {"/tmp/rec", 2, "nothing to set"},
        {"/tmp/rec mac=02:00:00:00:00:09 mac=02:00:00:00:00:08", 2, "mac given twice"},
        {"--bogus /tmp/rec board_id=1", 2, "unknown option '--bogus'"},
    };
    const std::string rec = Distinct();
    board.Put("/tmp/rec", rec);
    board.Put("/tmp/bad_magic", Patch(rec, 0, std::string(8, '\0'), 8));
    board.Put("/tmp/short", rec.substr(0, 279));
    board.Put("/tmp/upper", Patch(rec, 68, "02:12:34:56:78:9A"));
    for (const Case &c : cases) {
        RunResult r = Sh("devinfo set " + c.args);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find(c.why), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_EQ(r.out, "") << c.args;
    }
    // Another holder of the lock keeps set out.
    RunResult r = Sh("flock /tmp/rec sleep 6 & sleep 0.5; devinfo set --no-apply /tmp/rec "
                     "board_id=7; echo rc=$?");
    EXPECT_EQ(r.out, "rc=1\n");
    EXPECT_NE(r.err.find("cannot lock /tmp/rec: another process holds it"), std::string::npos)
        << r.err;

    EXPECT_EQ(board.Read("/tmp/rec"), rec);
    EXPECT_EQ(board.Read("/tmp/bad_magic"), Patch(rec, 0, std::string(8, '\0'), 8));
    EXPECT_EQ(board.Read("/tmp/short"), rec.substr(0, 279));
    EXPECT_EQ(board.Read("/tmp/upper"), Patch(rec, 68, "02:12:34:56:78:9A"));
    EXPECT_FALSE(board.Exists("/tmp/none"));
    EXPECT_FALSE(board.Exists("/config/mac"));
    EXPECT_TRUE(board.ShellLog().empty()) << "no refusal runs a command";

    // --force writes over a bad magic, and only the named fields and the magic change.
    r = Sh("devinfo set --force --no-apply /tmp/bad_magic board_name=X");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(board.Read("/tmp/bad_magic"), Patch(rec, 36, "X"));
}

TEST_F(DevinfoTest, SetOnTheFileStoreChangesFieldsAndMakesEth0CarryTheMac)
{
    const std::string rec = Distinct();
    board.Put("/tmp/rec", rec);
    RunResult r = Sh("devinfo set /tmp/rec board_name=NEW_NAME mac=02:00:00:00:aa:bb "
                     "board_id=0x99; echo rc=$?; cat /sys/class/net/eth0/address; "
                     "ip -4 route show table main | grep default");
    std::string want = Patch(Patch(rec, 36, "NEW_NAME"), 68, "02:00:00:00:aa:bb");
    want.replace(32, 4, BoardId(0x99));
    EXPECT_EQ(board.Read("/tmp/rec"), want) << "guid, p2p_id and reserved kept";
    std::vector<std::string> lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 3u) << r.out << r.err;
    EXPECT_EQ(lines[0], "rc=0") << r.err;
    EXPECT_EQ(lines[1], "02:00:00:00:aa:bb");
    EXPECT_EQ(lines[2].rfind("default via 192.168.77.1 dev eth0", 0), 0u) << lines[2];
    EXPECT_EQ(board.Read("/config/mac"), "02:00:00:00:aa:bb\n");

    // --no-apply: the store alone.
    board.Remove("/config/mac");
    board.Remove("/var/log/sh.log");
    r = Sh("devinfo set --no-apply /tmp/rec mac=02:00:00:00:cc:dd p2p_id=P2; echo rc=$?;"
           " cat /sys/class/net/eth0/address");
    EXPECT_EQ(r.out, "rc=0\n" + kSandboxMac) << r.err;
    EXPECT_EQ(board.Read("/tmp/rec"), Patch(Patch(want, 68, "02:00:00:00:cc:dd"), 100, "P2"));
    EXPECT_FALSE(board.Exists("/config/mac"));
    EXPECT_TRUE(board.ShellLog().empty());
}

TEST_F(DevinfoTest, SetOnTheFlashStoreWritesOnlyTheRecordBytes)
{
    // A partition larger than the record: the bytes behind it stay.
    const std::string tail(744, '\x5a');
    board.PutRecord(Distinct() + tail);
    RunResult r = Sh("devinfo set --no-apply /dev/mtdblock7 board_name=FLASH && devinfo get "
                     "board_name");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "FLASH\n");
    EXPECT_EQ(r.err, "devinfo: /dev/mtdblock7 selects the flash store /dev/mtdblock3\n");
    EXPECT_EQ(board.Read("/dev/mtdblock3"), Patch(Distinct(), 36, "FLASH") + tail);
}

TEST_F(DevinfoTest, ShmAfterABootPrintsWhatHwStartWrote)
{
    board.PutRecord(MakeRecord(0x851, "SHM_BOARD", "02:00:00:00:00:07"));
    BootOptions options;
    options.before = kPrelude + "devinfo shm >/tmp/pre.out 2>/tmp/pre.err; echo $? >/tmp/pre.rc";
    options.after = "devinfo shm >/tmp/dv.out 2>/tmp/dv.err; echo $? >/tmp/dv.rc;"
                    " devinfo shm --json >/tmp/dv.json;"
                    " $HW_RUNNER /sbin/shm_reader_c >/tmp/c.out 2>&1; echo $? >/tmp/c.rc";
    board.Boot({}, options);
    ASSERT_TRUE(board.Alive()) << board.Output();

    EXPECT_EQ(board.Read("/tmp/pre.rc"), "1\n") << "no block before the boot";
    EXPECT_NE(board.Read("/tmp/pre.err").find("no shared identity block"), std::string::npos);
    EXPECT_EQ(board.Read("/tmp/pre.out"), "");

    // The GUID shown is the block's bytes 4-27, whatever they hold.
    const std::string shm = board.Read("/tmp/shm.bin");
    ASSERT_EQ(shm.size(), 96u) << board.Read("/tmp/shm.info");
    std::string guid;
    for (int i = 4; i < 28; ++i) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(shm[i]));
        guid += hex;
    }
    const std::string want =
        "magic=0x95279528\nguid=" + guid + "\nrun_mode=0x0\nname=SHM_BOARD\nflag=0x78cfde02\n";
    EXPECT_EQ(board.Read("/tmp/dv.rc"), "0\n") << board.Read("/tmp/dv.err");
    EXPECT_EQ(board.Read("/tmp/dv.out"), want);
    EXPECT_EQ(board.Read("/tmp/dv.json"), "{\"magic\":\"0x95279528\",\"guid\":\"" + guid +
                                              "\",\"run_mode\":\"0x0\",\"name\":\"SHM_BOARD\","
                                              "\"flag\":\"0x78cfde02\"}\n");
    // The C program sees the same block through the header alone.
    EXPECT_EQ(board.Read("/tmp/c.rc"), "0\n") << board.Read("/tmp/c.out");
    EXPECT_EQ(board.Read("/tmp/c.out"), want);
}

TEST_F(DevinfoTest, HelpAndUsage)
{
    for (const char *cmd : {"show", "get", "verify", "create", "set", "shm"}) {
        RunResult r = Sh(std::string("devinfo ") + cmd + " --help");
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_EQ(r.out.rfind(std::string("usage: devinfo ") + cmd, 0), 0u) << r.out;
        EXPECT_EQ(r.err, "");
    }
    RunResult r = Sh("devinfo --help");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Exit status: 0 success, 1 a problem found or a refusal, 2 usage"),
              std::string::npos);
    for (const char *bad : {"", "frob", "get", "get colour /tmp/x", "show a b", "shm x",
                            "create /tmp/x --board-id 1 --mac 02:00:00:00:00:01"}) {
        r = Sh(std::string("devinfo ") + bad);
        EXPECT_EQ(r.status, 2) << bad;
        EXPECT_EQ(r.out, "") << bad;
        EXPECT_NE(r.err, "") << bad;
    }
    r = Sh("devinfo create /dev/mtdblock3 --board-id 1 --board-name a --mac 02:00:00:00:00:01");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("selects the flash store"), std::string::npos) << r.err;
}

} // namespace
} // namespace hwtest
