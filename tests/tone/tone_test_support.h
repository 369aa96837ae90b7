// Helpers shared by the tone and colour tests.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "tests/support/host_fixture.h"

namespace tone_test {

inline uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }
inline uint32_t R(uint32_t c) { return (c >> 16) & 0xFF; }
inline uint32_t G(uint32_t c) { return (c >> 8) & 0xFF; }
inline uint32_t B(uint32_t c) { return c & 0xFF; }

// Applies a per-channel function to every pixel (the slow reference).
inline std::vector<uint32_t> MapChannels(const std::vector<uint32_t>& pixels, const std::function<uint32_t(uint32_t)>& fr,
                                         const std::function<uint32_t(uint32_t)>& fg,
                                         const std::function<uint32_t(uint32_t)>& fb) {
  std::vector<uint32_t> out;
  for (uint32_t p : pixels) out.push_back(Rgb(fr(R(p)), fg(G(p)), fb(B(p))));
  return out;
}

// Direct calls of the handlers linked into the test program, with the host's
// services reached through a resolver that logs every description lock and
// unlock and can refuse to make new pictures (which makes a foreign picture
// unreadable: its clone cannot be made).
struct LockEvent {
  bool lock;
  const void* picture;
  bool operator==(const LockEvent&) const = default;
};

class DirectCalls {
 public:
  // Makes `host` answer the services (it must be the current host).
  explicit DirectCalls(ph::Host& host);
  ~DirectCalls();

  std::vector<LockEvent> TakeEvents();
  void RefuseNewPictures(bool refuse);
};

}  // namespace tone_test
