// System tests of the device information stores on the real binary in the
// board sandbox: which store a store path selects, what a missing, empty
// or short store gives the record, the store's debug lines, and that the
// boot goes on with whatever the read left there.
#include "board.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace hwtest {
namespace {

const std::string kTag = "[bdsetup] NOTICE! ";
const std::string kMac = "02:00:00:00:00:01"; // eth0's at the start of a run

// Names long enough that a 50-byte image ends inside them (offset 36..49).
const std::string kFlashRec = MakeRecord(0x1111, "FLASH_RECORD_NAME_0123", kMac);
const std::string kFileRec = MakeRecord(0x2222, "FILE_RECORD_NAME_01234", kMac);
// A real partition is larger than the record; the bytes behind it are not read.
const std::string kFlashImage = kFlashRec + std::string(4096, '\x5a');

struct StoreCase {
    const char *name;
    std::string path;        // given with dev3_file= behind "debug"
    std::string partition;   // /dev/mtdblock3
    std::string file;        // put at `path` unless "-"
    std::vector<std::string> lines; // every do_* debug line, without the tag
    std::string board_name;  // what the DDNS client gets behind dev_type=
    std::string marker;      // the work-mode marker, from board_id
};

void PrintTo(const StoreCase &c, std::ostream *os) { *os << c.name; }

const std::string kMtdEnter = "do_read_dev_mtd:enter!";
const std::string kFileOk = "do_read_file:read device info  file ";

const StoreCase kCases[] = {
    // "/dev/mtd" anywhere selects the flash store, and that is mtdblock3.
    {"DevMtdInsideAPathReadsMtdblock3", "/data/dev/mtdblock5", kFlashImage, kFileRec,
     {kMtdEnter}, "FLASH_RECORD_NAME_0123", "1111"},
    {"UpperCaseDevMtdIsAFile", "/DEV/MTDBLOCK3", kFlashImage, kFileRec,
     {kFileOk + "/DEV/MTDBLOCK3 success"}, "FILE_RECORD_NAME_01234", "2222"},
    {"MissingFile", "/data/none.bin", kFlashImage, "-",
     {"do_read_file:open file /data/none.bin failed"}, "", "0"},
    {"EmptyFileCountsAsRead", "/data/empty.bin", kFlashImage, "",
     {kFileOk + "/data/empty.bin success"}, "", "0"},
    {"File100BytesGivesTheFieldsInThem", "/data/short.bin", kFlashImage, kFileRec.substr(0, 100),
     {kFileOk + "/data/short.bin success"}, "FILE_RECORD_NAME_01234", "2222"},
    // The name's first 14 characters came, the zeros start-up put there follow.
    {"Partition50BytesKeepsWhatCame", "", kFlashRec.substr(0, 50), "-",
     {kMtdEnter, "do_read_dev_mtd:rd_size = 50 err"}, "FLASH_RECORD_N", "1111"},
};

class IdentityStoreTest : public BoardTest, public ::testing::WithParamInterface<StoreCase> {};

TEST_P(IdentityStoreTest, ReadsTheSelectedStoreAndBootsOn)
{
    const StoreCase &c = GetParam();
    board.PutRecord(c.partition);
    if (c.file != "-")
        board.Put(c.path, c.file);
    board.Boot(c.path.empty() ? std::vector<std::string>{"debug"}
                              : std::vector<std::string>{"debug", "dev3_file=" + c.path});

    std::vector<std::string> lines;
    for (const std::string &line : Lines(board.Output()))
        if (line.rfind(kTag + "do_", 0) == 0)
            lines.push_back(line.substr(kTag.size()));
    EXPECT_EQ(lines, c.lines) << board.Output();

    EXPECT_TRUE(board.Alive()) << board.Output() << board.Err();
    EXPECT_EQ(board.ProgramArgs("vrn_ddns_client"),
              (std::vector<std::string>{"/mnt/mtd/app", "dev_type=" + c.board_name}));
    EXPECT_EQ(board.Read("/tmp/firmware.ls"), c.marker + "\n");
    // Reading never writes a store back.
    EXPECT_TRUE(board.Read("/dev/mtdblock3") == c.partition);
    if (c.file != "-") {
        EXPECT_TRUE(board.Read(c.path) == c.file);
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, IdentityStoreTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<StoreCase> &info) {
                             return std::string(info.param.name);
                         });

} // namespace
} // namespace hwtest
