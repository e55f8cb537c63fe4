#pragma once
// tavora-cli's effects verb, the Properties and Effects dialog's effect
// pages without the dialog:
//   effects LAYER KEY=VALUE... IN OUT   sets effect values of layer LAYER (0 = bottom)
//   effects --list                      every key with its range and default
#include <optional>
#include <string>
#include <vector>

namespace tavora {

// The exit status when `args` name the effects verb; nothing otherwise, and
// RunCli goes on with its other verbs.
std::optional<int> RunEffectsCommand(const std::vector<std::u16string>& args, std::string& out, std::string& err);

}  // namespace tavora
