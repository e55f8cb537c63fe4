#pragma once
// tavora-cli run in-process by its tests, and the files they hand it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "formats/layered_format.h"
#include "temp_dir.h"

namespace tavora::testing_support {

struct CliResult {
  int status = -1;
  std::string out, err;
};

inline CliResult Cli(const std::vector<std::u16string>& args) {
  CliResult r;
  r.status = RunCli(args, r.out, r.err);
  return r;
}

inline std::u16string U(const std::filesystem::path& p) { return p.u16string(); }
inline std::string Ascii(std::u16string_view text) { return {text.begin(), text.end()}; }

// The bottom layer of a document tavora-cli wrote; empty when it cannot be read.
inline Surface Bottom(const std::filesystem::path& p) {
  const auto doc = ReadLayeredDocument(p);
  EXPECT_TRUE(doc) << p;
  return doc ? doc->layers[0].pixels : Surface();
}

// Writes a document and returns its path as an argument.
inline std::u16string Written(const Document& doc, const TempDir& dir, const char* name) {
  EXPECT_TRUE(WriteLayeredDocument(doc, dir / name));
  return U(dir / name);
}

// A one-layer document of one colour.
inline std::u16string Plain(const TempDir& dir, const char* name, int32_t w, int32_t h, uint32_t colour) {
  return Written(*CreateDocument(w, h, 72, colour, 0), dir, name);
}

}  // namespace tavora::testing_support
