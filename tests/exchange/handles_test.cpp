// The platform handle methods without a description lock. (What the queries
// answer otherwise is pinned in api_surface_test.cpp, the methods that have
// nothing to give on this platform and nil receivers by the sweep.)
#include "tests/support/host_fixture.h"

namespace {

// A host without the description lock gives no description: the queries
// answer the zeros of their own cleared description, never stack garbage.
TEST(HandlesWithoutDescription, QueriesAnswerZero) {
  const std::unique_ptr<ph::Host> bare = PrivateHost({"lockPictureDescription", "unlockPictureDescription"});
  ph::Ref picture = bare->NewPicture(2, 2, std::vector<uint32_t>(4, 0));
  EXPECT_EQ(bare->Call(picture, "DataTypeQVT").AsInt(), 0);
  EXPECT_EQ(bare->Call(picture, "DataHandleQVT").AsInt(), 0);
  picture = ph::Ref();
  EXPECT_TRUE(bare->TakeProblems().empty());
}

}  // namespace
