// Test support: the process-wide emulated host with the built plug-in loaded,
// and a fixture that checks the host's accounting after every test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/host.h"

// The path of the libPicture.so under test.
const char* PluginPath();

// The host shared by all tests of one program (the plug-in registers once).
ph::Host& SharedHost();

// A host of its own, with a fresh copy of the plug-in (fresh static records,
// as in a new process), answering `version` and lacking the entry points
// `without`.
std::unique_ptr<ph::Host> PrivateHost(std::set<std::string> without = {}, double version = 2007.0);

// Fails the current test for every accounting problem of the shared host and
// every object made since `mark` that is still referenced, naming `context`.
void ExpectCleanAccounting(uint64_t mark, const std::string& context = "host");

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  ph::Host& host() { return SharedHost(); }

  // A picture of the given pixels (0x00RRGGBB, row by row).
  ph::Ref Picture(int32_t width, int32_t height, const std::vector<uint32_t>& pixels);
  // A picture of one colour.
  ph::Ref Flat(int32_t width, int32_t height, uint32_t color);
  // The result of a call as a picture (fails the test when it is not one).
  ph::Ref AsPicture(const ph::Value& v);

 private:
  uint64_t mark_ = 0;
};
