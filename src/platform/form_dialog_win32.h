#pragma once
// "KZForm": the program's general dialog, built from rows top to bottom —
// static text, numbers, choices, check boxes and colours — with a default
// button whose label the caller gives ("Resize", "Rotate", "Apply") beside
// "Cancel". The caller reacts to changes (to keep rows in step) and checks
// the values when the default button is pressed; a refusal is shown in the
// program's message box and the dialog stays open. It follows the theme,
// scales with the dpi and is modal to its owner.
#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tavora {

class FormDialog {
 public:
  explicit FormDialog(std::wstring title, int baseWidth = 430);
  ~FormDialog();
  FormDialog(const FormDialog&) = delete;
  FormDialog& operator=(const FormDialog&) = delete;

  // Rows; each returns its id for the accessors below.
  int AddText(std::wstring text);
  int AddNumber(std::wstring label, double value, uint32_t decimals);
  int AddChoice(std::wstring label, std::vector<std::wstring> items, int selected);
  int AddCheck(std::wstring label, bool checked);
  int AddColor(std::wstring label, uint32_t color);

  // What a number row holds: nothing unless its whole text is a number.
  std::optional<double> Number(int id) const;
  // Sets a number row without calling the change handler.
  void SetNumber(int id, double value, uint32_t decimals);
  int Choice(int id) const;
  void SetChoice(int id, int index);
  bool Checked(int id) const;
  void SetChecked(int id, bool checked);
  uint32_t Color(int id) const;  // 0xFFRRGGBB
  void SetText(int id, std::wstring text);
  void Enable(int id, bool enabled);

  // Called after a row changed by the user (typing, choosing, ticking).
  std::function<void(FormDialog&, int id)> onChange;
  // Called on the default button: a message refuses it, empty accepts.
  std::function<std::wstring(FormDialog&)> validate;

  // True when closed with the default button.
  bool Run(HWND owner, const std::wstring& defaultLabel);

 private:
  struct Row;
  static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
  LRESULT Handle(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
  Row* Find(int id);
  const Row* Find(int id) const;

  std::wstring title_;
  int baseWidth_;
  std::vector<Row> rows_;
  HWND window_ = nullptr;
  HFONT font_ = nullptr;
  bool done_ = false, accepted_ = false, syncing_ = false;
};

}  // namespace tavora
