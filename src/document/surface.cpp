#include "document/surface.h"

#include <cstring>
#include <utility>

namespace tavora {
namespace {

template <typename T>
std::unique_ptr<T[], FreeDeleter> AllocZeroed(std::size_t count) {
  if (count == 0) return nullptr;
  return std::unique_ptr<T[], FreeDeleter>(static_cast<T*>(CheckedAllocZeroed(count, sizeof(T))));
}

template <typename T>
std::unique_ptr<T[], FreeDeleter> AllocCopy(const T* source, std::size_t count) {
  if (count == 0) return nullptr;
  auto copy = std::unique_ptr<T[], FreeDeleter>(static_cast<T*>(CheckedAlloc(count * sizeof(T))));
  std::memcpy(copy.get(), source, count * sizeof(T));
  return copy;
}

}  // namespace

Surface::Surface(int32_t width, int32_t height)
    : width_(width > 0 && height > 0 ? width : 0),
      height_(width > 0 && height > 0 ? height : 0),
      pixels_(AllocZeroed<uint32_t>(PixelCount())) {}

Surface::Surface(const Surface& other)
    : width_(other.width_),
      height_(other.height_),
      pixels_(AllocCopy(other.pixels_.get(), other.PixelCount())) {}

Surface::Surface(Surface&& other) noexcept
    : width_(std::exchange(other.width_, 0)),
      height_(std::exchange(other.height_, 0)),
      pixels_(std::move(other.pixels_)) {}

Surface& Surface::operator=(Surface&& other) noexcept {
  width_ = std::exchange(other.width_, 0);
  height_ = std::exchange(other.height_, 0);
  pixels_ = std::move(other.pixels_);
  return *this;
}

Surface& Surface::operator=(const Surface& other) {
  if (this != &other) *this = Surface(other);
  return *this;
}

void Surface::Fill(uint32_t pixel) {
  uint32_t* p = Data();
  const std::size_t n = PixelCount();
  if (pixel == 0) {
    if (n) std::memset(p, 0, n * sizeof(uint32_t));
    return;
  }
  // Two pixels per step.
  const uint64_t pair = (uint64_t{pixel} << 32) | pixel;
  std::size_t i = 0;
  for (; i + 2 <= n; i += 2) std::memcpy(p + i, &pair, sizeof pair);
  if (i < n) p[i] = pixel;
}

SelectionMask::SelectionMask(int32_t width, int32_t height)
    : width_(width > 0 && height > 0 ? width : 0),
      height_(width > 0 && height > 0 ? height : 0),
      bytes_(AllocZeroed<uint8_t>(ByteCount())) {}

SelectionMask::SelectionMask(const SelectionMask& other)
    : width_(other.width_),
      height_(other.height_),
      bytes_(AllocCopy(other.bytes_.get(), other.ByteCount())) {}

SelectionMask::SelectionMask(SelectionMask&& other) noexcept
    : width_(std::exchange(other.width_, 0)),
      height_(std::exchange(other.height_, 0)),
      bytes_(std::move(other.bytes_)) {}

SelectionMask& SelectionMask::operator=(SelectionMask&& other) noexcept {
  width_ = std::exchange(other.width_, 0);
  height_ = std::exchange(other.height_, 0);
  bytes_ = std::move(other.bytes_);
  return *this;
}

SelectionMask& SelectionMask::operator=(const SelectionMask& other) {
  if (this != &other) *this = SelectionMask(other);
  return *this;
}

}  // namespace tavora
