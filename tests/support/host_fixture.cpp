#include "tests/support/host_fixture.h"

const char* PluginPath() { return PICTURE_PLUGIN_PATH; }

ph::Host& SharedHost() {
  static ph::Host* host = [] {
    ph::HostOptions options;
    options.pluginPath = PluginPath();
    return new ph::Host(options);
  }();
  return *host;
}

std::unique_ptr<ph::Host> PrivateHost(std::set<std::string> without, double version) {
  ph::HostOptions options;
  options.pluginPath = PluginPath();
  options.version = version;
  options.without = std::move(without);
  options.privateCopy = true;
  return std::make_unique<ph::Host>(options);
}

void ExpectCleanAccounting(uint64_t mark, const std::string& context) {
  for (const std::string& p : SharedHost().TakeProblems()) ADD_FAILURE() << context << ": " << p;
  for (const std::string& p : SharedHost().LeaksSince(mark)) ADD_FAILURE() << context << ": " << p;
}

void HostTest::SetUp() {
  host().TakeProblems();
  mark_ = host().Mark();
}

void HostTest::TearDown() { ExpectCleanAccounting(mark_); }

ph::Ref HostTest::Picture(int32_t width, int32_t height, const std::vector<uint32_t>& pixels) {
  return host().NewPicture(width, height, pixels);
}

ph::Ref HostTest::Flat(int32_t width, int32_t height, uint32_t color) {
  return Picture(width, height, std::vector<uint32_t>(static_cast<size_t>(width) * height, color));
}

ph::Ref HostTest::AsPicture(const ph::Value& v) {
  if (v.IsNil()) {
    ADD_FAILURE() << "expected a picture, got nil";
    return {};
  }
  return v.AsRef();
}
