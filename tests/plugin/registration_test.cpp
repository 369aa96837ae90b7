// Registration with hosts that lack entry points, and the entry-point
// lookups. (The records themselves are checked in api_surface_test.cpp.)
#include <algorithm>

#include "tests/support/host_fixture.h"

namespace {

using ph::Registration;

size_t Count(const std::vector<std::string>& names, const char* name) { return std::count(names.begin(), names.end(), name); }

void ExpectNoProblems(ph::Host& host) {
  for (const std::string& p : host.TakeProblems()) ADD_FAILURE() << p;
}

}  // namespace

// Found entry points are asked for once, missing ones every time; a missing
// one answers zero.
TEST(EntryPoints, FoundOnesAreAskedOnceMissingOnesEveryTime) {
  auto host = PrivateHost({"pluginPictureGraphicsGetter"});
  ph::Ref p = host->NewPicture(2, 1, std::vector<uint32_t>{0x102030, 0x405060});
  for (int i = 0; i < 3; ++i) {
    // Without a graphics the clone is made but left without content (white).
    EXPECT_EQ(host->Pixels(host->Call(p, "CloneQVT").AsRef()), (std::vector<uint32_t>{0xFFFFFF, 0xFFFFFF}));
  }
  const auto& asked = host->ResolverRequests();
  for (const char* once : {"newPicture", "lockPictureDescription", "unlockPictureDescription", "RegisterPluginVersion",
                           "REALGetRBVersion"})
    EXPECT_EQ(Count(asked, once), 1u) << once;
  EXPECT_EQ(Count(asked, "pluginPictureGraphicsGetter"), 3u);
  ExpectNoProblems(*host);

  // No "newPicture": the clone has nothing to draw into, so the call gives nil.
  auto bare = PrivateHost({"newPicture"});
  ph::Ref q = bare->NewPicture(1, 1, std::vector<uint32_t>{0xFF0000});
  EXPECT_TRUE(bare->Call(q, "CloneQVT").IsNil());
  EXPECT_TRUE(bare->Call(q, "CloneQVT").IsNil());
  EXPECT_EQ(Count(bare->ResolverRequests(), "newPicture"), 2u);
  ExpectNoProblems(*bare);
}
