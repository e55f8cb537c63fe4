#pragma once
// Tavora's own layered file (".tvl", and ".kzl" from older versions): every
// layer with its name, visibility, opacity, blend mode, Background flag and
// effects, plus canvas size, dpi and colour count, as little-endian words.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

#include "document/document.h"

namespace tavora {

// A new Document, or null on any failure; never shows a message. The path of
// the returned document is left for the caller to set.
[[nodiscard]] std::unique_ptr<Document> ReadLayeredDocument(const std::filesystem::path& path);
// The same from bytes in memory (the fuzzer, tests).
[[nodiscard]] std::unique_ptr<Document> ReadLayeredDocumentBytes(std::span<const uint8_t> bytes);
class ByteInput;
[[nodiscard]] std::unique_ptr<Document> ReadLayeredDocument(ByteInput& source);

// True only when every byte reached the disk. The existing file is replaced
// only then: on failure it is left as it was and no partial file remains.
[[nodiscard]] bool WriteLayeredDocument(const Document& doc, const std::filesystem::path& path);

// Tests compare the block-wise, threaded coding of the pixel runs with the
// plain one pair at a time; false selects the plain one.
void AllowFastRunCodingForTesting(bool allowed);

// ".tvl" or ".kzl", in any case.
bool IsLayeredExtension(const std::filesystem::path& path);

}  // namespace tavora
