#pragma once
// tavora-cli's drawing verbs, which need the system drawing (GDI+):
//   paint line|rectangle|ellipse|rounded-rectangle [KEY=VALUE...] X0,Y0 X1,Y1 IN OUT
//   text STRING [KEY=VALUE...] X,Y IN OUT
#include <optional>
#include <string>
#include <vector>

namespace tavora {

// The exit status when `args` name one of these verbs; nothing otherwise,
// and RunCli goes on with its own verbs.
std::optional<int> RunDrawCommand(const std::vector<std::u16string>& args, std::string& out, std::string& err);

}  // namespace tavora
