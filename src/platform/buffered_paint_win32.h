#pragma once
// WM_PAINT through an off-screen bitmap the size of the client area, copied
// to the window in one go when the painting ends: nothing flickers as the
// parts are drawn over one another.
#include <windows.h>

#include <algorithm>

namespace tavora {

class BufferedPaint {
 public:
  explicit BufferedPaint(HWND hwnd) : hwnd_(hwnd) {
    target_ = BeginPaint(hwnd, &ps_);
    GetClientRect(hwnd, &client_);
    dc_ = CreateCompatibleDC(target_);
    bitmap_ = CreateCompatibleBitmap(target_, std::max<LONG>(1, client_.right), std::max<LONG>(1, client_.bottom));
    old_ = SelectObject(dc_, bitmap_);
  }
  ~BufferedPaint() {
    BitBlt(target_, 0, 0, client_.right, client_.bottom, dc_, 0, 0, SRCCOPY);
    SelectObject(dc_, old_);
    DeleteObject(bitmap_);
    DeleteDC(dc_);
    EndPaint(hwnd_, &ps_);
  }
  BufferedPaint(const BufferedPaint&) = delete;
  BufferedPaint& operator=(const BufferedPaint&) = delete;

  HDC Dc() const { return dc_; }
  const RECT& Client() const { return client_; }

 private:
  HWND hwnd_;
  PAINTSTRUCT ps_{};
  HDC target_ = nullptr, dc_ = nullptr;
  RECT client_{};
  HBITMAP bitmap_ = nullptr;
  HGDIOBJ old_ = nullptr;
};

}  // namespace tavora
