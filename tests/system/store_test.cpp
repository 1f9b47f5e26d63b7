// System tests of the device information stores on the real binary in the
// board sandbox: which store a store path selects, what each store reads
// (whole, short, empty, missing) and its debug lines, and that the boot
// goes on with whatever the read left in the record.
#include "board.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace hwtest {
namespace {

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kSandboxMac = "02:00:00:00:00:01"; // eth0 at the start of a run

// Names long enough that a 50-byte image ends inside them (offset 36..49).
const std::string kFlashRec = MakeRecord(0x1111, "FLASH_RECORD_NAME_0123", "02:00:00:00:11:11");
const std::string kFileRec = MakeRecord(0x2222, "FILE_RECORD_NAME_01234", "02:00:00:00:22:22");
// A real partition is larger than the record; the bytes behind it are not read.
const std::string kFlashImage = kFlashRec + std::string(4096, '\x5a');

struct Fields {
    std::string board_name; // what the DDNS client gets behind dev_type=
    std::string marker;     // the work-mode marker, from board_id
    std::string eth0;       // eth0's address afterwards (empty MAC text: unchanged)
};
const Fields kFlash = {"FLASH_RECORD_NAME_0123", "1111", "02:00:00:00:11:11"};
const Fields kFile = {"FILE_RECORD_NAME_01234", "2222", "02:00:00:00:22:22"};
const Fields kZeros = {"", "0", kSandboxMac};

struct StoreCase {
    const char *name;
    std::vector<std::string> args; // behind "debug"
    std::vector<std::pair<std::string, std::string>> files; // put on the board
    std::string before;                                     // shell before the start
    std::vector<std::string> store_lines; // every do_* debug line, without the tag
    Fields fields;
};

void PrintTo(const StoreCase &c, std::ostream *os) { *os << c.name; }

const std::string kMtdEnter = "do_read_dev_mtd:enter!";
std::string FileOk(const std::string &path)
{
    return "do_read_file:read device info  file " + path + " success";
}

const StoreCase kCases[] = {
    {"FlashByDefault", {}, {}, "", {kMtdEnter}, kFlash},
    {"FileStore",
     {"dev3_file=/data/rec.bin"},
     {{"/data/rec.bin", kFileRec}},
     "",
     {FileOk("/data/rec.bin")},
     kFile},
    {"OtherMtdBlockReadsMtdblock3",
     {"dev_file=/dev/mtdblock5"},
     {{"/dev/mtdblock5", kFileRec}},
     "",
     {kMtdEnter},
     kFlash},
    {"DevMtdInsideAFilePathSelectsFlash",
     {"dev_file=/data/dev/mtd.bin"},
     {{"/data/dev/mtd.bin", kFileRec}},
     "",
     {kMtdEnter},
     kFlash},
    {"UpperCaseDevMtdIsAFile",
     {"dev3_file=/DEV/MTDBLOCK3"},
     {{"/DEV/MTDBLOCK3", kFileRec}},
     "",
     {FileOk("/DEV/MTDBLOCK3")},
     kFile},
    {"MissingFile",
     {"dev3_file=/data/none.bin"},
     {},
     "",
     {"do_read_file:open file /data/none.bin failed"},
     kZeros},
    {"EmptyFileCountsAsRead",
     {"dev3_file=/data/empty.bin"},
     {{"/data/empty.bin", ""}},
     "",
     {FileOk("/data/empty.bin")},
     kZeros},
    {"File100BytesGivesTheFieldsInThem",
     {"dev3_file=/data/short.bin"},
     {{"/data/short.bin", kFileRec.substr(0, 100)}},
     "",
     {FileOk("/data/short.bin")},
     kFile},
    // The name's first 14 characters came, the zeros start-up put there follow.
    {"File50BytesEndsInsideTheName",
     {"dev3_file=/data/short.bin"},
     {{"/data/short.bin", kFileRec.substr(0, 50)}},
     "",
     {FileOk("/data/short.bin")},
     {"FILE_RECORD_NA", "2222", kSandboxMac}},
    {"Partition279Bytes",
     {},
     {{"/dev/mtdblock3", kFlashRec.substr(0, 279)}},
     "",
     {kMtdEnter, "do_read_dev_mtd:rd_size = 279 err"},
     kFlash},
    {"Partition50BytesKeepsWhatCame",
     {},
     {{"/dev/mtdblock3", kFlashRec.substr(0, 50)}},
     "",
     {kMtdEnter, "do_read_dev_mtd:rd_size = 50 err"},
     {"FLASH_RECORD_N", "1111", kSandboxMac}},
    {"EmptyPartition",
     {},
     {{"/dev/mtdblock3", ""}},
     "",
     {kMtdEnter, "do_read_dev_mtd:rd_size = 0 err"},
     kZeros},
    {"NoPartition",
     {},
     {},
     "rm -f /dev/mtdblock3",
     {kMtdEnter, "do_read_dev_mtd:device /dev/mtdblock3 open failed"},
     kZeros},
};

class IdentityStoreTest : public BoardTest, public ::testing::WithParamInterface<StoreCase> {};

TEST_P(IdentityStoreTest, ReadsTheSelectedStoreAndBootsOn)
{
    const StoreCase &c = GetParam();
    board.PutRecord(kFlashImage);
    for (const auto &[path, bytes] : c.files)
        board.Put(path, bytes);
    std::vector<std::string> args = {"debug"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    BootOptions options;
    options.before = c.before;
    board.Boot(args, options);

    std::vector<std::string> store_lines;
    for (const std::string &line : Lines(board.Output()))
        if (line.rfind(kTag + "do_", 0) == 0)
            store_lines.push_back(line.substr(kTag.size()));
    EXPECT_EQ(store_lines, c.store_lines) << board.Output();

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
              (std::vector<std::string>{"/mnt/mtd/app", "dev_type=" + c.fields.board_name}));
    EXPECT_EQ(board.ProgramArgs("gui"), std::vector<std::string>{"/mnt/mtd/app"});
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), c.fields.marker + "\n");
    EXPECT_EQ(board.Read("/tmp/eth0.mac"), c.fields.eth0 + "\n");
    // Reading never writes a store back.
    std::map<std::string, std::string> stored = {{"/dev/mtdblock3", kFlashImage}};
    for (const auto &[path, bytes] : c.files)
        stored[path] = bytes;
    if (!c.before.empty())
        stored.erase("/dev/mtdblock3"); // removed before the start
    for (const auto &[path, bytes] : stored)
        EXPECT_EQ(board.Read(path), bytes) << path;
}

INSTANTIATE_TEST_SUITE_P(Stores, IdentityStoreTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<StoreCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
