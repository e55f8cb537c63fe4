#include "tools/tool_input.h"

#include <algorithm>
#include <cmath>

#include "document/composite.h"
#include "processing/geometry.h"
#include "tools/fill.h"

namespace tavora {
namespace {

constexpr double kHandleReach = ToolInput::kHandleReach;

std::optional<LayerTransform> TransformFor(int32_t tool) {
  if (tool == kToolLayerRotate) return LayerTransform::Rotate;
  if (tool == kToolLayerResize) return LayerTransform::Resize;
  return std::nullopt;
}

SelectionToolOptions SelectionOptions(const ToolOptions& o) {
  return {o.selmode, static_cast<double>(o.feather), o.wandtol, o.wandcontig != 0, o.wandall != 0};
}

}  // namespace

std::optional<BrushTool> BrushToolFor(int32_t toolId) {
  switch (toolId) {
    case kToolBrush: return BrushTool::Brush;
    case kToolEraser: return BrushTool::Eraser;
    case kToolBlur: return BrushTool::Blur;
    case kToolSmudge: return BrushTool::Smudge;
    case kToolSharpen: return BrushTool::Sharpen;
    case kToolSponge: return BrushTool::Sponge;
    case kToolBurn: return BrushTool::Burn;
    case kToolClone: return BrushTool::Clone;
    case kToolSpotHeal: return BrushTool::SpotHeal;
    case kToolHeal: return BrushTool::Heal;
    default: return std::nullopt;
  }
}

BrushParams BrushParamsFor(BrushTool tool, const ToolOptions& o, const ColorBoxes& colors) {
  BrushParams p;
  p.tool = tool;
  p.size = o.size;
  p.hardness = o.hardness;
  p.opacity = o.opacity;
  p.spacing = o.spacing;
  p.strength = o.strength;
  p.range = o.range;
  p.exposure = o.exposure;
  p.keepOffset = o.cloneconst != 0;
  p.primary = colors.Primary();
  p.secondary = colors.Secondary();
  return p;
}

std::optional<uint32_t> PickColor(Document& doc, double x, double y, int32_t sample) {
  const int32_t cx = static_cast<int32_t>(std::floor(x)), cy = static_cast<int32_t>(std::floor(y));
  const int32_t half = std::max(sample, 1) / 2;
  const Rect area = Intersect({cx - half, cy - half, cx + half + 1, cy + half + 1}, doc.Bounds());
  if (area.Empty() || !doc.Bounds().Contains(cx, cy)) return std::nullopt;
  Composite(doc);
  const Surface& image = CompositeSource(doc);
  uint64_t sum[3] = {0, 0, 0}, alpha = 0;
  for (int32_t py = area.y0; py < area.y1; ++py) {
    for (int32_t px = area.x0; px < area.x1; ++px) {
      const uint32_t p = image.At(px, py);
      const uint32_t a = p >> 24;
      alpha += a;
      for (int c = 0; c < 3; ++c) sum[c] += ((p >> (16 - 8 * c)) & 255) * a;
    }
  }
  if (alpha == 0) return std::nullopt;
  uint32_t color = 0xFF000000u;
  for (int c = 0; c < 3; ++c)
    color |= static_cast<uint32_t>((sum[c] + alpha / 2) / alpha) << (16 - 8 * c);
  return color;
}

bool CoalescesMoves(int32_t toolId) {
  switch (toolId) {
    case kToolRectSelect: case kToolEllipseSelect: case kToolMove: case kToolCrop:
    case kToolLine: case kToolRectangle: case kToolEllipse: case kToolRoundedRect:
      return true;
    default:
      return false;
  }
}

void ToolInput::Press(Document& doc, double x, double y, int button, int modifiers) {
  const int32_t tool = tools_.CurrentTool();
  const ToolOptions& options = tools_.Current();
  button_ = button;
  if (IsSelectionTool(tool)) {
    selection_.Press(doc, tool, x, y, button, modifiers, SelectionOptions(options));
    dragging_ = button == 1;
  } else if ((tool == kToolClone || tool == kToolHeal) && (modifiers & kModCtrl)) {
    SetCloneSource(x, y);  // Ctrl+click sets the source and paints nothing
  } else if (const auto brush = BrushToolFor(tool)) {
    BeginStroke(doc, x, y, button, BrushParamsFor(*brush, options, tools_.colors));
    dragging_ = true;
  } else if (tool == kToolEyedropper) {
    dragging_ = true;
    Pick(doc, x, y);
  } else if (tool == kToolFill) {
    FillOptions fill{options.tolerance, options.opacity, options.contiguous != 0};
    FillAt(doc, x, y, button == 2 ? tools_.colors.Secondary() : tools_.colors.Primary(), fill);
  } else if (tool == kToolMove && button == 1) {
    move_.Press(doc, x, y, tools_.colors.Secondary());
    dragging_ = true;
  } else if (tool == kToolCrop && button == 1) {
    crop_.Press(doc, x, y, kHandleReach / viewScale_);
    dragging_ = true;
  } else if (ShapeTypeFor(tool)) {
    shape_.Press(tool, x, y, button, modifiers, options, tools_.colors);
    dragging_ = shape_.Busy();
  } else if (tool == kToolText && button == 1) {
    TextClickAt(doc, x, y);
  } else if (const auto kind = TransformFor(tool); kind && button == 1) {
    dragging_ = transform_.Press(doc, *kind, x, y, modifiers, kHandleReach / viewScale_);
  }
}

void ToolInput::DoubleClick(Document& doc, double x, double y, int button, int modifiers) {
  const int32_t tool = tools_.CurrentTool();
  if (IsSelectionTool(tool)) {
    if (button == 1)
      selection_.DoubleClick(doc, tool, x, y, modifiers, SelectionOptions(tools_.Current()));
    dragging_ = button == 1 && selection_.Busy() && tool != kToolPolygonSelect;
    return;
  }
  // A double-click inside the crop rectangle crops.
  if (tool == kToolCrop && button == 1 && crop_.HandleAt(x, y, kHandleReach / viewScale_) == CropHandle::Inside) {
    ApplyCrop(doc);
    return;
  }
  Press(doc, x, y, button, modifiers);
}

void ToolInput::Move(Document& doc, double x, double y, int modifiers) {
  const int32_t tool = tools_.CurrentTool();
  if (IsSelectionTool(tool)) {
    selection_.Move(doc, x, y);
  } else if (dragging_ && BrushToolFor(tool)) {
    ContinueStroke(doc, x, y);
  } else if (dragging_ && tool == kToolEyedropper) {
    Pick(doc, x, y);
  } else if (dragging_ && tool == kToolMove) {
    move_.Drag(doc, x, y);
  } else if (dragging_ && tool == kToolCrop) {
    crop_.Drag(doc, x, y, modifiers);
  } else if (shape_.Busy()) {
    shape_.Move(x, y, modifiers);
  } else if (dragging_ && TransformFor(tool)) {
    transform_.Drag(doc, x, y, modifiers);
  }
}

void ToolInput::Release(Document& doc, double x, double y, int modifiers) {
  const int32_t tool = tools_.CurrentTool();
  if (IsSelectionTool(tool)) {
    if (button_ == 1) selection_.Release(doc, x, y);
  } else if (BrushToolFor(tool)) {
    EndStroke(doc);
  } else if (tool == kToolMove) {
    move_.Release(doc, x, y);
  } else if (tool == kToolCrop) {
    crop_.Release(doc, x, y);
  } else if (shape_.Busy()) {
    shape_.Release(doc, x, y, modifiers);
  } else if (TransformFor(tool)) {
    transform_.Release(doc, x, y);
  }
  dragging_ = false;
}

bool ToolInput::Key(Document& doc, ToolKey key, int modifiers) {
  const int32_t tool = tools_.CurrentTool();
  if (tool == kToolMove) {
    const int32_t step = (modifiers & kModShift) ? 10 : 1;
    switch (key) {
      case ToolKey::Left: move_.Nudge(doc, -step, 0, tools_.colors.Secondary()); return true;
      case ToolKey::Right: move_.Nudge(doc, step, 0, tools_.colors.Secondary()); return true;
      case ToolKey::Up: move_.Nudge(doc, 0, -step, tools_.colors.Secondary()); return true;
      case ToolKey::Down: move_.Nudge(doc, 0, step, tools_.colors.Secondary()); return true;
      case ToolKey::Enter:
      case ToolKey::Escape:
        if (!move_.Pending()) return false;
        move_.Commit(doc);
        return true;
      default: return false;
    }
  }
  if (tool == kToolCrop && crop_.Shown()) {
    if (key == ToolKey::Enter) ApplyCrop(doc);
    else if (key == ToolKey::Escape) crop_.Cancel();
    else return false;
    return true;
  }
  if (transform_.Active() && (key == ToolKey::Enter || key == ToolKey::Escape)) {
    key == ToolKey::Enter ? ApplyTransform(doc) : CancelTransform(doc);
    return true;
  }
  if (shape_.Busy() && key == ToolKey::Escape) {
    shape_.Cancel();
    dragging_ = false;
    return true;
  }
  if (!IsSelectionTool(tool)) return false;
  if (key != ToolKey::Backspace && key != ToolKey::Escape) return false;
  return selection_.Key(key == ToolKey::Backspace ? SelectionKey::Backspace : SelectionKey::Escape);
}

void ToolInput::Finish(Document& doc) {
  selection_.Cancel(doc);
  move_.Commit(doc);
  crop_.Cancel();
  shape_.Cancel();
  transform_.Apply(doc);
  if (StrokeActive()) EndStroke(doc);
  dragging_ = false;
}

void ToolInput::Forget(Document& doc) {
  selection_.Cancel(doc);
  move_.Forget(doc);
  crop_.Cancel();
  shape_.Cancel();
  transform_.Forget(doc);
  ForgetStroke(doc);
  dragging_ = false;
}

void ToolInput::ApplyTransform(Document& doc) {
  transform_.Apply(doc);
  dragging_ = false;
}

void ToolInput::CancelTransform(Document& doc) {
  transform_.Cancel(doc);
  dragging_ = false;
}

void ToolInput::ApplyCrop(Document& doc) {
  if (const auto area = crop_.Take()) CropToRect(doc, *area);
}

void ToolInput::TextClickAt(Document& doc, double x, double y) {
  if (!textDialog_) return;
  const TextClick click = tavora::TextClickAt(doc, x, y);
  TextValues values = TextDialogStart(doc, click, tools_.Current(), tools_.colors.Primary());
  if (!textDialog_(textContext_, doc, click, values)) return;
  RememberTextFont(tools_.Current(), values);
  ApplyTextClick(doc, click, values, tools_.Current());
}

void ToolInput::Pick(Document& doc, double x, double y) {
  const auto color = PickColor(doc, x, y, tools_.Current().sample);
  if (!color) return;
  // Left sets the primary colour, right the secondary, whichever box holds it.
  ColorBoxes& c = tools_.colors;
  const bool leftIsPrimary = c.selected == 0;
  uint32_t& box = (button_ == 1) == leftIsPrimary ? c.left : c.right;
  if (box == *color) return;
  box = *color;
  colorsChanged_ = true;
}

}  // namespace tavora
