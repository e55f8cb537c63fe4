#include "cli/cli_effects.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/unicode.h"
#include "cli/cli.h"
#include "cli/cli_common.h"
#include "document/composite.h"
#include "document/effect_params.h"
#include "processing/effect_dialogs.h"

namespace tavora {
namespace {

constexpr const char* kUsage =
    "usage: tavora-cli effects LAYER KEY=VALUE... IN OUT\n"
    "       tavora-cli effects --list\n"
    "LAYER is the layer's index, 0 for the bottom layer; --list shows the keys.\n";

int Usage(std::string& err) {
  err += kUsage;
  return kCliUsage;
}

std::string Text(std::u16string_view s) { return Utf16ToUtf8(s); }

std::string Choices(const EffectParam& p) {
  std::string names;
  for (const EffectChoice& c : p.choices) {
    if (!names.empty()) names += "|";
    names += c.key;
  }
  return names;
}

// "shadow.blur  0..500 px  default 8", padded into columns.
std::string ListLine(const EffectParam& p) {
  std::string range;
  if (p.type == ParamType::Color) {
    range = "RRGGBB";
  } else if (p.type == ParamType::Choice) {
    range = Choices(p);
  } else {
    range = std::to_string(p.minimum);
    range.append("..").append(std::to_string(p.maximum));
  }
  if (p.unit == u"\u00B0") range.append(" degrees");
  else if (!p.unit.empty()) range.append(" ").append(Text(p.unit));
  std::string line("  ");
  line.append(p.key);
  line.resize(std::max<std::size_t>(line.size() + 1, 23), ' ');
  line.append(range);
  line.resize(std::max<std::size_t>(line.size() + 1, 60), ' ');
  line.append("default ").append(FormatEffectValue(p, p.fallback)).append("\n");
  return line;
}

std::string List() {
  std::string text = "Layer effects (tavora-cli effects LAYER KEY=VALUE... IN OUT):\n";
  int32_t group = -1;
  for (const EffectParam& p : EffectParams()) {
    if (p.group != group) {
      group = p.group;
      text += Text(EffectGroupAt(group).title) + "\n";
    }
    text += ListLine(p);
  }
  return text;
}

// One KEY=VALUE; a message and nothing when it cannot be used.
std::optional<std::pair<const EffectParam*, int32_t>> ParseSetting(std::u16string_view arg, std::string& err) {
  const std::size_t eq = arg.find(u'=');
  if (eq == arg.npos || eq == 0) {
    err += Text(arg) + ": expected KEY=VALUE\n";
    return std::nullopt;
  }
  const std::string key = Text(arg.substr(0, eq));
  const std::u16string_view value = arg.substr(eq + 1);
  const EffectParam* p = FindEffectParam(key);
  if (!p) {
    err += key + ": no such effect setting (tavora-cli effects --list shows them)\n";
    return std::nullopt;
  }
  bool outOfRange = false;
  if (const auto v = ParseEffectValue(*p, value, outOfRange)) return std::make_pair(p, *v);
  if (p->type == ParamType::Color) err += key + " must be six hexadecimal digits RRGGBB\n";
  else if (p->type == ParamType::Choice && !outOfRange) err += key + ": choose one of " + Choices(*p) + "\n";
  else err += key + ": " + Text(RangeMessage(p->minimum, p->maximum)) + "\n";
  return std::nullopt;
}

}  // namespace

std::optional<int> RunEffectsCommand(const std::vector<std::u16string>& args, std::string& out, std::string& err) {
  if (args.empty() || args[0] != u"effects") return std::nullopt;
  if (args.size() == 2 && args[1] == u"--list") {
    out += List();
    return kCliOk;
  }
  if (args.size() < 4) return Usage(err);
  const auto layerNumber = cli::ParseNumber(args[1]);
  if (!layerNumber || *layerNumber < 0 || *layerNumber != static_cast<double>(static_cast<int64_t>(*layerNumber))) {
    err += "LAYER must be a layer's index, 0 for the bottom layer: " + Text(args[1]) + "\n";
    return kCliUsage;
  }
  // Every setting is checked before the file is read, so nothing is written
  // when one is wrong.
  std::vector<std::pair<const EffectParam*, int32_t>> settings;
  for (std::size_t i = 2; i + 2 < args.size(); ++i) {
    const auto setting = ParseSetting(args[i], err);
    if (!setting) return kCliUsage;
    settings.push_back(*setting);
  }
  const std::filesystem::path in(args[args.size() - 2]), outPath(args.back());
  auto doc = cli::OpenDocument(in);
  if (!doc) return cli::CannotOpen(in, err);
  const int64_t index = static_cast<int64_t>(*layerNumber);
  if (index >= doc->LayerCount()) {
    err += "LAYER: " + Text(args[1]) + " is past the top layer; the file has " + std::to_string(doc->LayerCount()) +
           (doc->LayerCount() == 1 ? " layer" : " layers") + " (0 to " + std::to_string(doc->LayerCount() - 1) + ")\n";
    return kCliUsage;
  }
  Layer& layer = doc->layers[static_cast<std::size_t>(index)];
  for (const auto& [param, value] : settings) param->set(layer.effects, value);
  Invalidate(*doc, static_cast<int32_t>(index), doc->Bounds());
  if (!cli::SaveDocument(*doc, outPath)) return cli::CannotSave(outPath, err);
  return kCliOk;
}

}  // namespace tavora
