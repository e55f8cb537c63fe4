#include "formats/file_association.h"

#include <algorithm>

namespace tavora {
namespace {

constexpr std::u16string_view kAssociated[] = {u".tvl", u".kzl"};
constexpr std::u16string_view kOpenWith[] = {u".png", u".jpg", u".jpeg", u".bmp", u".gif", u".tif",
                                             u".tiff", u".webp", u".ico", u".psd", u".hdr"};

std::u16string Join(std::u16string_view a, std::u16string_view b) {
  std::u16string s(a);
  s += u'\\';
  s += b;
  return s;
}

char16_t Lower(char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; }

// Windows paths compare without regard to case.
bool SameText(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char16_t x, char16_t y) { return Lower(x) == Lower(y); });
}

void AddProgId(std::vector<RegistryWrite>& w, std::u16string_view progId, std::u16string_view description,
               std::u16string_view exePath) {
  const std::u16string key(progId);
  w.push_back({key, u"", std::u16string(description)});
  w.push_back({Join(key, u"DefaultIcon"), u"", std::u16string(exePath) + u",0"});
  w.push_back({Join(key, u"shell\\open\\command"), u"", OpenCommand(exePath)});
}

}  // namespace

std::span<const std::u16string_view> AssociatedExtensions() { return kAssociated; }
std::span<const std::u16string_view> OpenWithExtensions() { return kOpenWith; }

std::u16string OpenCommand(std::u16string_view exePath) {
  return u"\"" + std::u16string(exePath) + u"\" \"%1\"";
}

std::vector<RegistryWrite> AssociationWrites(std::u16string_view exePath) {
  std::vector<RegistryWrite> w;
  AddProgId(w, kLayeredProgId, u"Tavora layered image", exePath);
  AddProgId(w, kImageProgId, u"Image", exePath);
  for (std::u16string_view ext : kAssociated) {
    w.push_back({std::u16string(ext), u"", std::u16string(kLayeredProgId)});
    w.push_back({Join(ext, u"OpenWithProgids"), std::u16string(kLayeredProgId), u""});
  }
  // Offered only: the extension's default value is never touched.
  for (std::u16string_view ext : kOpenWith)
    w.push_back({Join(ext, u"OpenWithProgids"), std::u16string(kImageProgId), u""});
  return w;
}

AssociationState QueryAssociation(RegistryAccess& registry, std::u16string_view exePath) {
  const auto progId = registry.GetString(kAssociated[0], u"");
  if (!progId || *progId != kLayeredProgId) return AssociationState::None;
  const auto command = registry.GetString(Join(kLayeredProgId, u"shell\\open\\command"), u"");
  if (!command) return AssociationState::None;
  return SameText(*command, OpenCommand(exePath)) ? AssociationState::ThisProgram : AssociationState::OtherPath;
}

bool RegisterAssociation(RegistryAccess& registry, std::u16string_view exePath) {
  bool ok = true;
  for (const RegistryWrite& w : AssociationWrites(exePath)) ok = registry.SetString(w.key, w.name, w.data) && ok;
  return ok;
}

bool RemoveAssociation(RegistryAccess& registry) {
  bool ok = registry.DeleteTree(kLayeredProgId);
  ok = registry.DeleteTree(kImageProgId) && ok;
  for (std::u16string_view ext : kAssociated) {
    const std::u16string openWith = Join(ext, u"OpenWithProgids");
    ok = registry.DeleteValue(openWith, kLayeredProgId) && ok;
    ok = registry.DeleteKeyIfEmpty(openWith) && ok;
    // Another program may own the extension by now.
    const auto progId = registry.GetString(ext, u"");
    if (progId && *progId == kLayeredProgId) ok = registry.DeleteValue(ext, u"") && ok;
    ok = registry.DeleteKeyIfEmpty(ext) && ok;
  }
  for (std::u16string_view ext : kOpenWith) {
    const std::u16string openWith = Join(ext, u"OpenWithProgids");
    ok = registry.DeleteValue(openWith, kImageProgId) && ok;
    ok = registry.DeleteKeyIfEmpty(openWith) && ok;
    ok = registry.DeleteKeyIfEmpty(ext) && ok;
  }
  return ok;
}

}  // namespace tavora
