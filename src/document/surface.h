#pragma once
// Pixel buffers of the document model. A Surface pixel read as a 32-bit
// integer is 0xAARRGGBB (memory order B, G, R, A), alpha straight; rows are
// top-down with no padding, so whole-buffer work is one fill or one copy.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/memory.h"

namespace tavora {

class Surface {
 public:
  Surface() = default;
  // All zero bytes: transparent black.
  Surface(int32_t width, int32_t height);
  Surface(const Surface& other);
  Surface& operator=(const Surface& other);
  // A moved-from surface is empty (0 x 0), never a size without pixels.
  Surface(Surface&& other) noexcept;
  Surface& operator=(Surface&& other) noexcept;

  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  std::size_t PixelCount() const { return std::size_t(width_) * std::size_t(height_); }
  bool Empty() const { return PixelCount() == 0; }

  uint32_t* Data() { return pixels_.get(); }
  const uint32_t* Data() const { return pixels_.get(); }
  uint32_t* Row(int32_t y) { return pixels_.get() + std::size_t(y) * std::size_t(width_); }
  const uint32_t* Row(int32_t y) const {
    return pixels_.get() + std::size_t(y) * std::size_t(width_);
  }
  uint32_t& At(int32_t x, int32_t y) { return Row(y)[x]; }
  uint32_t At(int32_t x, int32_t y) const { return Row(y)[x]; }

  void Fill(uint32_t pixel);

 private:
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::unique_ptr<uint32_t[], FreeDeleter> pixels_;
};

// One byte per canvas pixel: 0 unselected, 255 fully selected, between is
// partial coverage. A document without a selection holds no mask at all.
class SelectionMask {
 public:
  SelectionMask() = default;
  SelectionMask(int32_t width, int32_t height);  // all unselected
  SelectionMask(const SelectionMask& other);
  SelectionMask& operator=(const SelectionMask& other);
  SelectionMask(SelectionMask&& other) noexcept;
  SelectionMask& operator=(SelectionMask&& other) noexcept;

  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  std::size_t ByteCount() const { return std::size_t(width_) * std::size_t(height_); }

  uint8_t* Data() { return bytes_.get(); }
  const uint8_t* Data() const { return bytes_.get(); }
  uint8_t* Row(int32_t y) { return bytes_.get() + std::size_t(y) * std::size_t(width_); }
  const uint8_t* Row(int32_t y) const {
    return bytes_.get() + std::size_t(y) * std::size_t(width_);
  }
  uint8_t& At(int32_t x, int32_t y) { return Row(y)[x]; }
  uint8_t At(int32_t x, int32_t y) const { return Row(y)[x]; }

 private:
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::unique_ptr<uint8_t[], FreeDeleter> bytes_;
};

}  // namespace tavora
