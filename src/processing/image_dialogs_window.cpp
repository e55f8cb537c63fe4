#include "processing/image_dialogs_window.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "base/settings_store.h"
#include "processing/color_depth.h"
#include "processing/effect_dialog.h"
#include "processing/effect_dialogs.h"
#include "processing/geometry.h"
#include "processing/resample.h"
#include "processing/resize_dialog.h"
#include "platform/form_dialog_win32.h"

namespace tavora {
namespace {

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::wstring Format(const wchar_t* format, int a, int b) {
  wchar_t text[160];
  std::swprintf(text, 160, format, a, b);
  return text;
}

int32_t Whole(double v) { return static_cast<int32_t>(std::floor(v + 0.5)); }

// Remembered values of these dialogs: "Dlg <title>" / "c<row>", as the
// effect dialogs keep theirs.
struct Memory {
  std::u16string section;
  int32_t Int(const char* key, int32_t fallback, int32_t low, int32_t high) const {
    const auto v = ParseRememberedIndex(AppSettings().GetString(section, Key(key)), high - low);
    return v ? *v + low : fallback;
  }
  std::optional<uint32_t> Color(const char* key) const {
    return ParseRememberedColor(AppSettings().GetString(section, Key(key)));
  }
  static std::u16string Key(const char* key) { return std::u16string(key, key + std::char_traits<char>::length(key)); }
  static std::u16string Number(int32_t v) {
    const std::string s = std::to_string(v);
    return {s.begin(), s.end()};
  }
};

// The width, height and percent boxes of a resize dialog, each following the
// others over a base size. The box being typed in keeps its text (and its
// caret): rewriting it would turn each keystroke back into the old value.
struct SizeBoxes {
  int width = 0, height = 0, percent = 0;
  int32_t baseWidth = 0, baseHeight = 0;
  SizeFields fields;

  SizeField FieldOf(int id) const {
    return id == width ? SizeField::Width : id == height ? SizeField::Height : SizeField::Percent;
  }
  bool Has(int id) const { return id == width || id == height || id == percent; }
  void Follow(FormDialog& f, SizeField changed, double value, bool keep) {
    fields = FollowSizeField(baseWidth, baseHeight, fields, changed, value, keep);
    if (changed != SizeField::Width) f.SetNumber(width, fields.width, 0);
    if (changed != SizeField::Height) f.SetNumber(height, fields.height, 0);
    if (changed != SizeField::Percent) f.SetNumber(percent, fields.percent, 2);
  }
};

}  // namespace

bool RunResizeImageDialog(HWND owner, Document& doc) {
  ResizeOptions o = LoadResizeOptions(AppSettings());
  FormDialog form(L"Resize Image", 470);
  form.AddText(Format(L"Current size: %d \u00D7 %d px", doc.width, doc.height));
  std::vector<std::wstring> methods, algorithms, engines, presets;
  for (const auto& m : ResizeMethods()) methods.push_back(Wide(m.text) + L" (" + Wide(m.summary) + L")");
  for (const auto& a : ResizeAlgorithms()) algorithms.push_back(Wide(a.text));
  for (const auto& e : UpscaleEngines()) engines.push_back(Wide(e.text));
  for (const auto& p : ScalePresets()) presets.push_back(Wide(p.text));
  const int method = form.AddChoice(L"Method:", methods, static_cast<int>(o.method));
  const int algorithm = form.AddChoice(L"Algorithm:", algorithms, o.algorithmPosition);
  const int engine = form.AddChoice(L"Engine:", engines, static_cast<int>(o.engine));
  const int help = form.AddText(std::wstring(64, L' ') + L"\n ");
  const int scale = form.AddChoice(L"Scale:", presets, 0);
  SizeBoxes size{form.AddNumber(L"Width (px):", doc.width, 0), form.AddNumber(L"Height (px):", doc.height, 0),
                 form.AddNumber(L"Percent:", 100, 2), doc.width, doc.height, {doc.width, doc.height, 100}};
  const int keep = form.AddCheck(L"Keep aspect ratio", true);
  const int sharpen = form.AddNumber(L"Sharpen after:", o.sharpen, 0);
  const int detail = form.AddNumber(L"Detail strength:", o.detail, 0);
  const int edge = form.AddNumber(L"Smooth hard edges:", o.edge, 0);
  const int denoise = form.AddCheck(L"Clean up noise and JPEG artifacts before enlarging", o.denoise);
  const int grain = form.AddNumber(L"Restore grain:", o.grain, 0);
  auto options = [&](FormDialog& f) {
    ResizeOptions r = o;
    r.method = static_cast<ResizeMethod>(f.Choice(method));
    r.algorithmPosition = f.Choice(algorithm);
    r.engine = static_cast<UpscaleEngine>(f.Choice(engine));
    auto whole = [&](int id, int32_t fallback) {
      const auto v = f.Number(id);
      return v ? std::clamp(Whole(*v), 0, 100) : fallback;
    };
    r.sharpen = whole(sharpen, r.sharpen);
    r.detail = whole(detail, r.detail);
    r.edge = whole(edge, r.edge);
    r.grain = whole(grain, r.grain);
    r.denoise = f.Checked(denoise);
    return r;
  };
  auto showControls = [&](FormDialog& f) {
    const ResizeOptions r = options(f);
    const ResizeControls c = ResizeControlsFor(r);
    f.Enable(algorithm, c.algorithm);
    f.Enable(sharpen, c.sharpen);
    f.Enable(engine, c.engine);
    f.Enable(detail, c.detail);
    f.Enable(edge, c.edge);
    f.Enable(denoise, c.denoise);
    f.Enable(grain, c.grain);
    f.SetText(help, Wide(ResizeHelpLine(r)));
  };
  form.onChange = [&](FormDialog& f, int id) {
    if (size.Has(id)) {
      if (const auto v = f.Number(id)) size.Follow(f, size.FieldOf(id), *v, f.Checked(keep));
      f.SetChoice(scale, 0);
    } else if (id == scale && f.Choice(scale) > 0) {
      size.Follow(f, SizeField::Preset, f.Choice(scale), f.Checked(keep));
    } else if (id == keep && f.Checked(keep)) {
      size.Follow(f, SizeField::Width, size.fields.width, true);
    }
    showControls(f);
  };
  form.validate = [&](FormDialog& f) {
    const auto w = f.Number(size.width), h = f.Number(size.height);
    return Wide(ResizeSizeMessage(w.value_or(0), h.value_or(0)));
  };
  // The help line and greyed rows as the remembered options give them.
  form.onChange(form, method);
  if (!form.Run(owner, L"Resize")) return false;
  const ResizeOptions chosen = options(form);
  SaveResizeOptions(AppSettings(), chosen);
  return ResizeImage(doc, Whole(*form.Number(size.width)), Whole(*form.Number(size.height)), chosen);
}

bool RunCanvasSizeDialog(HWND owner, Document& doc, uint32_t background) {
  const Memory memory{u"Dlg Canvas Size"};
  FormDialog form(L"Canvas Size", 430);
  form.AddText(Format(L"Current size: %d \u00D7 %d px. The image is not scaled; the canvas grows or shrinks.",
                      doc.width, doc.height));
  const int width = form.AddNumber(L"Width (px):", doc.width, 0);
  const int height = form.AddNumber(L"Height (px):", doc.height, 0);
  std::vector<std::wstring> anchors;
  for (std::u16string_view a : kCanvasAnchorNames) anchors.push_back(Wide(a));
  const int anchor = form.AddChoice(L"Anchor:", anchors, memory.Int("c22", kCanvasAnchorCenter, 0, 8));
  const int color = form.AddColor(L"New area color:", memory.Color("c20").value_or(background));
  form.validate = [&](FormDialog& f) {
    return Wide(ResizeSizeMessage(f.Number(width).value_or(0), f.Number(height).value_or(0)));
  };
  if (!form.Run(owner, L"Apply")) return false;
  const std::pair<std::u16string, std::u16string> values[] = {{u"c22", Memory::Number(form.Choice(anchor))},
                                                              {u"c20", FormatColor(form.Color(color))}};
  AppSettings().SetStrings(memory.section, values);
  return CanvasSize(doc, Whole(*form.Number(width)), Whole(*form.Number(height)), form.Choice(anchor),
                    form.Color(color) | 0xFF000000u);
}

bool RunFreeRotateDialog(HWND owner, Document& doc) {
  const Memory memory{u"Dlg Free Rotate"};
  const ParamRow angleRow{u"Angle (°):", -180, 180, 0, 1, RowKind::Edit};
  const double start = ParseRemembered(AppSettings().GetString(memory.section, u"c1"), angleRow).value_or(0);
  // The corners start transparent when the last corner colour was.
  const auto lastCorner = memory.Color("c20");
  const bool transparentStart = memory.Int("c52", 1, 0, 1) == 1;
  FormDialog form(L"Free Rotate", 400);
  const int angle = form.AddNumber(L"Angle (\u00B0):", start, 1);
  const int expand = form.AddCheck(L"Expand canvas to fit", memory.Int("c51", 1, 0, 1) == 1);
  const int transparent = form.AddCheck(L"Transparent corners", transparentStart);
  const int corner = form.AddColor(L"Corner color:", lastCorner.value_or(0xFFFFFFFFu));
  form.Enable(corner, !transparentStart);
  form.onChange = [&](FormDialog& f, int id) {
    if (id == transparent) f.Enable(corner, !f.Checked(transparent));
  };
  form.validate = [&](FormDialog& f) -> std::wstring {
    const auto v = f.Number(angle);
    const double rounded = v ? RoundToDecimals(*v, angleRow.decimals) : 1e9;
    if (rounded < angleRow.minimum || rounded > angleRow.maximum) return Wide(RangeMessage(-180, 180));
    return {};
  };
  if (!form.Run(owner, L"Rotate")) return false;
  const double chosen = RoundToDecimals(*form.Number(angle), 1);
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"c1", FormatNumber(chosen)},
      {u"c51", form.Checked(expand) ? u"1" : u"0"},
      {u"c52", form.Checked(transparent) ? u"1" : u"0"},
      {u"c20", FormatColor(form.Color(corner))}};
  AppSettings().SetStrings(memory.section, values);
  const uint32_t cornerColor = form.Checked(transparent) ? 0u : form.Color(corner) | 0xFF000000u;
  return FreeRotateImage(doc, chosen, form.Checked(expand), cornerColor);
}

bool RunFreeRotateLayerPrompt(HWND owner, Document& doc) {
  double angle = 0;
  if (!PromptValue(owner, u"Free Rotate Layer (clockwise)", u"Angle (\u00B0):", angle, -180, 180, 1, true)) return false;
  return FreeRotateLayer(doc, angle);
}

bool RunResizeLayerDialog(HWND owner, Document& doc) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer || layer->opaqueBackground) return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  const Memory memory{u"Dlg Resize Layer"};
  FormDialog form(L"Resize Layer", 430);
  SizeBoxes size{form.AddNumber(L"Width (px):", box.Width(), 0), form.AddNumber(L"Height (px):", box.Height(), 0),
                 form.AddNumber(L"Percent:", 100, 2), box.Width(), box.Height(), {box.Width(), box.Height(), 100}};
  const int keep = form.AddCheck(L"Keep aspect ratio", true);
  std::vector<std::wstring> methods;
  for (const auto& m : kResizeLayerMethods) methods.push_back(Wide(m.name));
  const int method = form.AddChoice(L"Method:", methods, memory.Int("c22", 0, 0, int32_t(methods.size()) - 1));
  form.onChange = [&](FormDialog& f, int id) {
    const auto v = f.Number(id);
    if (size.Has(id) && v) {
      size.Follow(f, size.FieldOf(id), *v, f.Checked(keep));
    } else if (id == keep && f.Checked(keep)) {
      size.Follow(f, SizeField::Width, size.fields.width, true);
    }
  };
  form.validate = [&](FormDialog& f) {
    const auto w = f.Number(size.width), h = f.Number(size.height);
    return Wide(CheckResizeLayerSize(w ? Whole(*w) : 0, h ? Whole(*h) : 0));
  };
  if (!form.Run(owner, L"Resize")) return false;
  const std::pair<std::u16string, std::u16string> values[] = {{u"c22", Memory::Number(form.Choice(method))}};
  AppSettings().SetStrings(memory.section, values);
  return ResizeLayer(doc, Whole(*form.Number(size.width)), Whole(*form.Number(size.height)),
                     kResizeLayerMethods[static_cast<std::size_t>(form.Choice(method))].algorithm);
}

bool RunColorDepthDialog(HWND owner, Document& doc) {
  if (!ActiveLayer(&doc)) return false;
  const Memory memory{u"Dlg Color Depth"};
  // Preset: the document's count when it is a palette size, else 256.
  const uint32_t preset = doc.colorCount >= 1 && doc.colorCount <= 256 ? uint32_t(doc.colorCount) : 256;
  const auto choices = ColorDepthChoices();
  const int32_t last = static_cast<int32_t>(choices.size()) - 1;
  FormDialog form(L"Color Depth", 440);
  form.AddText(L"Reduces the flattened image to the chosen number of colors. Palettes are optimized (median cut).");
  std::vector<std::wstring> labels;
  for (const ColorDepthChoice& c : choices) labels.push_back(Wide(c.label));
  const int colors = form.AddChoice(L"Colors:", labels, memory.Int("c22", ColorDepthRow(preset, DepthMode::Palette), 0, last));
  const int dither = form.AddCheck(L"Dither (Floyd\u2013Steinberg)", memory.Int("c51", 1, 0, 1) == 1);
  if (!form.Run(owner, L"Apply")) return false;
  const std::pair<std::u16string, std::u16string> values[] = {{u"c22", Memory::Number(form.Choice(colors))},
                                                              {u"c51", form.Checked(dither) ? u"1" : u"0"}};
  AppSettings().SetStrings(memory.section, values);
  const ColorDepthChoice& c = choices[static_cast<std::size_t>(form.Choice(colors))];
  ApplyColorDepth(doc, c.colors, form.Checked(dither), c.mode);
  return true;
}

}  // namespace tavora
