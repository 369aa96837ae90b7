// What the picture-making filter classes share: Close and the destructor as
// one operation, and the references the objects hold. The fixture fails any
// test that leaves a picture referenced or releases one twice.
#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

class Lifecycle : public FilterTest {};

TEST_F(Lifecycle, CloseAndDestructionReleaseWhatTheObjectHolds) {
  const std::pair<const char*, std::vector<ph::Value>> classes[] = {
      {"PictureMatrixQVT", {}}, {"PictureConvolutionQVT", {int32_t{7}}}, {"PictureMatrix3DQVT", {}}, {"PictureLut3DQVT", {}},
      {"PictureSepiaQVT", {}}};
  for (const auto& [name, runArgs] : classes) {
    SCOPED_TRACE(name);
    // Close releases both pictures, can be repeated, and leaves the object usable.
    ph::Ref source = Flat(7, 6, 0x336699);
    ph::Ref o = Make(name, source);
    RunOn(o, "Run", runArgs);
    ph::Ref result = Destination(o);
    EXPECT_EQ(host().References(source) * 10 + host().References(result), 22);
    host().CallMethod(o, "Close");
    EXPECT_FALSE(Destination(o));
    EXPECT_TRUE(host().GetProperty(o, "SourcePicture").IsNil());
    EXPECT_EQ(host().References(source) * 10 + host().References(result), 11);
    host().CallMethod(o, "Close");
    Set(o, "SourcePicture", source);
    RunOn(o, "Run", runArgs);
    host().CallMethod(o, "Close");
    o = ph::Ref{};  // destroyed after Close: nothing left to release
    EXPECT_EQ(host().References(source), 1);

    // A run lets go of the earlier result; the script swaps the pictures
    // around and runs again; destruction releases both.
    ph::Ref other = Flat(3, 3, 0);
    {
      ph::Ref p = Make(name, source, {{"DestinationPicture", {}, other}});
      RunOn(p, "Run", runArgs);
      EXPECT_EQ(host().References(other), 1);
      result = Destination(p);
      Set(p, "DestinationPicture", source);
      Set(p, "SourcePicture", result);
      RunOn(p, "Run", runArgs);
      EXPECT_EQ(host().Width(Destination(p)), 7);
    }
    EXPECT_EQ(host().References(source) * 10 + host().References(result), 11);
  }
}

}  // namespace
