#pragma once
// Pictures decoded straight to a bounded size through the Windows Imaging
// Component, for thumbnails and previews: a JPEG decoder that can scale
// while decoding does so (an eighth of the work for a small thumbnail), a
// camera's embedded thumbnail is used when it is large enough, and other
// formats go through the component's scaler. The calling thread must have
// started COM. Windows only.
#include <cstdint>
#include <filesystem>
#include <optional>

#include "document/surface.h"

namespace tavora {

struct ScaledPicture {
  Surface pixels;          // straight-alpha BGRA, within the box
  int32_t width = 0;       // the picture's own size
  int32_t height = 0;
};

// Nothing when the component cannot read the file.
[[nodiscard]] std::optional<ScaledPicture> DecodeScaledWithWic(const std::filesystem::path& path,
                                                               int32_t boxWidth, int32_t boxHeight);

}  // namespace tavora
