// The platform handle methods: the two description queries. (The methods
// that have nothing to give on this platform are pinned by the sweep.)
#include "tests/support/host_fixture.h"

namespace {

class Handles : public HostTest {};

// The handle is the drawable of the locked description: non-zero, the same
// at every call, another for another picture. (The types, 6 and 2 for a
// picture that is no drawable, and nil receivers are in the sweep.)
TEST_F(Handles, HandleComesFromTheLockedDescription) {
  ph::Ref picture = Flat(3, 2, 0x123456), other = Flat(3, 2, 0x123456);
  const int32_t handle = host().Call(picture, "DataHandleQVT").AsInt();
  EXPECT_TRUE(handle != 0 && handle != -1) << handle;
  EXPECT_EQ(host().Call(picture, "DataHandleQVT").AsInt(), handle);
  EXPECT_NE(host().Call(other, "DataHandleQVT").AsInt(), handle);
}

// A host without the description lock gives no description: the queries
// answer the zeros of their own cleared description, never stack garbage.
TEST(HandlesWithoutDescription, QueriesAnswerZero) {
  const std::unique_ptr<ph::Host> bare = PrivateHost({"lockPictureDescription", "unlockPictureDescription"});
  ph::Ref picture = bare->NewPicture(2, 2, std::vector<uint32_t>(4, 0));
  EXPECT_EQ(bare->Call(picture, "DataTypeQVT").AsInt(), 0);
  EXPECT_EQ(bare->Call(picture, "DataHandleQVT").AsInt(), 0);
  EXPECT_EQ(bare->Call(ph::Ref(), "DataTypeQVT").AsInt(), -1);
  picture = ph::Ref();
  EXPECT_TRUE(bare->TakeProblems().empty());
}

}  // namespace
