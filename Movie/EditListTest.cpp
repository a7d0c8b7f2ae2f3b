// A track's edit list: one edit from the media's start at rate 1, its fields as wide as its duration needs.
#include "Movie/EditList.h"

#include <gtest/gtest.h>

#include <vector>

#include "Movie/BoxReader.h"

namespace KTN {
namespace {

TEST(EditListTest, OneEditAsWideAsItsDurationNeeds) {
  for (uint64_t duration : {uint64_t{334}, uint64_t{UINT32_MAX}, (uint64_t{1} << 32) + 7}) {
    SCOPED_TRACE(duration);
    BoxWriter out;
    ASSERT_TRUE(EditList::Write(out, duration));
    std::vector<Box> edts, elst;
    ASSERT_TRUE(BoxReader::ChildBoxes(out.bytes.data(), 0, out.bytes.size(), edts));
    ASSERT_EQ(1u, edts.size());
    EXPECT_EQ(BoxTypes::kEdts, edts[0].type);
    ASSERT_TRUE(BoxReader::Children(out.bytes, edts[0], elst));
    ASSERT_EQ(1u, elst.size());
    EXPECT_EQ(BoxTypes::kElst, elst[0].type);
    BoxReader fields(out.bytes, elst[0]);
    const bool wide = FullBoxVersion(fields.U32()) == 1;
    EXPECT_EQ(duration > UINT32_MAX, wide);
    EXPECT_EQ(1u, fields.U32());
    EXPECT_EQ(duration, wide ? fields.U64() : fields.U32());
    EXPECT_EQ(0u, wide ? fields.U64() : fields.U32());
    EXPECT_EQ(kFixedOne, fields.U32());
    EXPECT_TRUE(fields.ok);
    EXPECT_EQ(0u, fields.Left());
  }
}

}  // namespace
}  // namespace KTN
