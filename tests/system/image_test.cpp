// devinfo on a partition image file in the board sandbox: saved and
// repaired as the flash, and kept whole.
#include "devinfo_fixture.h"

#include <gtest/gtest.h>

namespace hwtest {
namespace
{

// On a partition image set leaves an image of the same size whose record and copy hold the new
// record (the copy the old one too), every other byte as it was, --backup the whole old image;
// recover puts an erased record block back from the copy. --force turns a file that is neither
// into a record, and says so.
TEST_F(DevinfoTest, SetAndRecoverKeepAPartitionImage)
{
    board.Put("/tmp/rec", kRec);
    board.Put("/tmp/odd", Str(300, 'o'));
    const RunResult r = Sh(
        "devinfo create /tmp/img --from /tmp/rec --partition-size 0x3000 --erase-size 0x1000 && "
        "cp /tmp/img /tmp/old && devinfo set --no-apply --backup /tmp/bak /tmp/img "
        "board_name=IPC_X && devinfo verify /tmp/img && cp /tmp/img /tmp/saved && printf %4096s | "
        "tr ' ' '\\377' | dd of=/tmp/img conv=notrunc 2>/dev/null && devinfo get board_name /tmp/img && devinfo recover /tmp/img && cmp "
        "/tmp/img /tmp/saved && devinfo set --force --no-apply /tmp/odd board_name=X mac=02:00:00:00:00:01 p2p_id=P");
    EXPECT_EQ(r.out, "IPC_X\n");
    EXPECT_EQ(r.err, "devinfo: /tmp/img: the record block is erased; this is the copy saved at "
                     "sequence 2, as the board reads it (devinfo recover repairs the record block)\n"
                     "devinfo: /tmp/img: record was erased; restored the copy saved at sequence 2\n"
                     "devinfo: /tmp/odd holds 300 bytes, neither a record nor a partition image: "
                     "--force writes a 280-byte record in their place\n");
    const Str old = board.Read("/tmp/old"), img = board.Read("/tmp/saved");
    const Str rec = Patch(kRec, 36, "IPC_X");
    EXPECT_EQ(board.Read("/tmp/bak"), old);
    ASSERT_EQ(img.size(), 0x3000u);
    EXPECT_EQ(img.substr(0, 280), rec);
    EXPECT_EQ(img.substr(280, 4096 + 8 - 280), old.substr(280, 4096 + 8 - 280));
    EXPECT_EQ(img.substr(4096 + 8, 4), Str("\2\0\0\0", 4)); // the copy's sequence
    EXPECT_EQ(img.substr(4096 + 12, 16), old.substr(4096 + 12, 16));
    EXPECT_EQ(img.substr(4096 + 32), rec + kRec + old.substr(4096 + 592));
    EXPECT_EQ(board.Read("/tmp/odd").size(), 280u);
}

} // namespace
} // namespace hwtest
