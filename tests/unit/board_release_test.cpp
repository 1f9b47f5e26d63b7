// Releasing the board object. CreateDevice takes the object's memory from
// malloc (so the program needs no C++ runtime allocator); a program that
// deletes it through CDevice must give it back to free. The mismatch does
// not show in a plain build: the sanitizer build (scripts/sanitize-test)
// reports it as alloc-dealloc-mismatch and fails this test.
#include <gtest/gtest.h>

#include "ax630c_qm/device.h"

TEST(BoardObject, DeletingItThroughTheInterfaceGivesItsMemoryBackToFree)
{
    for (int i = 0; i < 3; ++i) {
        CDevice *dev = CreateDevice("");
        ASSERT_NE(dev, nullptr);
        EXPECT_EQ(dev->CheckDevice(), 0);
        delete dev;
    }
}
