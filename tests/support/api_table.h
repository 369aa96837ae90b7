// The registered API as the sweep and the call-sequence fuzzer see it: every
// member the plug-in registered with the host, the kinds of its arguments,
// and for each kind a table of adversarial values. The sweep walks the tables
// in order; the fuzzer picks from them with its input bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host.h"

namespace api {

// One callable member. Setters take their arguments and then the value
// assigned, of type `type`; a property's getter and setter have no
// arguments and `type` is the property's.
struct Member {
  enum Kind { kExtension, kExtensionSetter, kGlobal, kMethod, kMethodSetter, kGet, kSet } kind;
  const ph::ClassInfo* cls = nullptr;  // null for globals
  std::string name, label;             // label: with the class, and " setter" for setters
  std::vector<ph::Param> params;
  ph::Type type = ph::Type::None;  // the result, or what a setter assigns
  std::string typeName;            // the class name for objects

  // Calls it (receiver nil for globals). Byref arguments are passed as
  // variables: `args` holds what the call left in them.
  ph::Value Call(ph::Host& host, const ph::Ref& receiver, std::vector<ph::Value>& args, ph::Value assigned = {}) const;
};

// In registration order: every class's methods, each followed by its setter,
// then its properties, each getter followed by its setter; then the globals.
const std::vector<Member>& Members(ph::Host& host);

// Adversarial values of the scalar kinds: zero, signs, the index bounds of
// the filter classes, the edges of 8, 16 and 32 bits, NaN and infinities,
// colours with bits above the 24 colour bits.
extern const std::vector<int32_t> kIntegers;  // kIntegers[1] is the ordinary 1
extern const std::vector<double> kDoubles;    // kDoubles[4] is the ordinary 0.5
extern const std::vector<uint32_t> kColors;   // kColors[2] is the ordinary grey

// Pictures: tiny, one row or column, odd sizes, foreign (type 2, readable
// only through a clone), with a mask; the last is the ordinary 64 x 48.
struct PictureKind {
  int32_t width, height;
  bool foreign, masked;
};
extern const std::vector<PictureKind> kPictures;
ph::Ref MakePicture(ph::Host& host, const PictureKind& kind, const std::vector<uint32_t>& pixels);

// Memory block sizes, short to long; the last holds any layout of 64 x 48.
extern const std::vector<int32_t> kBlockSizes;

// Strings: empty, a bare signature, PPIC strings of 0 x 0 and with a wrong
// length, a huge or negative width; the last alone is a well-formed 3 x 2.
struct Text {
  std::string bytes, text;
};
extern const std::vector<Text> kStrings;
// A PPIC string of w x h pixels whose length field is off by `lengthDelta`
// and whose width field says `widthField`.
std::string PpicString(int32_t w, int32_t h, int32_t lengthDelta, uint32_t widthField);

}  // namespace api
