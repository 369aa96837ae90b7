// Helpers shared by the filter-class tests: filter objects made, configured
// and run through the host.
#pragma once

#include <string>
#include <vector>

#include "tests/support/host_fixture.h"
#include "tests/support/pixels.h"

namespace filter_test {

using namespace testpix;

// The w x h pixels colour(x, y), row by row.
template <typename F>
std::vector<uint32_t> Generate(int32_t width, int32_t height, F colour) {
  std::vector<uint32_t> pixels;
  for (int32_t i = 0; i < width * height; ++i) pixels.push_back(colour(i % width, i / width));
  return pixels;
}

// A property assignment (no index) or an indexed setter: o.Matrix(2, 2) = 1.
struct Setting { std::string name; std::vector<ph::Value> index; ph::Value value; };

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
      if (s.index.empty()) host().SetProperty(o, s.name, s.value);
      else host().AssignMethod(o, s.name, s.index, s.value);
    }
  }
  void Set(const ph::Ref& o, const std::string& property, ph::Value v) { host().SetProperty(o, property, std::move(v)); }
  bool Call(const ph::Ref& o, const std::string& method, std::vector<ph::Value> args = {}) {
    return host().CallMethod(o, method, std::move(args)).AsBool();
  }
  ph::Ref Destination(const ph::Ref& o) {
    ph::Value v = host().GetProperty(o, "DestinationPicture");
    return v.IsNil() ? ph::Ref{} : v.AsRef();
  }
  // Runs the object (the call must succeed) and returns the pixels of its result.
  std::vector<uint32_t> RunOn(const ph::Ref& o, const std::string& run = "Run", std::vector<ph::Value> args = {}) {
    EXPECT_TRUE(Call(o, run, std::move(args)));
    ph::Ref d = Destination(o);
    return d ? host().Pixels(d) : std::vector<uint32_t>{};
  }
};

}  // namespace filter_test
