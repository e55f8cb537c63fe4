#pragma once
// Tavora's own layered file (".tvl", and ".kzl" from older versions): every
// layer with its name, visibility, opacity, blend mode, Background flag and
// effects, plus canvas size, dpi and colour count, as little-endian words.
#include <filesystem>
#include <memory>

#include "document/document.h"

namespace tavora {

// A new Document, or null on any failure; never shows a message. The path of
// the returned document is left for the caller to set.
[[nodiscard]] std::unique_ptr<Document> ReadLayeredDocument(const std::filesystem::path& path);

// True only when every byte reached the disk. The existing file is replaced
// only then: on failure it is left as it was and no partial file remains.
[[nodiscard]] bool WriteLayeredDocument(const Document& doc, const std::filesystem::path& path);

// ".tvl" or ".kzl", in any case.
bool IsLayeredExtension(const std::filesystem::path& path);

}  // namespace tavora
