#pragma once
// What several tavora-cli verbs share: documents read and written as every
// verb does (reader and writer by extension), numbers and points from the
// command line, and the messages of exit statuses 1 and 2.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/unicode.h"
#include "cli/cli.h"
#include "document/document.h"
#include "formats/file_formats.h"

namespace tavora::cli {

// The reader the file's extension selects; null when none fits or it fails.
inline std::unique_ptr<Document> OpenDocument(const std::filesystem::path& path) {
  return ReadDocumentFile(path);
}

inline bool SaveDocument(Document& doc, const std::filesystem::path& path) {
  return WriteDocumentFile(doc, path, EncodeOptionsFor(path, doc));
}

inline int CannotOpen(const std::filesystem::path& path, std::string& err) {
  err += "This file could not be opened.\n" + Utf16ToUtf8(path.u16string()) + "\n";
  return kCliCannotOpen;
}

inline int CannotSave(const std::filesystem::path& path, std::string& err) {
  err += "The file could not be saved.\n" + Utf16ToUtf8(path.u16string()) + "\n";
  return kCliCannotSave;
}

// A finite number within a billion: far beyond any canvas, and safe to
// turn into whole pixels.
inline std::optional<double> ParseNumber(std::u16string_view text) {
  const std::string s = Utf16ToUtf8(text);
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (s.empty() || end == s.c_str() || *end || !std::isfinite(v) || std::fabs(v) > 1e9) return std::nullopt;
  return v;
}

// Exactly `count` numbers separated by commas ("X,Y", "X0,Y0,X1,Y1").
inline std::optional<std::vector<double>> ParseNumbers(std::u16string_view text, std::size_t count) {
  std::vector<double> values;
  while (true) {
    const std::size_t comma = text.find(u',');
    const auto v = ParseNumber(text.substr(0, comma));
    if (!v) return std::nullopt;
    values.push_back(*v);
    if (comma == text.npos) break;
    text.remove_prefix(comma + 1);
  }
  if (values.size() != count) return std::nullopt;
  return values;
}

}  // namespace tavora::cli
