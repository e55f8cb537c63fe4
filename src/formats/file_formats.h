#pragma once
// The tables and rules of opening and saving: which extensions open, which
// reader or writer handles a file, the dialog filters, the save format
// codes, recent files and the last folder.
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/settings_store.h"
#include "document/document.h"
#include "platform/codec_bridge.h"

namespace tavora {

// The sixteen extensions the program knows, compared without regard to
// case. Whether one opens right now is CanOpenFile's answer.
bool IsSupportedExtension(const std::filesystem::path& path);

enum class FileClass { NativeLayered, RadianceHdr, Photoshop, WebP, SystemCodec };
// Which reader and writer a file's extension selects.
FileClass ClassifyFile(const std::filesystem::path& path);

// Whether a file of this name can be read, or written, right now: the
// layered format always, the system codec's formats while a codec is set,
// the others once their reader or writer is part of the program.
bool CanOpenFile(const std::filesystem::path& path);
bool CanWriteFile(const std::filesystem::path& path);

struct DialogFilter {
  std::u16string label;
  std::u16string pattern;
  std::u16string extension;  // appended when none is typed (save filters)
};
// The dialogs list only what works at the moment they are asked for:
// "All images" with every pattern that opens, one filter per format that
// opens, "All files"; the save filters are the formats that can be written.
std::vector<DialogFilter> OpenFilters();
std::vector<DialogFilter> SaveFilters();  // filter index 1..SaveFilters().size()
// The save filter preselected for a document: layered for 2+ layers, else
// PNG (layered when PNG cannot be written).
int32_t DefaultSaveFilterIndex(const Document& doc);
// The name the save dialog proposes: the document's file name (or title)
// without its extension, plus the default filter's extension.
std::u16string ProposedSaveName(const Document& doc);
// A typed name gets the chosen filter's extension when it has none; an
// index outside the list counts as the nearest end.
std::filesystem::path WithSaveExtension(const std::filesystem::path& typed, int32_t filterIndex);

// The format code and options for a non-layered file name.
EncodeOptions EncodeOptionsFor(const std::filesystem::path& path, const Document& doc);
bool AsksForQuality(SaveFormat format);  // JPEG and WebP
bool NeedsOpaqueFlattening(SaveFormat format);  // JPEG and BMP

// The flattening warning is given only for a new name of a layered picture.
bool NeedsFlattenWarning(const Document& doc, const std::filesystem::path& chosen,
                         bool nameFromDialog);
inline constexpr std::u16string_view kFlattenWarning =
    u"This format cannot store layers. The layers will be flattened in the saved file.\n\n"
    u"Save as a .tvl file to keep layers.";
inline constexpr std::u16string_view kCannotOpen = u"This file could not be opened.";
inline constexpr std::u16string_view kCannotSave = u"The file could not be saved.";

// Reads a file with the reader its extension selects; the document gets the
// path and a clear modified flag. Nothing when it cannot be read (or the
// format's reader is not available).
struct OpenOptions {
  float hdrExposure = 0;  // EV, for Radiance HDR files
};
// Documents read from PSD and Radiance HDR files, which are never written
// back, get no path: the file name as their title and the modified flag,
// so that Save asks for a name and a format.
[[nodiscard]] std::unique_ptr<Document> ReadDocumentFile(const std::filesystem::path& path,
                                                         const OpenOptions& options = {});
// Writes with the writer the extension selects: the layered format as it
// is, other formats as the flattened picture (opaque for JPEG and BMP).
[[nodiscard]] bool WriteDocumentFile(Document& doc, const std::filesystem::path& path,
                                     const EncodeOptions& options);

// Path comparison the way Windows compares file names.
bool SamePathIgnoringCase(const std::filesystem::path& a, const std::filesystem::path& b);
// The folder of a file: the path cut at its last backslash or slash.
std::u16string FolderOf(const std::filesystem::path& path);

// Up to 8 paths, most recent first, kept in "Recent" / "r0".."r7".
class RecentFiles {
 public:
  static constexpr int kMax = 8;
  void Load(const SettingsStore& settings);
  void Add(const std::filesystem::path& path, SettingsStore& settings);
  const std::vector<std::u16string>& Paths() const { return paths_; }

 private:
  std::vector<std::u16string> paths_;
};

}  // namespace tavora
