// Pictures laid out as the library's readers and writers hold them, for
// calling kernels directly (tests and benchmarks). Every buffer ends exactly
// where a page ends and the next page is inaccessible, so a kernel that reads
// or writes one byte past its picture faults.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <vector>

#include "pixels/picture_access.h"

namespace testpix {

// `size` bytes that end at an inaccessible page. Freed at the end.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(size_t size) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    mapped_ = (size + page - 1) / page * page + page;
    base_ = static_cast<uint8_t*>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (base_ == MAP_FAILED) throw std::bad_alloc();
    mprotect(base_ + mapped_ - page, page, PROT_NONE);
    data_ = base_ + mapped_ - page - size;
  }
  ~GuardedBuffer() { munmap(base_, mapped_); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(data_, data_ + size_); }

 private:
  size_t size_, mapped_;
  uint8_t* base_;
  uint8_t* data_;
};

// A reader: 3 bytes a pixel, rows `rowBytes` apart, the last row's last pixel
// at the end of the buffer as in a pixbuf. Padding bytes are 0xEE, so a
// kernel that took them for pixels would show it.
struct ReaderImage {
  GuardedBuffer buffer;
  PictureReader reader{};

  ReaderImage(int32_t w, int32_t h, int32_t rowBytes)
      : buffer(static_cast<size_t>(rowBytes) * (h - 1) + 3 * static_cast<size_t>(w)) {
    std::memset(buffer.data(), 0xEE, buffer.size());
    reader.rowBytes = rowBytes, reader.base = buffer.data(), reader.width = w, reader.height = h;
  }
  // `pixels` (0x00RRGGBB, row by row) in rows padded to 4 bytes unless
  // `rowBytes` says otherwise.
  ReaderImage(int32_t w, int32_t h, const std::vector<uint32_t>& pixels, int32_t rowBytes = 0)
      : ReaderImage(w, h, rowBytes ? rowBytes : (3 * w + 3) & ~3) {
    for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i) {
      uint8_t* p = buffer.data() + i / w * reader.rowBytes + 3 * (i % w);
      p[0] = uint8_t(pixels[i] >> 16), p[1] = uint8_t(pixels[i] >> 8), p[2] = uint8_t(pixels[i]);
    }
  }
  const uint8_t* Row(int32_t y) const { return ReaderRow(reader, y); }
};

// A writer, zeroed, with the spare row after the last that the library's
// writers have.
struct WriterImage {
  GuardedBuffer buffer;
  PictureWriter writer{};

  WriterImage(int32_t w, int32_t h) : buffer(4 * static_cast<size_t>(w) * (h + 1)) {
    std::memset(buffer.data(), 0, buffer.size());
    writer.rowBytes = 4 * w, writer.base = buffer.data(), writer.width = w, writer.height = h;
  }
  uint32_t* Row(int32_t y) { return WriterRow(writer, y); }
  uint32_t At(int32_t x, int32_t y) const { return WriterRow(writer, y)[x]; }
  // The picture's pixels, row by row (the spare row left out).
  std::vector<uint32_t> Pixels() const {
    const auto* words = reinterpret_cast<const uint32_t*>(buffer.data());
    return std::vector<uint32_t>(words, words + static_cast<size_t>(writer.width) * writer.height);
  }
};

}  // namespace testpix
