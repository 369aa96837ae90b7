// Registration as the host sees it: the order of the records, their contents,
// the method-list form for old and new hosts, and the entry-point lookups.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "host/host.h"
#include "tests/support/host_fixture.h"

namespace {

using ph::Registration;

std::string NameOf(const Registration& r) {
  if (r.kind == Registration::Kind::Method) {
    return "global " + std::string(static_cast<const REALmethodDefinition*>(r.record)->declaration);
  }
  const auto* c = static_cast<const REALclassDefinition*>(r.record);
  return (r.kind == Registration::Kind::Extension ? "extension " : "class ") + std::string(c->name);
}

std::unique_ptr<ph::Host> PrivateHost(double version, std::set<std::string> without = {}) {
  ph::HostOptions o;
  o.pluginPath = PluginPath();
  o.version = version;
  o.without = std::move(without);
  o.privateCopy = true;  // fresh static records, as in a new process
  return std::make_unique<ph::Host>(o);
}

// The word at `index` of a method list read with a given record stride.
const void* Word(const REALclassDefinition* c, uint32_t method, int stride, int word) {
  return reinterpret_cast<void* const*>(reinterpret_cast<const uint8_t*>(c->methods) + method * stride *
                                        sizeof(void*) / 4)[word];
}

void ExpectNoProblems(ph::Host& host) {
  for (const std::string& p : host.TakeProblems()) ADD_FAILURE() << p;
}

}  // namespace

TEST(Registration, FollowsTheFixedOrder) {
  // Classes first (sepia, convolution, lookup table, palette, matrix,
  // matrix 3D), then the two extensions, the global methods, and last the
  // minimum and maximum finder.
  const std::vector<std::string> order = {
      "class PictureSepiaQVT", "class PictureConvolutionQVT", "class PictureLut3DQVT", "class PaletteQVT",
      "class PictureMatrixQVT", "class PictureMatrix3DQVT", "extension graphics", "extension Picture"};
  std::vector<std::string> seen;
  for (const Registration& r : SharedHost().Registrations()) seen.push_back(NameOf(r));

  auto picture = std::find(seen.begin(), seen.end(), "extension Picture");
  ASSERT_NE(picture, seen.end());
  auto expected = order.begin();
  for (auto it = seen.begin(); it <= picture; ++it) {
    expected = std::find(expected, order.end(), *it);
    ASSERT_NE(expected, order.end()) << *it << " is out of order";
  }
  for (auto it = picture + 1; it != seen.end(); ++it) {
    if (*it == "class PictureMinMaxQVT") {
      EXPECT_EQ(it + 1, seen.end()) << "the finder comes last";
    } else {
      EXPECT_EQ(it->rfind("global ", 0), 0u) << *it << " after the extensions";
    }
  }
}

TEST(Registration, RecordsHoldTheirFixedValues) {
  for (const Registration& r : SharedHost().Registrations()) {
    if (r.kind == Registration::Kind::Method) {
      EXPECT_EQ(static_cast<const REALmethodDefinition*>(r.record)->flags, 0u);
      continue;
    }
    const auto* c = static_cast<const REALclassDefinition*>(r.record);
    SCOPED_TRACE(c->name);
    EXPECT_EQ(c->version, 9u);
    EXPECT_EQ(c->superName, nullptr);
    EXPECT_EQ(c->events, nullptr);
    EXPECT_EQ(c->eventCount, 0u);
    for (uint32_t word : c->reserved) EXPECT_EQ(word, 0u);
    if (r.kind == Registration::Kind::Extension) {
      EXPECT_EQ(c->dataSize, 0u);
      EXPECT_EQ(c->constructor, nullptr);
      EXPECT_EQ(c->destructor, nullptr);
      EXPECT_EQ(c->properties, nullptr);
    } else {
      EXPECT_NE(c->constructor, nullptr);
      EXPECT_NE(c->destructor, nullptr);
      EXPECT_NE(c->instanceDataOffset, 0u) << "the host writes a non-zero offset";
    }
    for (uint32_t i = 0; i < c->methodCount; ++i) {
      EXPECT_NE(c->methods[i].function, nullptr);
      EXPECT_EQ(c->methods[i].flags, 0u);
    }
    for (uint32_t i = 0; i < c->propertyCount; ++i) {
      const REALpropertyDefinition& p = c->properties[i];
      EXPECT_EQ(p.group, nullptr);
      EXPECT_EQ(p.flags, 0u);
      for (uint32_t word : p.reserved) EXPECT_EQ(word, 0u);
    }
  }
  ASSERT_TRUE(SharedHost().AnnouncedVersion().has_value());
  EXPECT_EQ(*SharedHost().AnnouncedVersion(), 9);
}

TEST(Registration, EveryClassGetsItsOwnInstanceOffset) {
  std::set<uint32_t> offsets;
  size_t classes = 0;
  for (const ph::ClassInfo& c : SharedHost().Classes()) {
    if (c.extension) continue;
    ++classes;
    offsets.insert(c.record->instanceDataOffset);
  }
  EXPECT_EQ(offsets.size(), classes);
}

TEST(Registration, NewHostsGetFullMethodRecordsOldHostsShortOnes) {
  struct Case {
    double version;
    std::set<std::string> without;
    bool shortForm;
  };
  const Case cases[] = {{5.9, {}, false}, {2007.0, {}, false}, {5.8, {}, true}, {2007.0, {"REALGetRBVersion"}, true}};
  const ph::ClassInfo* reference = SharedHost().FindClass("Picture");
  ASSERT_NE(reference, nullptr);
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "host " << c.version << (c.without.empty() ? "" : " without version"));
    auto host = PrivateHost(c.version, c.without);
    size_t records = 0;
    for (const Registration& r : host->Registrations()) {
      if (r.kind == Registration::Kind::Method) {
        // Global methods always stay in the full form.
        const auto* m = static_cast<const REALmethodDefinition*>(r.record);
        EXPECT_EQ(m->flags, 0u);
        continue;
      }
      ++records;
      const auto* record = static_cast<const REALclassDefinition*>(r.record);
      const int stride = c.shortForm ? 12 : 16;
      const ph::ClassInfo* original = SharedHost().FindClass(record->name);
      ASSERT_NE(original, nullptr);
      ASSERT_EQ(record->methodCount, original->methods.size());
      for (uint32_t i = 0; i < record->methodCount; ++i) {
        const char* declaration = static_cast<const char*>(Word(record, i, stride, 2));
        EXPECT_STREQ(declaration, original->methods[i].declaration.text.c_str());
        EXPECT_EQ(Word(record, i, stride, 1) != nullptr, original->methods[i].setter != nullptr);
        EXPECT_NE(Word(record, i, stride, 0), nullptr);
        if (!c.shortForm) {
          EXPECT_EQ(record->methods[i].flags, 0u);
        }
      }
    }
    EXPECT_GE(records, 2u);
    ExpectNoProblems(*host);
  }
}

TEST(Registration, MissingHostEntriesAreHandledSilently) {
  {
    auto host = PrivateHost(2007.0, {"RegisterPluginVersion"});
    EXPECT_FALSE(host->AnnouncedVersion().has_value());
    EXPECT_EQ(host->Registrations().size(), SharedHost().Registrations().size());
  }
  {
    // Without the class entry point every class is skipped, and the entry is
    // asked for again at each class; extensions and globals still register.
    auto host = PrivateHost(2007.0, {"PluginRegisterClass"});
    size_t classesOffered = 0;
    for (const Registration& r : SharedHost().Registrations()) classesOffered += r.kind == Registration::Kind::Class;
    EXPECT_EQ(host->Registrations().size(), SharedHost().Registrations().size() - classesOffered);
    for (const Registration& r : host->Registrations()) EXPECT_NE(r.kind, Registration::Kind::Class);
    const auto& asked = host->ResolverRequests();
    EXPECT_EQ(static_cast<size_t>(std::count(asked.begin(), asked.end(), "PluginRegisterClass")), classesOffered);
    ExpectNoProblems(*host);
  }
}

TEST(EntryPoints, FoundOnesAreAskedOnceMissingOnesEveryTime) {
  auto host = PrivateHost(2007.0, {"pluginPictureGraphicsGetter"});
  const std::vector<uint32_t> pixels = {0x102030, 0x405060};
  ph::Ref p = host->NewPicture(2, 1, pixels);
  for (int i = 0; i < 3; ++i) {
    // Without a graphics the clone is made but left without content (white).
    ph::Value c = host->Call(p, "CloneQVT");
    ASSERT_FALSE(c.IsNil());
    EXPECT_EQ(host->Pixels(c.AsRef()), (std::vector<uint32_t>{0xFFFFFF, 0xFFFFFF}));
  }
  const auto& asked = host->ResolverRequests();
  auto count = [&](const char* name) { return std::count(asked.begin(), asked.end(), name); };
  EXPECT_EQ(count("newPicture"), 1);
  EXPECT_EQ(count("lockPictureDescription"), 1);
  EXPECT_EQ(count("unlockPictureDescription"), 1);
  EXPECT_EQ(count("pluginPictureGraphicsGetter"), 3);
  EXPECT_EQ(count("RegisterPluginVersion"), 1);
  EXPECT_EQ(count("REALGetRBVersion"), 1);
  ExpectNoProblems(*host);
}

TEST(EntryPoints, AMissingEntryPointAnswersZero) {
  // No "newPicture": the clone has nothing to draw into, so the call gives nil.
  auto host = PrivateHost(2007.0, {"newPicture"});
  ph::Ref p = host->NewPicture(1, 1, std::vector<uint32_t>{0xFF0000});
  EXPECT_TRUE(host->Call(p, "CloneQVT").IsNil());
  EXPECT_TRUE(host->Call(p, "CloneQVT").IsNil());
  const auto& asked = host->ResolverRequests();
  EXPECT_EQ(std::count(asked.begin(), asked.end(), "newPicture"), 2);
  ExpectNoProblems(*host);
}
