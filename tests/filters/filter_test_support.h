// Helpers shared by the filter-class tests: filter objects made, configured
// and run through the host.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/support/host_fixture.h"

namespace filter_test {

inline uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }
inline uint32_t Grey(uint32_t v) { return Rgb(v, v, v); }
inline uint32_t R(uint32_t c) { return (c >> 16) & 0xFF; }
inline uint32_t G(uint32_t c) { return (c >> 8) & 0xFF; }
inline uint32_t B(uint32_t c) { return c & 0xFF; }
inline uint32_t Channel(uint32_t c, int k) { return (c >> (16 - 8 * k)) & 0xFF; }

template <typename F>
std::vector<uint32_t> Generate(int32_t width, int32_t height, F colour) {
  std::vector<uint32_t> pixels;
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) pixels.push_back(colour(x, y));
  return pixels;
}

inline std::vector<uint32_t> RandomPixels(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint32_t> pixels(count);
  for (uint32_t& p : pixels) p = random() & 0xFFFFFF;
  return pixels;
}

// A property assignment (no index) or an indexed setter: o.Matrix(2, 2) = 1.
struct Setting {
  std::string name;
  std::vector<ph::Value> index;
  ph::Value value;
};

class FilterTest : public HostTest {
 protected:
  ph::Ref Make(const std::string& cls, const ph::Ref& source, const std::vector<Setting>& settings = {}) {
    ph::Ref o = host().NewInstance(cls);
    if (source) Set(o, "SourcePicture", source);
    Apply(o, settings);
    return o;
  }
  void Apply(const ph::Ref& o, const std::vector<Setting>& settings) {
    for (const Setting& s : settings) {
      if (s.index.empty())
        host().SetProperty(o, s.name, s.value);
      else
        host().AssignMethod(o, s.name, s.index, s.value);
    }
  }
  void Set(const ph::Ref& o, const std::string& property, ph::Value v) {
    host().SetProperty(o, property, std::move(v));
  }
  int32_t Int(const ph::Ref& o, const std::string& property) {
    return host().GetProperty(o, property).AsInt();
  }
  double Double(const ph::Ref& o, const std::string& property) {
    return host().GetProperty(o, property).AsDouble();
  }
  ph::Value Get(const ph::Ref& o, const std::string& method, std::vector<ph::Value> index) {
    return host().CallMethod(o, method, std::move(index));
  }
  bool Call(const ph::Ref& o, const std::string& method, std::vector<ph::Value> args = {}) {
    return host().CallMethod(o, method, std::move(args)).AsBool();
  }
  ph::Ref Destination(const ph::Ref& o) {
    ph::Value v = host().GetProperty(o, "DestinationPicture");
    return v.IsNil() ? ph::Ref{} : v.AsRef();
  }
  // The pixels of DestinationPicture; empty when it is nil.
  std::vector<uint32_t> Result(const ph::Ref& o) {
    ph::Ref d = Destination(o);
    return d ? host().Pixels(d) : std::vector<uint32_t>{};
  }
  // Runs the object (the call must succeed) and returns its result.
  std::vector<uint32_t> RunOn(const ph::Ref& o, const std::string& run = "Run",
                              std::vector<ph::Value> args = {}) {
    EXPECT_TRUE(Call(o, run, std::move(args)));
    return Result(o);
  }
};

}  // namespace filter_test
