#pragma once
// tavora-cli's batch verb, the batch conversion of the editor without its
// dialog:
//   batch [--type=INDEX] [--to=png|jpg|bmp|gif|tif|webp] [--quality=Q]
//         [--lossless] [--png256] SRC_FOLDER DEST_FOLDER
#include <optional>
#include <string>
#include <vector>

namespace tavora {

// The exit status when `args` name the batch verb; nothing otherwise, and
// RunCli goes on with its other verbs. The report goes to `out`; while
// stderr is a terminal a progress line is shown there as the job runs.
std::optional<int> RunBatchCommand(const std::vector<std::u16string>& args, std::string& out, std::string& err);

}  // namespace tavora
