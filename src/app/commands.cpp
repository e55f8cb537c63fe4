#include "app/commands.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace tavora {
namespace {

using K = MenuNode::Kind;
constexpr MenuNode Item(int32_t id, std::u16string_view text) { return {K::Item, id, text, {}}; }
constexpr MenuNode Separator() { return {K::Separator, 0, {}, {}}; }
constexpr MenuNode Sub(std::u16string_view text, std::span<const MenuNode> children) {
  return {K::Submenu, 0, text, children};
}

constexpr MenuNode kFile[] = {
    Item(kCmdNew, u"&New…\tCtrl+N"), Item(kCmdOpen, u"&Open…\tCtrl+O"),
    Item(kCmdBrowseFolder, u"&Browse Folder\tCtrl+B"), Sub(u"Open &Recent", {}), Separator(),
    Item(kCmdSave, u"&Save\tCtrl+S"), Item(kCmdSaveAs, u"Save &As…\tCtrl+Shift+S"),
    Item(kCmdClose, u"&Close\tCtrl+W"), Separator(),
    Item(kCmdCaptureScreen, u"Capture &Screen\tCtrl+Shift+F"),
    Item(kCmdCaptureRegion, u"Capture &Region\tCtrl+Shift+R"),
    Item(kCmdCaptureDelay, u"Capture with &Delay…"), Separator(),
    Item(kCmdBatch, u"Batch Con&version…"), Item(kCmdPrint, u"&Print…\tCtrl+P"), Separator(),
    Item(kCmdExit, u"E&xit\tAlt+F4")};

constexpr MenuNode kEdit[] = {
    Item(kCmdUndo, u"&Undo\tCtrl+Z"), Item(kCmdRedo, u"&Redo\tCtrl+Y"),
    Item(kCmdHistory, u"&History\tF9"), Separator(), Item(kCmdCut, u"Cu&t\tCtrl+X"),
    Item(kCmdCopy, u"&Copy\tCtrl+C"), Item(kCmdPaste, u"&Paste\tCtrl+V"),
    Item(kCmdPasteNew, u"Paste as &New Image\tCtrl+Shift+V"), Item(kCmdClear, u"C&lear\tDel"),
    Separator(), Item(kCmdFillForeground, u"Fill with &Foreground\tAlt+Backspace"),
    Item(kCmdFillBackground, u"Fill with &Background\tCtrl+Backspace"),
    Item(kCmdFillSurroundings, u"Fill Selection from &Surroundings…"), Separator(),
    Item(kCmdSettings, u"Settin&gs…")};

constexpr MenuNode kSelect[] = {
    Item(kCmdSelectAll, u"&All\tCtrl+A"), Item(kCmdSelectNone, u"&None\tCtrl+D"),
    Item(kCmdSelectInvert, u"&Invert\tCtrl+Shift+I"), Separator(),
    Item(kCmdFeather, u"&Feather…"), Item(kCmdGrow, u"&Grow…"), Item(kCmdShrink, u"&Shrink…"),
    Item(kCmdFromLayerAlpha, u"From Layer &Alpha")};

constexpr MenuNode kTheme[] = {Item(kCmdThemeSystem, u"Follow &System"),
                               Item(kCmdThemeLight, u"&Light"), Item(kCmdThemeDark, u"&Dark")};

constexpr MenuNode kView[] = {
    Item(kCmdFullScreen, u"&Full Screen View\tF11"), Item(kCmdSlideshow, u"S&lideshow…"),
    Separator(), Item(kCmdZoomIn, u"Zoom &In\tCtrl++"), Item(kCmdZoomOut, u"Zoom &Out\tCtrl+-"),
    Item(kCmdFit, u"&Fit in Window\tCtrl+0"), Item(kCmdZoom100, u"&100% (Scaled)\tCtrl+1"),
    Item(kCmdActualPixels, u"Actual &Pixels\tCtrl+2"), Separator(),
    Item(kCmdSmooth, u"&Smooth Zoom Preview"), Item(kCmdGrid, u"Pixel &Grid"),
    Item(kCmdRuler, u"&Ruler"), Item(kCmdStartBrowse, u"Open &Browse on Startup"), Separator(),
    Sub(u"&Theme", kTheme)};

constexpr MenuNode kImage[] = {
    Item(kCmdResize, u"&Resize / Resample / Upscale…\tCtrl+Alt+I"),
    Item(kCmdUpscayl, u"&Upscayl…"), Item(kCmdPhotoshop, u"Edit in &Photoshop…"),
    Item(kCmdCanvasSize, u"&Canvas Size…\tCtrl+Alt+C"),
    Item(kCmdCropToSelection, u"Crop to &Selection"), Separator(),
    Item(kCmdRotateCw, u"Rotate 90° C&lockwise"), Item(kCmdRotateCcw, u"Rotate 90° Counter&clockwise"),
    Item(kCmdRotate180, u"Rotate &180°"), Item(kCmdFreeRotate, u"&Free Rotate…"),
    Item(kCmdFlipVertical, u"Flip &Vertical"), Item(kCmdMirror, u"&Mirror Horizontal"), Separator(),
    Item(kCmdColorDepth, u"Color &Depth…"), Item(kCmdFlattenImage, u"Fl&atten Image\tCtrl+Shift+E")};

constexpr MenuNode kAdjust[] = {
    Item(kCmdBrightnessContrast, u"&Brightness / Contrast…\tCtrl+M"), Item(kCmdGamma, u"&Gamma…"),
    Item(kCmdHueSaturation, u"&Hue / Saturation / Lightness…\tCtrl+U"),
    Item(kCmdColorize, u"&Colorize…"), Separator(),
    Item(kCmdGrayscale, u"Gra&yscale\tCtrl+Shift+G"), Item(kCmdSepia, u"S&epia"),
    Item(kCmdInvert, u"&Invert\tCtrl+I"), Item(kCmdPosterize, u"&Posterize…"),
    Item(kCmdThreshold, u"&Threshold…"), Item(kCmdAutoTone, u"Auto To&ne\tCtrl+Shift+T"),
    Item(kCmdAutoContrast, u"&Auto Contrast\tCtrl+Shift+L"),
    Item(kCmdAutoColor, u"Auto Co&lor\tCtrl+Shift+B"), Separator(),
    Item(kCmdHdrToneMap, u"HD&R Tone Map…")};

constexpr MenuNode kBlur[] = {Item(kCmdBlur, u"&Blur…"), Item(kCmdGaussianBlur, u"&Gaussian Blur…"),
                              Item(kCmdLensBlur, u"&Lens Blur…"),
                              Item(kCmdMotionBlur, u"&Motion Blur…")};

constexpr MenuNode kEffects[] = {
    Sub(u"&Blur", kBlur), Item(kCmdLensFlare, u"&Lens Flare…"), Item(kCmdSharpen, u"&Sharpen…"),
    Item(kCmdAddNoise, u"&Add Noise…"), Item(kCmdPixelate, u"&Pixelate…"),
    Item(kCmdEmboss, u"&Emboss"), Item(kCmdEdgeDetect, u"Edge &Detect"), Separator(),
    Item(kCmdWhitenArea, u"&Whiten Area (selection)"), Item(kCmdSpiral, u"S&piral… (selection)")};

constexpr MenuNode kLayers[] = {
    Item(kCmdNewLayer, u"&New Layer\tCtrl+Shift+N"),
    Item(kCmdDuplicateLayer, u"&Duplicate Layer\tCtrl+J"), Item(kCmdDeleteLayer, u"D&elete Layer"),
    Item(kCmdLayerFromSelection, u"Layer from &Selection"), Separator(),
    Item(kCmdMergeDown, u"&Merge Down\tCtrl+E"),
    Item(kCmdFlattenLayers, u"&Flatten Image\tCtrl+Shift+E"), Separator(),
    Item(kCmdLayerUp, u"Move &Up\tCtrl+]"), Item(kCmdLayerDown, u"Move Do&wn\tCtrl+["), Separator(),
    Item(kCmdRotateLayerCw, u"Rotate Layer 90° &Clockwise"),
    Item(kCmdRotateLayerCcw, u"Rotate Layer 90° Counter&clockwise"),
    Item(kCmdRotateLayer180, u"Rotate Layer 18&0°"), Item(kCmdFreeRotateLayer, u"Free &Rotate Layer…"),
    Item(kCmdFlipLayerVertical, u"Flip Layer &Vertical"),
    Item(kCmdMirrorLayer, u"&Mirror Layer Horizontal"), Item(kCmdResizeLayer, u"Resi&ze Layer…"),
    Separator(), Item(kCmdLayerProperties, u"&Properties and Effects…")};

constexpr MenuNode kHelp[] = {Item(kCmdManual, u"&Manual"), Separator(),
                              Item(kCmdAbout, u"&About Tavora")};

// The Tabs menu is rebuilt on every refresh; it starts empty.
constexpr MenuNode kMenuBar[] = {
    Sub(u"&File", kFile),       Sub(u"&Edit", kEdit),     Sub(u"&Select", kSelect),
    Sub(u"&View", kView),       Sub(u"&Image", kImage),   Sub(u"&Adjust", kAdjust),
    Sub(u"Effe&cts", kEffects), Sub(u"&Layers", kLayers), Sub(u"&Tabs", {}),
    Sub(u"&Help", kHelp)};

constexpr uint16_t kVkBack = 0x08, kVkAdd = 0x6B, kVkSubtract = 0x6D, kVkF9 = 0x78,
                   kVkF11 = 0x7A, kVkOemPlus = 0xBB, kVkOemMinus = 0xBD, kVkOemOpen = 0xDB,
                   kVkOemClose = 0xDD;
constexpr uint8_t C = kAccelCtrl, S = kAccelShift, A = kAccelAlt;

constexpr Accelerator kAccelerators[] = {
    {C, 'N', kCmdNew}, {C, 'O', kCmdOpen}, {C, 'B', kCmdBrowseFolder},
    {C, 'S', kCmdSave}, {C | S, 'S', kCmdSaveAs}, {C, 'W', kCmdClose}, {C, 'P', kCmdPrint},
    {C | S, 'F', kCmdCaptureScreen}, {C | S, 'R', kCmdCaptureRegion},
    {C, 'Z', kCmdUndo}, {C, 'Y', kCmdRedo}, {C | S, 'Z', kCmdRedo},
    {C, 'X', kCmdCut}, {C, 'C', kCmdCopy}, {C, 'V', kCmdPaste}, {C | S, 'V', kCmdPasteNew},
    {A, kVkBack, kCmdFillForeground}, {C, kVkBack, kCmdFillBackground},
    {C, 'A', kCmdSelectAll}, {C, 'D', kCmdSelectNone}, {C | S, 'I', kCmdSelectInvert},
    {C, kVkOemPlus, kCmdZoomIn}, {C, kVkAdd, kCmdZoomIn},
    {C, kVkOemMinus, kCmdZoomOut}, {C, kVkSubtract, kCmdZoomOut},
    {0, kVkF11, kCmdFullScreen}, {0, kVkF9, kCmdHistory},
    {C, '0', kCmdFit}, {C, '1', kCmdZoom100}, {C, '2', kCmdActualPixels},
    {C | A, 'I', kCmdResize}, {C | A, 'C', kCmdCanvasSize},
    {C, 'M', kCmdBrightnessContrast}, {C, 'U', kCmdHueSaturation}, {C, 'I', kCmdInvert},
    {C | S, 'G', kCmdGrayscale}, {C | S, 'L', kCmdAutoContrast}, {C | S, 'T', kCmdAutoTone},
    {C | S, 'B', kCmdAutoColor},
    {C | S, 'N', kCmdNewLayer}, {C, 'J', kCmdDuplicateLayer}, {C, 'E', kCmdMergeDown},
    {C | S, 'E', kCmdFlattenImage},
    {C, kVkOemClose, kCmdLayerUp}, {C, kVkOemOpen, kCmdLayerDown}};
static_assert(std::size(kAccelerators) == 45);

// The commands whose feature has landed. Every other command stays greyed.
constexpr int32_t kLanded[] = {
    kCmdExit, kCmdUndo, kCmdRedo, kCmdFlattenImage, kCmdFlattenLayers, kCmdAbout,
    kCmdThemeSystem, kCmdThemeLight, kCmdThemeDark,
    kCmdNew, kCmdOpen, kCmdBrowseFolder, kCmdSave, kCmdSaveAs, kCmdClose, kCmdStartBrowse,
    kCmdZoomIn, kCmdZoomOut, kCmdFit, kCmdZoom100, kCmdActualPixels, kCmdSmooth, kCmdGrid,
    kCmdHistory, kCmdSettings,
    kCmdGrayscale, kCmdSepia, kCmdInvert, kCmdAutoTone, kCmdAutoContrast, kCmdAutoColor,
    kCmdEmboss, kCmdEdgeDetect,
    kCmdBrightnessContrast, kCmdGamma, kCmdHueSaturation, kCmdColorize, kCmdPosterize,
    kCmdThreshold, kCmdBlur, kCmdGaussianBlur, kCmdLensBlur, kCmdMotionBlur, kCmdSharpen,
    kCmdAddNoise, kCmdPixelate,
    kCmdNewLayer, kCmdDuplicateLayer, kCmdDeleteLayer, kCmdMergeDown, kCmdLayerUp, kCmdLayerDown,
    kCmdLayerProperties,
    kCmdSelectAll, kCmdSelectNone, kCmdSelectInvert, kCmdFeather, kCmdGrow, kCmdShrink,
    kCmdFromLayerAlpha, kCmdSpiral,
    kCmdResize, kCmdCanvasSize, kCmdCropToSelection, kCmdRotateCw, kCmdRotateCcw, kCmdRotate180,
    kCmdFreeRotate, kCmdFlipVertical, kCmdMirror, kCmdColorDepth, kCmdFillForeground,
    kCmdFillBackground, kCmdClear, kCmdLayerFromSelection, kCmdRotateLayerCw, kCmdRotateLayerCcw,
    kCmdRotateLayer180, kCmdFreeRotateLayer, kCmdFlipLayerVertical, kCmdMirrorLayer,
    kCmdResizeLayer, kCmdBatch, kCmdHdrToneMap, kCmdWhitenArea, kCmdLensFlare, kCmdFillSurroundings,
    kCmdPrint, kCmdCut, kCmdCopy, kCmdPaste, kCmdPasteNew,
    kCmdUpscayl, kCmdPhotoshop, kCmdManual,
    kCmdCaptureScreen, kCmdCaptureRegion, kCmdCaptureDelay, kCmdFullScreen, kCmdSlideshow, kCmdRuler,
};

// What each command needs beyond having landed.
enum Need : uint8_t {
  kNothing = 0,
  kDocument = 1,
  kSelection = 2,      // and a document
  kUndo = 3,
  kRedo = 4,
  kLayerBelow = 5,     // the active layer is not the bottom one
  kLayerAbove = 6,     // the active layer is not the top one
  kTwoLayers = 7,      // more than one layer
  kUpscayl = 8,        // configured, and a saved JPEG or PNG document
  kPhotoshop = 9,      // configured, and a saved non-layered document
};

struct Availability {
  int32_t command;
  Need need;
};

constexpr Availability kAvailability[] = {
    {kCmdNew, kNothing}, {kCmdOpen, kNothing}, {kCmdBrowseFolder, kNothing},
    {kCmdSave, kDocument}, {kCmdSaveAs, kDocument}, {kCmdClose, kDocument},
    {kCmdCaptureScreen, kNothing}, {kCmdCaptureRegion, kNothing}, {kCmdCaptureDelay, kNothing},
    {kCmdBatch, kNothing}, {kCmdPrint, kDocument}, {kCmdExit, kNothing},
    {kCmdUndo, kUndo}, {kCmdRedo, kRedo}, {kCmdHistory, kNothing}, {kCmdCut, kDocument},
    {kCmdCopy, kDocument}, {kCmdPaste, kNothing}, {kCmdPasteNew, kNothing},
    {kCmdClear, kDocument}, {kCmdFillForeground, kDocument}, {kCmdFillBackground, kDocument},
    {kCmdFillSurroundings, kSelection}, {kCmdSettings, kNothing},
    {kCmdSelectAll, kDocument}, {kCmdSelectNone, kSelection}, {kCmdSelectInvert, kDocument},
    {kCmdFeather, kSelection}, {kCmdGrow, kSelection}, {kCmdShrink, kSelection},
    {kCmdFromLayerAlpha, kDocument},
    {kCmdFullScreen, kDocument}, {kCmdSlideshow, kDocument}, {kCmdZoomIn, kDocument},
    {kCmdZoomOut, kDocument}, {kCmdFit, kDocument}, {kCmdZoom100, kDocument},
    {kCmdActualPixels, kDocument}, {kCmdSmooth, kNothing}, {kCmdGrid, kNothing},
    {kCmdRuler, kNothing}, {kCmdStartBrowse, kNothing}, {kCmdThemeSystem, kNothing},
    {kCmdThemeLight, kNothing}, {kCmdThemeDark, kNothing},
    {kCmdResize, kDocument}, {kCmdUpscayl, kUpscayl}, {kCmdPhotoshop, kPhotoshop},
    {kCmdCanvasSize, kDocument}, {kCmdCropToSelection, kSelection}, {kCmdRotateCw, kDocument},
    {kCmdRotateCcw, kDocument}, {kCmdRotate180, kDocument}, {kCmdFreeRotate, kDocument},
    {kCmdFlipVertical, kDocument}, {kCmdMirror, kDocument}, {kCmdColorDepth, kDocument},
    {kCmdFlattenImage, kDocument},
    {kCmdBrightnessContrast, kDocument}, {kCmdGamma, kDocument}, {kCmdHueSaturation, kDocument},
    {kCmdColorize, kDocument}, {kCmdGrayscale, kDocument}, {kCmdSepia, kDocument},
    {kCmdInvert, kDocument}, {kCmdPosterize, kDocument}, {kCmdThreshold, kDocument},
    {kCmdAutoContrast, kDocument}, {kCmdAutoTone, kDocument}, {kCmdAutoColor, kDocument},
    {kCmdHdrToneMap, kDocument},
    {kCmdGaussianBlur, kDocument}, {kCmdBlur, kDocument}, {kCmdLensBlur, kDocument},
    {kCmdMotionBlur, kDocument}, {kCmdLensFlare, kDocument}, {kCmdSharpen, kDocument},
    {kCmdAddNoise, kDocument}, {kCmdPixelate, kDocument}, {kCmdEmboss, kDocument},
    {kCmdEdgeDetect, kDocument}, {kCmdWhitenArea, kSelection}, {kCmdSpiral, kSelection},
    {kCmdNewLayer, kDocument}, {kCmdDuplicateLayer, kDocument}, {kCmdDeleteLayer, kTwoLayers},
    {kCmdLayerFromSelection, kSelection}, {kCmdMergeDown, kLayerBelow},
    {kCmdFlattenLayers, kDocument}, {kCmdLayerUp, kLayerAbove}, {kCmdLayerDown, kLayerBelow},
    {kCmdRotateLayerCw, kDocument}, {kCmdRotateLayerCcw, kDocument},
    {kCmdRotateLayer180, kDocument}, {kCmdFreeRotateLayer, kDocument},
    {kCmdFlipLayerVertical, kDocument}, {kCmdMirrorLayer, kDocument},
    {kCmdResizeLayer, kDocument}, {kCmdLayerProperties, kDocument},
    {kCmdManual, kNothing}, {kCmdAbout, kNothing}};

constexpr auto kCommandIds = [] {
  std::array<int32_t, std::size(kAvailability)> ids{};
  for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = kAvailability[i].command;
  return ids;
}();

}  // namespace

std::span<const MenuNode> MenuBar() { return kMenuBar; }
std::span<const Accelerator> Accelerators() { return kAccelerators; }
std::span<const int32_t> CommandsWithAvailability() { return kCommandIds; }

bool CommandAvailable(int32_t command, const ShellState& s) {
  if (std::find(std::begin(kLanded), std::end(kLanded), command) == std::end(kLanded)) return false;
  const auto* entry = std::find_if(std::begin(kAvailability), std::end(kAvailability),
                                   [&](const Availability& a) { return a.command == command; });
  if (entry == std::end(kAvailability)) return false;
  const bool doc = s.documentOpen && !s.modalToolOperation;
  switch (entry->need) {
    case kNothing: return true;
    case kDocument: return doc;
    case kSelection: return doc && s.hasSelection;
    case kUndo: return doc && s.canUndo;
    case kRedo: return doc && s.canRedo;
    case kLayerBelow: return doc && s.activeLayer >= 1 && s.activeLayer < s.layerCount;
    case kLayerAbove: return doc && s.activeLayer >= 0 && s.activeLayer + 1 < s.layerCount;
    case kTwoLayers: return doc && s.layerCount > 1;
    case kUpscayl: return doc && s.upscaylConfigured && s.documentSaved && s.upscaylFile;
    case kPhotoshop: return doc && s.photoshopConfigured && s.documentSaved && !s.isNativeFile;
  }
  return false;
}

std::vector<TabsMenuItem> TabsMenu(std::span<const std::u16string> titles, int32_t activeTab) {
  std::vector<TabsMenuItem> items;
  const std::size_t shown = std::min<std::size_t>(titles.size(), 9);
  for (std::size_t i = 0; i < shown; ++i) {
    // Appends only: GCC 12 misreads operator+ here as an overlapping copy.
    std::u16string text = u"&";
    for (char c : std::to_string(i + 1)) text.push_back(static_cast<char16_t>(c));
    text += u"  ";
    for (char16_t c : titles[i]) {
      text.push_back(c);
      if (c == u'&') text.push_back(u'&');
    }
    if (text.size() > 190) text.resize(190);
    items.push_back({kCmdFirstTab + static_cast<int32_t>(i), std::move(text),
                     static_cast<int32_t>(i) == activeTab});
  }
  if (titles.size() > 9) {
    items.push_back({0, {}, false});
    items.push_back({kCmdMoreTabs, u"&More", false});
  }
  return items;
}

std::u16string UndoRedoItemText(std::u16string_view base, std::u16string_view label) {
  const std::size_t tab = base.find(u'\t');
  std::u16string text(base.substr(0, tab));
  if (!label.empty()) {
    text += u' ';
    text += label;
  }
  if (tab != std::u16string_view::npos) text += base.substr(tab);
  return text;
}

}  // namespace tavora
