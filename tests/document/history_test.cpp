#include "document/history.h"

#include <gtest/gtest.h>

#include <random>

#include "document/composite.h"
#include "document/document_events.h"
#include "pixels.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

std::unique_ptr<Document> Doc(int w = 100, int h = 100) {
  auto doc = CreateDocument(w, h, 72, 0xFF000000, 0);
  doc->layers.emplace_back(w, h, u"Layer 2");
  return doc;
}

void Scribble(Surface& s, uint32_t seed) {
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = rng();
}

// States kept, the current one and how many were dropped; on the way, the
// running byte count must be the sum of the states' own.
std::tuple<std::size_t, int32_t, int32_t> Kept(const Document& doc) {
  uint64_t total = 0;
  for (const HistoryState& s : doc.history.states) total += s.bytes;
  EXPECT_EQ(doc.history.bytes, total);
  return {doc.history.states.size(), doc.history.current, doc.history.dropped};
}

TEST(HistoryLimits, SixteenPushesKeepFifteenAndTheFirstRowSaysSo) {
  auto doc = Doc();
  EXPECT_EQ(HistoryRows(*doc), (std::vector<std::u16string>{u"Original"}));
  for (int i = 0; i < 16; ++i) PushLayer(*doc, 1, u"Step " + std::u16string(1, char16_t(u'a' + i)));
  EXPECT_EQ(Kept(*doc), std::tuple(15u, 15, 1));
  const auto rows = HistoryRows(*doc);
  ASSERT_EQ(rows.size(), 16u);
  EXPECT_EQ(std::tuple(rows[0], rows[1], rows[15]), std::tuple(u"Earliest kept state", u"Step b", u"Step p"));
  EXPECT_EQ(doc->history.bytes, 15u * 100 * 100 * 4);
}

TEST(HistoryLimits, APushAfterUndosDropsTheRedoBranch) {
  auto doc = Doc();
  PushLayer(*doc, 1, u"one");
  PushSelection(*doc, u"two");
  PushLayer(*doc, 0, u"three");
  ASSERT_TRUE(Undo(*doc) && Undo(*doc));
  EXPECT_EQ(std::tuple(UndoLabel(*doc), RedoLabel(*doc)), std::tuple(u"one", u"two"));
  PushWholeDocument(*doc, u"four");
  EXPECT_EQ(Kept(*doc), std::tuple(2u, 2, 0));
  EXPECT_EQ(RedoLabel(*doc), u"");
  EXPECT_FALSE(Redo(*doc));
  EXPECT_EQ(HistoryRows(*doc), (std::vector<std::u16string>{u"Original", u"one", u"four"}));
}

TEST(HistoryLimits, ABudgetOverrunKeepsOnlyTheNewestState) {
  // 404 MB per state: two of them pass 768 MiB.
  auto doc = CreateDocument(10000, 10100, 72, 0, 0);
  PushWholeDocument(*doc, u"big one");
  EXPECT_EQ(doc->history.states.size(), 1u);
  PushLayer(*doc, 0, u"big two");
  EXPECT_EQ(Kept(*doc), std::tuple(1u, 1, 1));
  EXPECT_EQ(doc->history.states[0].label, u"big two");
  EXPECT_EQ(doc->history.bytes, 404'000'000u);
  EXPECT_TRUE(Undo(*doc));
  EXPECT_FALSE(Undo(*doc));
}

// Every byte a state holds, effect caches included.
uint64_t HeldBytes(const HistoryState& s) {
  auto layer = [](const Layer& l) {
    uint64_t n = l.pixels.PixelCount() + l.effectsWork.PixelCount();
    for (const auto* c : {&l.styled, &l.under, &l.over})
      if (*c) n += (*c)->PixelCount();
    if (l.extended) n += l.extended->pixels.PixelCount();
    return n * 4;
  };
  uint64_t bytes = s.selection ? s.selection->ByteCount() : 0;
  if (s.layer) bytes += layer(*s.layer);
  if (s.document)
    for (const Layer& l : s.document->layers) bytes += layer(l);
  return bytes;
}

TEST(HistoryLimits, EffectCachesTheStatesHoldAreCounted) {
  auto doc = Doc(50, 40);
  auto drawEffects = [&] {
    for (Layer& l : doc->layers) {
      l.styled = std::make_unique<Surface>(50, 40);
      l.under = std::make_unique<Surface>(70, 60);
      l.over = std::make_unique<Surface>(70, 60);
    }
  };
  drawEffects();
  PushLayer(*doc, 1, u"layer");
  PushWholeDocument(*doc, u"document");
  for (int step = 0; step < 4; ++step) {
    step < 2 ? (void)Undo(*doc) : (void)Redo(*doc);
    drawEffects();  // the renderer draws the layers that came back
    for (const HistoryState& s : doc->history.states) EXPECT_EQ(s.bytes, HeldBytes(s));
    Kept(*doc);
  }
}

TEST(HistoryTiles, StrokesSaveOnlyTouchedTilesOnce) {
  auto doc = Doc();
  BeginTiles(*doc, 1, u"Brush");
  SaveTiles(*doc, {10, 10, 11, 11});
  SaveTiles(*doc, {70, 10, 71, 11});
  SaveTiles(*doc, {5, 5, 72, 12});  // both again: nothing new
  ASSERT_TRUE(doc->pendingStroke);
  EXPECT_EQ(doc->pendingStroke->order, (std::vector<int32_t>{0, 1}));
  EXPECT_EQ(doc->pendingStroke->bytes, 2 * kHistoryTileBytes);
  SaveTiles(*doc, {-50, 90, 500, 500});  // clipped to the layer: row 1, both columns
  EXPECT_EQ(doc->pendingStroke->order, (std::vector<int32_t>{0, 1, 2, 3}));
  CommitTiles(*doc);
  ASSERT_EQ(doc->history.states.size(), 1u);
  EXPECT_EQ(doc->history.states[0].kind, HistoryKind::Tiles);
  EXPECT_EQ(doc->history.states[0].label, u"Brush");
  EXPECT_FALSE(doc->pendingStroke);

  // A stroke that saved nothing leaves no state, and one on a layer that
  // does not exist no record at all.
  auto untouched = Doc();
  BeginTiles(*untouched, 1, u"Brush");
  SaveTiles(*untouched, {200, 200, 300, 300});  // entirely off the layer
  CommitTiles(*untouched);
  EXPECT_TRUE(untouched->history.states.empty());
  EXPECT_FALSE(untouched->modified);
  BeginTiles(*untouched, 7, u"Brush");
  EXPECT_FALSE(untouched->pendingStroke);
}

TEST(HistoryTiles, EdgeTilesExchangeOnlyTheirPartAndTwiceRestoresBoth) {
  auto doc = Doc();
  Surface& pixels = doc->layers[1].pixels;
  Scribble(pixels, 1);
  const Surface before = pixels;
  BeginTiles(*doc, 1, u"Brush");
  SaveTiles(*doc, {0, 0, 100, 100});
  Scribble(pixels, 2);  // the stroke
  EXPECT_EQ(PixelBeforeStroke(*doc, 99, 99), before.At(99, 99));
  EXPECT_EQ(PixelBeforeStroke(*doc, 100, 5), 0u);
  const Surface after = pixels;
  CommitTiles(*doc);
  EXPECT_EQ(PixelBeforeStroke(*doc, 3, 3), doc->layers[doc->active].pixels.At(3, 3));

  for (int twice = 0; twice < 2; ++twice) {
    ASSERT_TRUE(Undo(*doc));
    EXPECT_TRUE(SamePixels(pixels, before));
    ASSERT_TRUE(Redo(*doc));
    EXPECT_TRUE(SamePixels(pixels, after));
  }
}

TEST(HistoryTiles, PixelsBeforeTheStrokeComeFromSavedTilesWithinTheGrid) {
  auto doc = Doc();
  doc->layers[1].pixels.Fill(0x11111111);
  BeginTiles(*doc, 1, u"Smudge");
  SaveTiles(*doc, {0, 0, 1, 1});
  doc->layers[1].pixels.Fill(0x22222222);
  EXPECT_EQ(PixelBeforeStroke(*doc, 63, 63), 0x11111111u);  // saved tile
  EXPECT_EQ(PixelBeforeStroke(*doc, 64, 0), 0x22222222u);   // not saved: current

  auto grown = Doc(70, 70);  // a 2 x 2 grid
  BeginTiles(*grown, 1, u"Brush");
  grown->layers[1] = Layer(300, 300, u"grown");
  SaveTiles(*grown, {0, 0, 300, 300});
  EXPECT_EQ(grown->pendingStroke->order, (std::vector<int32_t>{0, 1, 2, 3}));
  EXPECT_EQ(PixelBeforeStroke(*grown, 250, 250), 0u);
  grown->layers.clear();
  grown->pendingStroke.reset();
  EXPECT_EQ(PixelBeforeStroke(*grown, 0, 0), 0u);  // no layers at all
}

TEST(HistoryTiles, SelectionIsSavedOnceAndRestoredWithTheTiles) {
  auto doc = Doc();
  doc->selection.emplace(100, 100);
  doc->selection->At(1, 1) = 255;
  doc->selectionBounds = {1, 1, 2, 2};
  BeginTiles(*doc, 1, u"Move Selection");
  SaveSelection(*doc);
  doc->selection->At(1, 1) = 0;
  doc->selection->At(50, 50) = 255;
  SaveSelection(*doc);  // already saved: keeps the first copy
  doc->selectionBounds = {50, 50, 51, 51};
  CommitTiles(*doc);
  ASSERT_EQ(doc->history.states.size(), 1u);
  EXPECT_EQ(doc->history.states[0].bytes, 100u * 100);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(std::tuple(doc->selection->At(1, 1), doc->selection->At(50, 50)), std::tuple(255, 0));
  EXPECT_EQ(doc->selectionBounds, (Rect{1, 1, 2, 2}));
}

TEST(HistoryExchange, WholeDocumentRestoresSizeLayersAndSelection) {
  auto doc = Doc(30, 20);
  Scribble(doc->layers[1].pixels, 3);
  doc->layers[1].extended = std::make_unique<ExtendedContent>();
  doc->layers[1].extended->pixels = Surface(40, 40);
  doc->selection.emplace(30, 20);
  doc->selectionBounds = {0, 0, 30, 20};
  doc->dpi = 150;
  const Surface original = doc->layers[1].pixels;

  PushWholeDocument(*doc, u"Canvas Size");
  EXPECT_FALSE(doc->layers[1].extended);  // dropped from the live layer
  EXPECT_EQ(doc->history.states[0].bytes, 30u * 20 * 4 * 2 + 40u * 40 * 4 + 30u * 20);
  // The command itself: a new size, one layer, no selection.
  doc->width = 8;
  doc->height = 9;
  doc->dpi = 72;
  doc->layers.assign(1, Layer(8, 9, u"Background"));
  doc->selection.reset();
  doc->selectionBounds = {};
  doc->active = 0;
  Composite(*doc);

  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(std::tuple(doc->width, doc->height, doc->dpi), std::tuple(30, 20, 150));
  ASSERT_EQ(doc->LayerCount(), 2);
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, original));
  ASSERT_TRUE(doc->layers[1].extended);  // only the recorded copy kept it
  EXPECT_EQ(doc->layers[1].extended->pixels.Width(), 40);
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 30, 20}));
  EXPECT_EQ(CompositeSource(*doc).Width(), 0);  // released: rebuilt on the next composite
  Composite(*doc);
  EXPECT_EQ(CompositeSource(*doc).Width(), 30);

  ASSERT_TRUE(Redo(*doc));
  EXPECT_EQ(std::tuple(doc->width, doc->LayerCount()), std::tuple(8, 1));
  EXPECT_FALSE(doc->selection);
  EXPECT_EQ(CompositePixel(*doc, 7, 8), 0u);
}

TEST(HistoryExchange, OneLayerAndSelectionStatesSwapBackAndForth) {
  auto doc = Doc();
  Scribble(doc->layers[1].pixels, 4);
  const Surface before = doc->layers[1].pixels;
  doc->active = 0;
  PushLayer(*doc, 1, u"Move Layer");
  EXPECT_TRUE(LastStateIsLayerState(*doc, 1));
  EXPECT_FALSE(LastStateIsLayerState(*doc, 0));
  doc->layers[1].pixels.Fill(0);
  doc->layers[1].effectsDirty = {};
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  EXPECT_EQ(doc->active, 1);
  EXPECT_EQ(doc->layers[1].effectsDirty, (Rect{0, 0, 100, 100}));
  EXPECT_TRUE(doc->layers[1].rebuildEffects);
  EXPECT_FALSE(LastStateIsLayerState(*doc, 1));  // something was undone
  ASSERT_TRUE(Redo(*doc));
  EXPECT_EQ(doc->layers[1].pixels.At(5, 5), 0u);

  PushSelection(*doc, u"Deselect");  // with no selection it records the absence
  EXPECT_EQ(doc->history.states.back().bytes, 0u);
  doc->selection.emplace(100, 100);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_FALSE(doc->selection);
  ASSERT_TRUE(Redo(*doc));
  EXPECT_TRUE(doc->selection);

  BeginTiles(*doc, 1, u"Brush");
  SaveTiles(*doc, {0, 0, 1, 1});
  EXPECT_FALSE(LastStateIsLayerState(*doc, 1));  // a stroke is pending
  EXPECT_TRUE(Undo(*doc));  // commits the stroke first, then undoes it
  EXPECT_EQ(RedoLabel(*doc), u"Brush");
}

TEST(HistoryExchange, StatesOfLayersThatNoLongerExistAreSkipped) {
  auto doc = Doc();
  PushLayer(*doc, 1, u"Layer");
  BeginTiles(*doc, 1, u"Brush");
  SaveTiles(*doc, {0, 0, 10, 10});
  CommitTiles(*doc);
  doc->layers.pop_back();
  EXPECT_TRUE(Undo(*doc));
  EXPECT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->LayerCount(), 1);
  EXPECT_FALSE(Undo(*doc));
}

TEST(HistoryPanel, JumpsByRepeatedCommandsAndLabelsAreCut) {
  auto doc = Doc();
  for (int i = 0; i < 5; ++i) PushLayer(*doc, 1, std::u16string(60, char16_t(u'a' + i)));
  EXPECT_EQ(doc->history.states[0].label.size(), 47u);
  struct Ctx {
    Document* doc;
    int undos = 0, redos = 0;
  } ctx{doc.get()};
  auto command = [](void* p, bool redo) {
    auto& c = *static_cast<Ctx*>(p);
    (redo ? c.redos : c.undos)++;
    return redo ? Redo(*c.doc) : Undo(*c.doc);
  };
  EXPECT_EQ(JumpToHistoryRow(*doc, 1, command, &ctx), 4);
  EXPECT_EQ(doc->history.current, 1);
  EXPECT_EQ(JumpToHistoryRow(*doc, 3, command, &ctx), 2);
  EXPECT_EQ(std::tuple(ctx.undos, ctx.redos), std::tuple(4, 2));
  EXPECT_EQ(JumpToHistoryRow(*doc, 3, command, &ctx), 0);
  // A row past the end stops at the first refused command.
  EXPECT_EQ(JumpToHistoryRow(*doc, 9, command, &ctx), 2);
  // A command that never moves is cut off by the guard.
  EXPECT_EQ(JumpToHistoryRow(*doc, 0, [](void*, bool) { return true; }, nullptr), 99999);
}

TEST(HistoryPanel, ObserversHearOfEveryStep) {
  static int historyEvents, layerEvents;
  historyEvents = layerEvents = 0;
  DocumentObserver observer;
  observer.historyChanged = [](Document&) { ++historyEvents; };
  observer.layersChanged = [](Document&) { ++layerEvents; };
  SetDocumentObserver(&observer);
  auto doc = Doc();
  PushLayer(*doc, 1, u"x");
  Undo(*doc);
  Redo(*doc);
  Undo(*doc);
  EXPECT_FALSE(Undo(*doc));  // nothing to undo: nothing to tell
  SetDocumentObserver(nullptr);
  EXPECT_EQ(std::tuple(historyEvents, layerEvents), std::tuple(4, 3));
  EXPECT_TRUE(doc->modified);  // undoing to the start still leaves it modified
}

}  // namespace
}  // namespace tavora
