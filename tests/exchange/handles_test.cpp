// The platform handle methods: the two description queries. (The methods
// that have nothing to give on this platform are pinned by the sweep.)
#include "tests/support/host_fixture.h"

namespace {

class Handles : public HostTest {};

TEST_F(Handles, TypeAndHandleComeFromTheLockedDescription) {
  ph::Ref picture = Flat(3, 2, 0x123456), other = Flat(3, 2, 0x123456);
  EXPECT_EQ(host().Call(picture, "DataTypeQVT").AsInt(), 6);
  const int32_t handle = host().Call(picture, "DataHandleQVT").AsInt();
  EXPECT_NE(handle, 0);
  EXPECT_NE(handle, -1);
  EXPECT_EQ(host().Call(picture, "DataHandleQVT").AsInt(), handle);
  EXPECT_NE(host().Call(other, "DataHandleQVT").AsInt(), handle);
  // A picture of another type answers its own type word, without a clone.
  EXPECT_EQ(host().Call(host().NewForeignPicture(2, 2, std::vector<uint32_t>(4, 0)), "DataTypeQVT").AsInt(), 2);
}

// A host without the description lock gives no description: the queries
// answer the zeros of their own cleared description, never stack garbage.
TEST(HandlesWithoutDescription, QueriesAnswerZero) {
  ph::HostOptions options;
  options.pluginPath = PluginPath();
  options.privateCopy = true;
  options.without = {"lockPictureDescription", "unlockPictureDescription"};
  ph::Host bare(options);
  ph::Ref picture = bare.NewPicture(2, 2, std::vector<uint32_t>(4, 0));
  EXPECT_EQ(bare.Call(picture, "DataTypeQVT").AsInt(), 0);
  EXPECT_EQ(bare.Call(picture, "DataHandleQVT").AsInt(), 0);
  EXPECT_EQ(bare.Call(ph::Ref(), "DataTypeQVT").AsInt(), -1);
  picture = ph::Ref();
  EXPECT_TRUE(bare.TakeProblems().empty());
}

}  // namespace
