#include "panels/status_text.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(StatusBar, FieldsForADocumentThePointerAndTheSelection) {
  EXPECT_EQ(StatusFields(nullptr, std::nullopt, u""), std::vector<std::u16string>{u"Ready"});
  EXPECT_EQ(StatusFields(nullptr, std::nullopt, u"Saving"), std::vector<std::u16string>{u"Saving"});
  auto doc = CreateDocument(640, 480, 300, 0xFFFFFFFF, 0);
  doc->zoom = 0.335;  // 33.5 % rounds half up
  EXPECT_EQ(StatusFields(doc.get(), std::nullopt, u""),
            (std::vector<std::u16string>{u"34%", u"640 \u00D7 480 px   300 dpi   24-bit"}));
  doc->selection.emplace(640, 480);
  doc->selectionBounds = {5, 5, 15, 25};
  const auto fields = StatusFields(doc.get(), PointerSample{12, 7, 0x80102030}, u"ignored");
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(fields[2], u"X 12   Y 7     R 16  G 32  B 48  A 128");
  EXPECT_EQ(fields[3], u"Selection 10 \u00D7 20");
  for (auto [count, label] : {std::pair{16777216, u"24-bit"}, {32768, u"15-bit"}, {65536, u"16-bit"}, {256, u"256 colors"},
                              {2, u"2 colors"}})
    EXPECT_EQ(ColorDepthLabel(count), label);
}

}  // namespace
}  // namespace tavora
