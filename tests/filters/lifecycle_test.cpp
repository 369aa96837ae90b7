// What the picture-making filter classes share: Close and the destructor as
// one operation, and the references the objects hold. The fixture fails any
// test that leaves a picture referenced or releases one twice.
#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

struct Class {
  const char* name;
  std::vector<ph::Value> runArgs;
};
const Class kClasses[] = {{"PictureMatrixQVT", {}},   {"PictureConvolutionQVT", {int32_t{7}}},
                          {"PictureMatrix3DQVT", {}}, {"PictureLut3DQVT", {}},
                          {"PictureSepiaQVT", {}}};

class Lifecycle : public FilterTest {};

TEST_F(Lifecycle, CloseReleasesBothPicturesAndCanBeRepeated) {
  for (const Class& c : kClasses) {
    SCOPED_TRACE(c.name);
    ph::Ref source = Flat(7, 6, 0x336699);
    ph::Ref o = Make(c.name, source);
    RunOn(o, "Run", c.runArgs);
    ph::Ref result = Destination(o);
    EXPECT_EQ(host().References(source), 2);
    EXPECT_EQ(host().References(result), 2);
    host().CallMethod(o, "Close");
    EXPECT_FALSE(Destination(o));
    EXPECT_TRUE(host().GetProperty(o, "SourcePicture").IsNil());
    EXPECT_EQ(host().References(source), 1);
    EXPECT_EQ(host().References(result), 1);
    host().CallMethod(o, "Close");
    // Still usable after Close; destroyed after Close: nothing left to release.
    Set(o, "SourcePicture", source);
    RunOn(o, "Run", c.runArgs);
    host().CallMethod(o, "Close");
    o = ph::Ref{};
    EXPECT_EQ(host().References(source), 1);
  }
}

TEST_F(Lifecycle, DestructionReleasesWhatTheObjectHolds) {
  for (const Class& c : kClasses) {
    SCOPED_TRACE(c.name);
    ph::Ref source = Flat(5, 5, 0xFFFFFF), other = Flat(3, 3, 0), result;
    {
      ph::Ref o = Make(c.name, source, {{"DestinationPicture", {}, other}});
      RunOn(o, "Run", c.runArgs);  // lets go of `other`
      EXPECT_EQ(host().References(other), 1);
      result = Destination(o);
      // The script swaps the pictures around and runs again.
      Set(o, "DestinationPicture", source);
      Set(o, "SourcePicture", result);
      RunOn(o, "Run", c.runArgs);
      EXPECT_EQ(host().Width(Destination(o)), 5);
    }
    EXPECT_EQ(host().References(source), 1);
    EXPECT_EQ(host().References(result), 1);
  }
}

}  // namespace
