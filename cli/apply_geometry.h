#pragma once
// tavora-cli apply's geometry and resampling operations: resize, canvas
// size, crop, the turns, flips and free rotation of the image, and the
// same for the active layer.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "document/document.h"

namespace tavora::cli {

struct ParsedOp {
  enum class Outcome { NotMine, Ready, Usage, Refused } outcome = Outcome::NotMine;
  std::function<void(Document&)> run;  // when Ready
};
// `values` is what follows "name=", or nothing when there is no "=".
// Refused: a value the dialog would refuse, its message added to `err`.
ParsedOp ParseGeometryOp(std::u16string_view name, std::optional<std::u16string_view> values, std::string& err);
// The lines `tavora-cli ops` shows for them.
std::string GeometryOpsList();

}  // namespace tavora::cli
