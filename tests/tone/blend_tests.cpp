// Blending, combining and tinting, through the host; the reader order of the
// shared frame through direct calls with logged description locks.
#include "tests/tone/tone_test_support.h"
#include "tone/tone.h"
#include "plugin/host_calls.h"

using namespace tone_test;

namespace {

class ToneBlend : public HostTest {
 protected:
  // The pixels of a global method's result, or an empty vector for nil.
  std::vector<uint32_t> Global(const std::string& name, std::vector<ph::Value> args) {
    ph::Value v = host().CallGlobal(name, std::move(args));
    if (v.IsNil()) return {};
    return host().Pixels(v.AsRef());
  }
  std::vector<uint32_t> One(uint32_t c) { return {c}; }
};

TEST_F(ToneBlend, WeightedBlendUsesTenBitFixedPoint) {
  ph::Ref a = Flat(2, 2, Rgb(200, 100, 0));
  ph::Ref b = Flat(2, 2, Rgb(100, 100, 255));
  // 0.5: (200 × 512 + 100 × 512) / 1024 = 150.
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 0.5, b, 0.5}), std::vector<uint32_t>(4, Rgb(150, 100, 127)));
  // 1 and 1: 300 clamps to 255.
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 1.0, b, 1.0}), std::vector<uint32_t>(4, Rgb(255, 200, 255)));
  // 0.3 → 307 and 0.7 → 716: (100 × 307 + 100 × 716) / 1024 = 99, not 100.
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 0.3, b, 0.7}), std::vector<uint32_t>(4, Rgb(129, 99, 178)));
  // -0.1 → -102: (100 × -102) / 1024 = -9 (toward zero), stored as 247.
  EXPECT_EQ(Global("BlendPicturesQVT", {b, -0.1, a, 0.0}), std::vector<uint32_t>(4, Rgb(247, 247, 231)));
}

TEST_F(ToneBlend, WeightOneAndZeroReproducesTheSource) {
  ph::Ref a = Picture(7, 5, ph::SamplePixels(7, 5));
  ph::Ref b = Flat(7, 5, 0x123456);
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 1.0, b, 0.0}), ph::SamplePixels(7, 5));
  EXPECT_EQ(Global("BlendPicturesQVT", {b, 0.0, a, 1.0}), ph::SamplePixels(7, 5));
}

TEST_F(ToneBlend, WeightsBeyondThe32BitRangeOfTheSums) {
  ph::Ref a = Flat(1, 1, Rgb(255, 3, 0));
  ph::Ref b = Flat(1, 1, Rgb(255, 0, 0));
  // 255 × 5120000 × 2 leaves 32 bits; the exact sum still clamps to 255.
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 5000.0, b, 5000.0}), One(Rgb(255, 255, 0)));
  // -1e6 → -1024000000: the exact quotients are -255000000 and -3000000; their
  // low 8 bits are stored.
  auto low8 = [](int64_t v) { return static_cast<uint32_t>(((v % 256) + 256) % 256); };
  EXPECT_EQ(Global("BlendPicturesQVT", {a, -1e6, b, 0.0}), One(Rgb(low8(-255000000), low8(-3000000), 0)));
  // Weights past the 32-bit range are held at its ends.
  EXPECT_EQ(Global("BlendPicturesQVT", {a, 1e300, b, -1e300}), One(Rgb(low8((255LL * INT32_MAX + 255LL * INT32_MIN) / 1024), 255, 0)));
}

TEST_F(ToneBlend, MaskWeightsAreTheGreyOfTheMask) {
  ph::Ref s = Flat(1, 1, Rgb(255, 200, 0));
  ph::Ref d = Flat(1, 1, Rgb(0, 100, 255));
  // m = 254: 1/255 of the source shows (255 × 1 / 255 = 1).
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, Rgb(255, 255, 254))}), One(Rgb(1, 100, 254)));
  // m = 128: (200 × 127 + 100 × 128) / 255 = 149.
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, Rgb(128, 128, 128))}), One(Rgb(127, 149, 128)));
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, 0)}), One(Rgb(255, 200, 0)));
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, 0xFFFFFF)}), One(Rgb(0, 100, 255)));
  // The hue is ignored: pure red is m = 85, (200 × 170 + 100 × 85) / 255 = 166.
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, 0xFF0000)}), One(Rgb(170, 166, 85)));
}

TEST_F(ToneBlend, CombineTakesRedBlueGreenArguments) {
  const std::vector<uint32_t> sample = ph::SamplePixels(9, 4);
  ph::Ref p = Picture(9, 4, sample);
  EXPECT_EQ(Global("CombinePicturesQVT", {p, p, p}), sample);
  EXPECT_EQ(Global("CombinePicturesQVT", {Flat(2, 1, 0xFF0000), Flat(2, 1, 0x0000FF), Flat(2, 1, 0x00FF00)}),
            std::vector<uint32_t>(2, 0xFFFFFF));
  // red from the first, blue from the second, green from the third.
  EXPECT_EQ(Global("CombinePicturesQVT", {Flat(1, 1, Rgb(10, 20, 30)), Flat(1, 1, Rgb(40, 50, 60)),
                                          Flat(1, 1, Rgb(70, 80, 90))}),
            One(Rgb(10, 80, 60)));
}

TEST_F(ToneBlend, TintMakesGreyAndColoursIt) {
  const std::vector<uint32_t> sample = ph::SamplePixels(8, 8);
  ph::Ref p = Picture(8, 8, sample);
  auto red = [](uint32_t c) { return Rgb(R(c), R(c), R(c)); };
  std::vector<uint32_t> greys;
  for (uint32_t c : sample) greys.push_back(red(c));
  EXPECT_EQ(Global("TintPictureQVT", {p, ph::Color{0xFF0000}, ph::Color{0xFFFFFF}}), greys);
  // The top 8 bits of both colours are ignored.
  EXPECT_EQ(Global("TintPictureQVT", {p, ph::Color{0xABFF0000}, ph::Color{0x01FFFFFF}}), greys);
  EXPECT_EQ(Global("TintPictureQVT", {p, ph::Color{0x000000}, ph::Color{0xFFFFFF}}), std::vector<uint32_t>(64, 0));
  // 200 × 128/255 = 100.4 truncates to 100.
  EXPECT_EQ(Global("TintPictureQVT", {Flat(1, 1, Rgb(200, 7, 9)), ph::Color{0xFF0000}, ph::Color{0xFF8000}}),
            One(Rgb(200, 100, 0)));
  // A grey base summing to more than 255 pushes white into the clamp.
  EXPECT_EQ(Global("TintPictureQVT", {Flat(1, 1, 0xFFFFFF), ph::Color{0x808080}, ph::Color{0xFF8000}}),
            One(Rgb(255, 192, 0)));
}

TEST_F(ToneBlend, SizeDifferencesAndNilGiveNil) {
  ph::Ref a = Flat(4, 3, 0x808080);
  ph::Ref taller = Flat(4, 4, 0x808080);
  ph::Ref wider = Flat(5, 3, 0x808080);
  const ph::Value nil{ph::Ref()};
  for (const ph::Ref& odd : {taller, wider}) {
    EXPECT_TRUE(host().CallGlobal("BlendPicturesQVT", {odd, 0.5, a, 0.5}).IsNil());
    EXPECT_TRUE(host().CallGlobal("BlendPicturesQVT", {a, 0.5, odd, 0.5}).IsNil());
    EXPECT_TRUE(host().CallGlobal("BlendPicturesWithMaskQVT", {odd, a, a}).IsNil());
    EXPECT_TRUE(host().CallGlobal("BlendPicturesWithMaskQVT", {a, odd, a}).IsNil());
    EXPECT_TRUE(host().CallGlobal("BlendPicturesWithMaskQVT", {a, a, odd}).IsNil());
    EXPECT_TRUE(host().CallGlobal("CombinePicturesQVT", {odd, a, a}).IsNil());
    EXPECT_TRUE(host().CallGlobal("CombinePicturesQVT", {a, odd, a}).IsNil());
    EXPECT_TRUE(host().CallGlobal("CombinePicturesQVT", {a, a, odd}).IsNil());
  }
  EXPECT_TRUE(host().CallGlobal("BlendPicturesQVT", {a, 0.5, nil, 0.5}).IsNil());
  EXPECT_TRUE(host().CallGlobal("BlendPicturesWithMaskQVT", {a, a, nil}).IsNil());
  EXPECT_TRUE(host().CallGlobal("CombinePicturesQVT", {nil, a, a}).IsNil());
  EXPECT_TRUE(host().CallGlobal("TintPictureQVT", {nil, ph::Color{0xFFFFFF}, ph::Color{0xFFFFFF}}).IsNil());
  // Foreign pictures are read through clones in any position.
  ph::Ref foreign = host().NewForeignPicture(4, 3, std::vector<uint32_t>(12, 0x102030));
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {a, a, foreign}), std::vector<uint32_t>(12, 0x808080));
  EXPECT_EQ(Global("CombinePicturesQVT", {a, foreign, a}), std::vector<uint32_t>(12, 0x808030));
}

// --- The frame's reader order, observed through logged description locks ----

class ToneFrameOrder : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    direct_ = std::make_unique<DirectCalls>(host());
  }
  void TearDown() override {
    direct_.reset();
    HostTest::TearDown();
  }
  static REALpictureStruct* H(const ph::Ref& r) { return static_cast<REALpictureStruct*>(r.handle()); }
  // Every opened picture locked in `opened` order, then unlocked in reverse.
  static std::vector<LockEvent> Nested(const std::vector<const ph::Ref*>& opened) {
    std::vector<LockEvent> e;
    for (const ph::Ref* r : opened) e.push_back({true, r->handle()});
    for (auto it = opened.rbegin(); it != opened.rend(); ++it) e.push_back({false, (*it)->handle()});
    return e;
  }
  // Releases a picture a direct call returned; true when there was one.
  static bool Drop(REALpictureStruct* p) {
    if (p) REALUnlockObject(reinterpret_cast<REALobjectStruct*>(p));
    return p != nullptr;
  }
  std::unique_ptr<DirectCalls> direct_;
};

TEST_F(ToneFrameOrder, ReadersCloseInReverseOrderOnEveryPath) {
  ph::Ref r = Flat(3, 2, 0xFF0000), g = Flat(3, 2, 0x00FF00), b = Flat(3, 2, 0x0000FF);
  ph::Ref shorter = Flat(3, 1, 0);
  direct_->TakeEvents();

  EXPECT_TRUE(Drop(CombinePicturesQVT(H(r), H(b), H(g))));
  EXPECT_EQ(direct_->TakeEvents(), Nested({&r, &g, &b}));  // read red, green, blue
  EXPECT_FALSE(Drop(CombinePicturesQVT(H(r), H(b), H(shorter))));
  EXPECT_EQ(direct_->TakeEvents(), Nested({&r, &shorter, &b}));
  EXPECT_FALSE(Drop(BlendPictureMask(H(r), H(g), H(shorter))));
  EXPECT_EQ(direct_->TakeEvents(), Nested({&r, &g, &shorter}));
  EXPECT_FALSE(Drop(BlendPicture(H(shorter), 1.0, H(g), 1.0)));
  EXPECT_EQ(direct_->TakeEvents(), Nested({&shorter, &g}));
  EXPECT_TRUE(Drop(TintPicture(H(r), 0xFFFFFF, 0xFFFFFF)));
  EXPECT_EQ(direct_->TakeEvents(), Nested({&r}));
}

TEST_F(ToneFrameOrder, AnUnreadablePictureClosesTheReadersOpenedBeforeIt) {
  ph::Ref a = Flat(3, 2, 0x111111), c = Flat(3, 2, 0x333333);
  ph::Ref foreign = host().NewForeignPicture(3, 2, std::vector<uint32_t>(6, 0x222222));
  direct_->RefuseNewPictures(true);  // no clone can be made: the foreign picture is unreadable
  direct_->TakeEvents();

  // The failed attempt on the foreign picture locks and unlocks it twice (its
  // own pixels, then the clone that cannot be made); then the readers opened
  // before it are closed, last first, and nothing after it is opened.
  const void* f = foreign.handle();
  const std::vector<LockEvent> failed{{true, f}, {false, f}, {true, f}, {false, f}};
  auto expect = [&](std::vector<const ph::Ref*> before) {
    std::vector<LockEvent> e;
    for (const ph::Ref* r : before) e.push_back({true, r->handle()});
    e.insert(e.end(), failed.begin(), failed.end());
    for (auto it = before.rbegin(); it != before.rend(); ++it) e.push_back({false, (*it)->handle()});
    return e;
  };
  EXPECT_FALSE(Drop(BlendPictureMask(H(a), H(c), H(foreign))));
  EXPECT_EQ(direct_->TakeEvents(), expect({&a, &c}));
  EXPECT_FALSE(Drop(CombinePicturesQVT(H(a), H(c), H(foreign))));  // reads a, foreign, c
  EXPECT_EQ(direct_->TakeEvents(), expect({&a}));
  EXPECT_FALSE(Drop(BlendPicture(H(foreign), 0.5, H(a), 0.5)));
  EXPECT_EQ(direct_->TakeEvents(), expect({}));
}

}  // namespace
