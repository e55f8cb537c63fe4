#pragma once
// Thumbnails and the preview of the Browse tab, decoded on two threads of
// their own. The threads and the window share one critical section: the
// threads wait on it, the window only tries it (TrySync) and tries again on
// its next timer tick when a thread holds it, so the window never waits on
// a decode. Windows only.
#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "browse/browse_model.h"

namespace tavora {

// What the window wants: the files of the shown folder (a new generation
// drops all work for the old one), the cells in view and the preview.
struct LoaderRequest {
  int32_t generation = 0;
  std::vector<std::filesystem::path> files;  // empty paths (folders) are never loaded
  int32_t thumbBox = 160;
  int32_t firstVisible = 0, lastVisible = 0;
  std::filesystem::path preview;  // empty: none
  int32_t previewBox = 512;
};

struct LoadedThumb {
  int32_t index = 0;
  Surface pixels;  // empty when the file could not be read
};
struct LoadedPreview {
  std::filesystem::path path;
  Surface pixels;  // empty when the file could not be read
  int32_t width = 0, height = 0;
};

// Any picture the program opens, shrunk to the box on the way when the
// format allows; the picture's own size goes to width and height.
[[nodiscard]] std::optional<Surface> DecodeForBrowse(const std::filesystem::path& path, int32_t box, int32_t& width,
                                                     int32_t& height);

class ThumbnailLoader {
 public:
  // `notify` gets `message` posted when results are ready.
  ThumbnailLoader(HWND notify, UINT message);
  ~ThumbnailLoader();  // stops and joins the threads
  ThumbnailLoader(const ThumbnailLoader&) = delete;
  ThumbnailLoader& operator=(const ThumbnailLoader&) = delete;

  // Hands over the request and takes the finished results of its
  // generation. False, with nothing done, when the lock is busy.
  [[nodiscard]] bool TrySync(const LoaderRequest& request, std::vector<LoadedThumb>& thumbs,
                             std::optional<LoadedPreview>& preview);
  // Whether anything is still waiting or under way (as of the last sync).
  bool Busy() const { return busy_; }

 private:
  struct Shared;
  static DWORD WINAPI ThreadMain(void* self);
  void Work();

  std::unique_ptr<Shared> shared_;
  std::vector<HANDLE> threads_;
  bool busy_ = false;
};

}  // namespace tavora
