// Pixel helpers shared by the subsystem tests: colours 0x00RRGGBB taken apart
// and put together, random pictures, and per-channel references.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

namespace testpix {

inline uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }
inline uint32_t Grey(uint32_t v) { return Rgb(v, v, v); }
inline std::vector<uint32_t> Greys(std::vector<uint32_t> levels) {
  for (uint32_t& v : levels) v = Grey(v);
  return levels;
}
// Channel k of a colour: 0 red, 1 green, 2 blue.
inline uint32_t Channel(uint32_t c, int k) { return (c >> (16 - 8 * k)) & 0xFF; }
inline uint32_t R(uint32_t c) { return Channel(c, 0); }
inline uint32_t G(uint32_t c) { return Channel(c, 1); }
inline uint32_t B(uint32_t c) { return Channel(c, 2); }

// `count` random colours, the same for the same seed.
inline std::vector<uint32_t> RandomPixels(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint32_t> pixels(count);
  for (uint32_t& p : pixels) p = random() & 0xFFFFFF;
  return pixels;
}

// Every pixel with each channel through its own function (the slow reference).
using ChannelFn = std::function<uint32_t(uint32_t)>;
inline std::vector<uint32_t> MapChannels(const std::vector<uint32_t>& pixels, const ChannelFn& fr, const ChannelFn& fg,
                                         const ChannelFn& fb) {
  std::vector<uint32_t> out;
  for (uint32_t p : pixels) out.push_back(Rgb(fr(R(p)), fg(G(p)), fb(B(p))));
  return out;
}

// A quarter turn counter-clockwise of a w x h picture: the result is h wide and
// w high, and result (x, y) is source (w - 1 - y, x).
inline std::vector<uint32_t> QuarterTurn(const std::vector<uint32_t>& src, int32_t w, int32_t h) {
  std::vector<uint32_t> out(src.size());
  for (int32_t y = 0; y < w; ++y)
    for (int32_t x = 0; x < h; ++x) out[size_t(y) * h + x] = src[size_t(x) * w + (w - 1 - y)];
  return out;
}

}  // namespace testpix
