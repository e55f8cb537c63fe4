#pragma once
// tavora-cli: the headless front end over the core, for scripts and tests.
#include <string>
#include <vector>

namespace tavora {

inline constexpr int kCliOk = 0;
inline constexpr int kCliCannotOpen = 1;
inline constexpr int kCliCannotSave = 2;
inline constexpr int kCliUsage = 64;

// args excludes the program name; out and err receive UTF-8 text.
int RunCli(const std::vector<std::u16string>& args, std::string& out, std::string& err);

}  // namespace tavora
