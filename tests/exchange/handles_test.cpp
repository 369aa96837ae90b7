// The platform handle methods: the two description queries and the methods
// that have nothing to give on this platform.
#include <cstdint>
#include <vector>

#include "exchange/handles.h"
#include "tests/support/host_fixture.h"

namespace {

class Handles : public HostTest {};

TEST_F(Handles, TypeAndHandleComeFromTheLockedDescription) {
  ph::Ref picture = Flat(3, 2, 0x123456);
  EXPECT_EQ(host().Call(picture, "DataTypeQVT").AsInt(), 6);
  const int32_t handle = host().Call(picture, "DataHandleQVT").AsInt();
  EXPECT_NE(handle, 0);
  EXPECT_NE(handle, -1);
  EXPECT_EQ(host().Call(picture, "DataHandleQVT").AsInt(), handle);
  EXPECT_EQ(host().Locks(picture), 0);

  ph::Ref other = Flat(3, 2, 0x123456);
  EXPECT_NE(host().Call(other, "DataHandleQVT").AsInt(), handle);

  // A picture of another type answers its own type word, without a clone.
  ph::Ref foreign = host().NewForeignPicture(2, 2, std::vector<uint32_t>(4, 0));
  EXPECT_EQ(host().Call(foreign, "DataTypeQVT").AsInt(), 2);
}

TEST_F(Handles, NilPictureAnswersMinusOne) {
  EXPECT_EQ(host().Call(ph::Ref(), "DataTypeQVT").AsInt(), -1);
  EXPECT_EQ(host().Call(ph::Ref(), "DataHandleQVT").AsInt(), -1);
}

TEST_F(Handles, OtherPlatformsMethodsGiveNothing) {
  ph::Ref picture = Flat(2, 2, 0xFFFFFF);
  EXPECT_TRUE(host().Call(picture, "PicHandleQVT").IsNil());
  EXPECT_TRUE(host().Call(picture, "PicHandleDataQVT").IsNil());
  EXPECT_EQ(host().Call(picture, "MakeHBITMAPQVT").AsInt(), 0);
  ph::Ref data = host().NewString("PPIC....");
  EXPECT_TRUE(host().CallGlobal("BuildPictureWithPicHandleDataQVT", {data}).IsNil());
  EXPECT_EQ(host().Bytes(data), (std::vector<uint8_t>{'P', 'P', 'I', 'C', '.', '.', '.', '.'}));
  EXPECT_TRUE(host().CallGlobal("BuildPictureWithGWorldHandleQVT", {12345, true}).IsNil());
  EXPECT_TRUE(host().CallGlobal("BuildPictureWithGWorldHandleQVT", {0, false}).IsNil());
  EXPECT_EQ(host().Pixels(picture), std::vector<uint32_t>(4, 0xFFFFFF));
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
