#pragma once
// A system codec for the native tests: decodes every file to a 3 x 2
// picture with one half-transparent pixel, and records what it is asked to
// encode, from any worker.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <mutex>

#include "pixels.h"
#include "platform/codec_bridge.h"

namespace tavora::testing_support {

struct FakeCodec {
  struct Encoded {
    Surface pixels;
    int32_t dpi;
    EncodeOptions options;
  };
  static inline std::mutex lock;
  static inline std::map<std::filesystem::path, Encoded> encoded;
  static inline int32_t fileDpi = 0;
  static inline bool fail = false;

  static std::optional<DecodedImage> Decode(const std::filesystem::path&) {
    if (fail) return std::nullopt;
    DecodedImage image{Surface(3, 2), fileDpi};
    image.pixels.Fill(Px(255, 1, 2, 3));
    image.pixels.At(0, 0) = Px(128, 200, 0, 0);
    return image;
  }
  static bool Encode(const std::filesystem::path& p, const Surface& s, int32_t dpi, const EncodeOptions& o) {
    const std::lock_guard<std::mutex> hold(lock);
    encoded[p] = {s, dpi, o};
    return !fail;
  }
  static constexpr SystemCodec kTable{&Decode, &Encode};
};

// The fake codec registered for one test.
class WithFakeCodec : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeCodec::encoded.clear();
    FakeCodec::fileDpi = 0;
    FakeCodec::fail = false;
    SetSystemCodec(&FakeCodec::kTable);
  }
  void TearDown() override { SetSystemCodec(nullptr); }
};

}  // namespace tavora::testing_support
