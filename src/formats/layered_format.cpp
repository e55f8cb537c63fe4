#include "formats/layered_format.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/file_io.h"
#include "base/memory.h"
#include "base/row_workers.h"
#include "base/system_paths.h"
#include "document/blend.h"
#include "document/size_limits.h"
#include "formats/byte_input.h"

namespace tavora {
namespace {

constexpr int32_t kMaxLayers = 1000;
constexpr int kNameUnits = 64;
constexpr uint32_t kAngleBias = 720;
constexpr uint32_t kMaxRun = 2147483647u;

// The run pairs are written and read as whole blocks of native words, which
// are the file's little-endian words only on such a machine.
constexpr bool kLittleEndianHost = std::endian::native == std::endian::little;
std::atomic<bool> g_fastRunsAllowed{true};
bool FastRuns() { return kLittleEndianHost && g_fastRunsAllowed.load(std::memory_order_relaxed); }

// The layout number, 1 to 4, is the last character of the magic.
constexpr char kMagic[4][5] = {"KZL1", "KZL2", "KZL3", "KZL4"};

int32_t Clamp(uint32_t word, int32_t lo, int32_t hi) {
  return std::clamp(static_cast<int32_t>(word), lo, hi);
}

// ---------------------------------------------------------------- writing

int LayoutFor(const Document& doc) {
  bool stroke = false, bloom = false;
  for (const Layer& l : doc.layers) {
    stroke |= l.effects.stroke.on;
    bloom |= l.effects.bloom.on;
  }
  return bloom ? 4 : stroke ? 3 : 2;
}

void WriteShadowGlow(SafeFileWriter& out, const ShadowGlowEffect& e) {
  out.WriteU32(e.on);
  out.WriteU32(static_cast<uint32_t>(e.offsetX));
  // Offset Y keeps only its low 16 bits: the option flag rides above them.
  out.WriteU32((static_cast<uint32_t>(e.offsetY) & 0xFFFFu) | (e.option ? 1u << 16 : 0u));
  out.WriteU32(static_cast<uint32_t>(e.size));
  out.WriteU32(e.color);
  out.WriteU32(static_cast<uint32_t>(e.opacity));
}

void WriteLayer(SafeFileWriter& out, const Layer& layer, int layout) {
  uint8_t name[kNameUnits * 2] = {};
  const std::u16string& n = layer.Name();
  for (std::size_t i = 0; i < n.size() && i < kNameUnits - 1; ++i) {
    name[2 * i] = static_cast<uint8_t>(n[i]);
    name[2 * i + 1] = static_cast<uint8_t>(n[i] >> 8);
  }
  out.Write(name, sizeof name);
  out.WriteU32(layer.visible);
  out.WriteU32(static_cast<uint32_t>(layer.opacity));
  out.WriteU32(static_cast<uint32_t>(layer.blendMode));
  out.WriteU32(layer.opaqueBackground);

  const LayerEffects& e = layer.effects;
  WriteShadowGlow(out, e.dropShadow);
  WriteShadowGlow(out, e.outerGlow);
  WriteShadowGlow(out, e.innerGlow);

  const uint32_t words[18] = {
      e.bevel.on, uint32_t(e.bevel.depth), uint32_t(e.bevel.size), uint32_t(e.bevel.soften),
      uint32_t(e.bevel.angle) + kAngleBias, e.bevel.direction != 0,
      e.colorOverlay.on, e.colorOverlay.color, uint32_t(e.colorOverlay.opacity),
      uint32_t(e.colorOverlay.blendMode),
      e.gradientOverlay.on, e.gradientOverlay.color1, e.gradientOverlay.color2,
      uint32_t(e.gradientOverlay.opacity), uint32_t(e.gradientOverlay.blendMode),
      uint32_t(e.gradientOverlay.angle) + kAngleBias, uint32_t(e.gradientOverlay.style),
      e.gradientOverlay.reverse};
  for (uint32_t w : words) out.WriteU32(w);
  if (layout >= 3) {
    const StrokeEffect& s = e.stroke;
    for (uint32_t w : {uint32_t(s.on), s.color, uint32_t(s.opacity), uint32_t(s.thickness),
                       uint32_t(s.smoothness), uint32_t(s.position)})
      out.WriteU32(w);
  }
  if (layout >= 4) {
    const BloomEffect& b = e.bloom;
    for (uint32_t w : {uint32_t(b.on), b.color, uint32_t(b.spread), uint32_t(b.intensity),
                       uint32_t(b.core), uint32_t(b.softness), uint32_t(b.glow)})
      out.WriteU32(w);
  }

}

// Runs cross row ends but never the end of the layer. The plain coder: one
// pixel at a time, one write a pair.
void WritePixelsPlain(SafeFileWriter& out, const Surface& pixels) {
  const uint32_t* p = pixels.Data();
  const std::size_t total = pixels.PixelCount();
  std::size_t i = 0;
  while (i < total) {
    const uint32_t value = p[i];
    std::size_t run = 1;
    while (i + run < total && p[i + run] == value && run < kMaxRun) ++run;
    out.WriteU32(static_cast<uint32_t>(run));
    out.WriteU32(value);
    i += run;
  }
}

// The fast coder writes the same pairs. A layer is cut into bands (bounding
// the memory for the pairs) and each band into pieces coded side by side
// into their own stretch of one buffer; a run that crosses a cut is joined
// again when the pieces are written, in order.
constexpr std::size_t kBandPixels = std::size_t{1} << 20;
constexpr int kPieces = 64;  // at least kMinRowsToSplit, so bands are split
constexpr std::size_t kMinPixelsToSplit = std::size_t{1} << 16;
static_assert(kPieces >= kMinRowsToSplit);

// A pixel that differs from the next one is a run of one: four at a time,
// stored as (1, pixel) pairs with one interleave. Returns how many of the
// four at p were such runs (4 when all were); the pairs for those are in
// out, and 8 words are always stored (p[4] must exist, so out has the room).
#if defined(__SSE2__)
inline int LiteralFour(const uint32_t* p, uint32_t* out) {
  const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
  const __m128i ones = _mm_set1_epi32(1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi32(ones, here));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), _mm_unpackhi_epi32(ones, here));
  const int equal = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(here, next)));
  return equal ? std::countr_zero(unsigned(equal)) : 4;
}
#endif

// Where the run of `value` that goes on at p[from] ends (end at most).
inline std::size_t RunEnd(const uint32_t* p, std::size_t from, std::size_t end, uint32_t value) {
  std::size_t j = from;
#if defined(__SSE2__)
  const __m128i v = _mm_set1_epi32(static_cast<int>(value));
  auto same = [&](std::size_t at) {
    return _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + at)), v);
  };
  // Sixteen pixels a step while they all match: flat layers are mostly that.
  while (j + 16 <= end) {
    const __m128i all = _mm_and_si128(_mm_and_si128(same(j), same(j + 4)),
                                      _mm_and_si128(same(j + 8), same(j + 12)));
    if (_mm_movemask_epi8(all) != 0xFFFF) break;
    j += 16;
  }
  while (j + 4 <= end) {
    const int mask = _mm_movemask_ps(_mm_castsi128_ps(same(j)));
    if (mask != 0xF) return j + std::countr_zero(unsigned(~mask & 0xF));
    j += 4;
  }
#endif
  while (j < end && p[j] == value) ++j;
  return j;
}

// Codes the pixels p[0 .. count) as if they were a whole layer, into out
// (room for 2 * count words); returns the words written.
// Layers are far below kMaxRun pixels (checked by the caller), so no run is
// ever cut at that length.
std::size_t EncodeRuns(const uint32_t* p, std::size_t count, uint32_t* out) {
  uint32_t* o = out;
  std::size_t i = 0;
  while (i < count) {
#if defined(__SSE2__)
    // Noise: runs of one, four pixels a step (needs the pixel after them).
    int singles = 4;
    while (i + 5 <= count && singles == 4) {
      singles = LiteralFour(p + i, o);
      o += 2 * singles;
      i += singles;
    }
#endif
    const uint32_t value = p[i];
    const std::size_t end = RunEnd(p, i + 1, count, value);
    o[0] = static_cast<uint32_t>(end - i);
    o[1] = value;
    o += 2;
    i = end;
  }
  return static_cast<std::size_t>(o - out);
}

// Writes coded pieces in order, joining a run that goes on from one piece
// into the next: the last pair of a piece is held back until then.
class RunJoiner {
 public:
  explicit RunJoiner(SafeFileWriter& out) : out_(out) {}
  void Add(const uint32_t* pairs, std::size_t words) {
    if (words == 0) return;
    std::size_t from = 0;
    if (holding_ && pairs[1] == held_[1]) {
      held_[0] += pairs[0];  // the layer is below kMaxRun pixels
      from = 2;
    }
    if (from == words) return;
    if (holding_) out_.Write(held_, sizeof held_);
    out_.Write(pairs + from, (words - 2 - from) * 4);
    held_[0] = pairs[words - 2];
    held_[1] = pairs[words - 1];
    holding_ = true;
  }
  // At the end of a layer.
  void Flush() {
    if (holding_) out_.Write(held_, sizeof held_);
    holding_ = false;
  }

 private:
  SafeFileWriter& out_;
  bool holding_ = false;
  uint32_t held_[2] = {};
};

void WritePixelsFast(SafeFileWriter& out, const Surface& pixels, uint32_t* buffer) {
  const std::size_t total = pixels.PixelCount();
  RunJoiner joiner(out);
  for (std::size_t band = 0; band < total; band += kBandPixels) {
    const uint32_t* p = pixels.Data() + band;
    const std::size_t count = std::min(kBandPixels, total - band);
    const int pieces = count < kMinPixelsToSplit ? 1 : kPieces;
    // Words written by the slice of pieces starting at each piece; 0 where
    // no slice starts.
    std::size_t words[kPieces] = {};
    // A piece's pairs go where its pixels would take two words each.
    auto start = [&](int piece) { return count * std::size_t(piece) / std::size_t(pieces); };
    auto code = [&](int first, int end) {
      words[first] = EncodeRuns(p + start(first), start(end) - start(first), buffer + 2 * start(first));
    };
    RowWorkers::Run(pieces, code);
    for (int k = 0; k < pieces; ++k) joiner.Add(buffer + 2 * start(k), words[k]);
  }
  joiner.Flush();
}

// Words of pair buffer WritePixelsFast needs for layers of `pixels`.
std::size_t PairBufferWords(std::size_t pixels) {
  return 2 * std::min(pixels, kBandPixels);
}

// ---------------------------------------------------------------- reading

// The bytes of a file being read, with as much look-ahead as the source
// allows: all of them for bytes in memory, a large buffer for a file, and
// exactly what is asked for from any other ByteInput (which cannot tell how
// much is left). Pixel runs are decoded straight from the look-ahead.
class WordReader {
 public:
  explicit WordReader(std::span<const uint8_t> bytes)
      : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}
  explicit WordReader(FileHandle file) : file_(file), capacity_(kFileBuffer) { MakeBuffer(); }
  explicit WordReader(ByteInput& in) : in_(&in), capacity_(kLargestRead) { MakeBuffer(); }
  ~WordReader() {
    if (file_ != kNoFile) CloseFile(file_);
  }
  WordReader(const WordReader&) = delete;
  WordReader& operator=(const WordReader&) = delete;

  // At least n (at most kLargestRead) bytes at Data(), or false when the
  // input ends first.
  bool Ensure(std::size_t n) { return Available() >= n || Refill(n); }
  const uint8_t* Data() const { return at_; }
  std::size_t Available() const { return static_cast<std::size_t>(end_ - at_); }
  void Skip(std::size_t n) { at_ += n; }

  bool Word(uint32_t& w) {
    if (!Ensure(4)) return false;
    w = uint32_t(at_[0]) | uint32_t(at_[1]) << 8 | uint32_t(at_[2]) << 16 | uint32_t(at_[3]) << 24;
    at_ += 4;
    return true;
  }
  template <std::size_t N>
  bool Words(uint32_t (&w)[N]) {
    for (uint32_t& x : w)
      if (!Word(x)) return false;
    return true;
  }
  bool Bytes(void* out, std::size_t n) {
    if (!Ensure(n)) return false;
    std::memcpy(out, at_, n);
    at_ += n;
    return true;
  }

 private:
  static constexpr std::size_t kFileBuffer = std::size_t{4} << 20;
  static constexpr std::size_t kLargestRead = 256;  // a layer name is 128 bytes

  void MakeBuffer() {
    buffer_.reset(static_cast<uint8_t*>(CheckedAlloc(capacity_)));
    at_ = end_ = buffer_.get();
  }

  bool Refill(std::size_t n) {
    if (!buffer_) return false;  // bytes in memory: there is no more
    const std::size_t kept = Available();
    std::memmove(buffer_.get(), at_, kept);
    at_ = buffer_.get();
    end_ = at_ + kept;
    if (in_) {
      if (!in_->Read(const_cast<uint8_t*>(end_), n - kept)) return false;
      end_ += n - kept;
      return true;
    }
    while (Available() < n) {
      const int64_t got = ReadFromFile(file_, const_cast<uint8_t*>(end_), capacity_ - Available());
      if (got <= 0) return false;
      end_ += got;
    }
    return true;
  }

  FileHandle file_ = kNoFile;
  ByteInput* in_ = nullptr;
  std::size_t capacity_ = 0;
  std::unique_ptr<uint8_t[], FreeDeleter> buffer_;
  const uint8_t* at_ = nullptr;
  const uint8_t* end_ = nullptr;
};

bool ReadShadowGlow(WordReader& in, ShadowGlowEffect& e) {
  uint32_t w[6];
  if (!in.Words(w)) return false;
  e.on = w[0] != 0;
  e.offsetX = static_cast<int32_t>(w[1]);
  e.offsetY = static_cast<int16_t>(w[2] & 0xFFFFu);
  e.option = (w[2] >> 16) == 1 ? 1 : 0;
  e.size = Clamp(w[3], 0, 500);
  e.color = w[4];
  e.opacity = Clamp(w[5], 0, 100);
  return true;
}

// Properties and effects of one layer record, into `layer`.
bool ReadLayerFields(WordReader& in, Layer& layer, int layout) {
  uint8_t raw[kNameUnits * 2];
  if (!in.Bytes(raw, sizeof raw)) return false;
  std::u16string name;
  for (int i = 0; i < kNameUnits - 1; ++i) {  // unit 64 is always the terminator
    const char16_t c = static_cast<char16_t>(raw[2 * i] | raw[2 * i + 1] << 8);
    if (c == 0) break;
    name.push_back(c);
  }
  layer.SetName(name);

  uint32_t props[4];
  if (!in.Words(props)) return false;
  layer.visible = props[0] != 0;
  layer.opacity = Clamp(props[1], 0, 255);
  layer.blendMode = Clamp(props[2], 0, kBlendModeCount - 1);
  layer.opaqueBackground = props[3] != 0;

  LayerEffects& e = layer.effects;
  if (!ReadShadowGlow(in, e.dropShadow) || !ReadShadowGlow(in, e.outerGlow) ||
      !ReadShadowGlow(in, e.innerGlow))
    return false;
  if (layout >= 2) {
    uint32_t w[18];
    if (!in.Words(w)) return false;
    e.bevel.on = w[0] != 0;
    e.bevel.depth = Clamp(w[1], 0, 100);
    e.bevel.size = Clamp(w[2], 0, 200);
    e.bevel.soften = Clamp(w[3], 0, 100);
    e.bevel.angle = static_cast<int32_t>(w[4] - kAngleBias);
    e.bevel.direction = w[5] != 0;
    e.colorOverlay.on = w[6] != 0;
    e.colorOverlay.color = w[7];
    e.colorOverlay.opacity = Clamp(w[8], 0, 100);
    e.colorOverlay.blendMode = Clamp(w[9], 0, kBlendModeCount - 1);
    e.gradientOverlay.on = w[10] != 0;
    e.gradientOverlay.color1 = w[11];
    e.gradientOverlay.color2 = w[12];
    e.gradientOverlay.opacity = Clamp(w[13], 0, 100);
    e.gradientOverlay.blendMode = Clamp(w[14], 0, kBlendModeCount - 1);
    e.gradientOverlay.angle = static_cast<int32_t>(w[15] - kAngleBias);
    e.gradientOverlay.style = Clamp(w[16], 0, 4);
    e.gradientOverlay.reverse = w[17] != 0;
  }
  if (layout >= 3) {
    uint32_t w[6];
    if (!in.Words(w)) return false;
    e.stroke.on = w[0] != 0;
    e.stroke.color = w[1];
    e.stroke.opacity = Clamp(w[2], 0, 100);
    e.stroke.thickness = Clamp(w[3], 1, 500);
    e.stroke.smoothness = Clamp(w[4], 0, 100);
    e.stroke.position = Clamp(w[5], 0, 2);
  }
  if (layout >= 4) {
    uint32_t w[7];
    if (!in.Words(w)) return false;
    e.bloom.on = w[0] != 0;
    e.bloom.color = w[1];
    e.bloom.spread = Clamp(w[2], 1, 500);
    e.bloom.intensity = Clamp(w[3], 0, 300);
    e.bloom.core = Clamp(w[4], 0, 100);
    e.bloom.softness = Clamp(w[5], 0, 100);
    e.bloom.glow = Clamp(w[6], 0, 2);
  }
  return true;
}

// The plain decoder: one pair at a time.
bool ReadPixelsPlain(WordReader& in, Surface& pixels) {
  uint32_t* p = pixels.Data();
  std::size_t left = pixels.PixelCount();
  while (left > 0) {
    uint32_t run, value;
    if (!in.Word(run) || !in.Word(value)) return false;
    if (run == 0 || run > left) return false;
    std::fill_n(p, run, value);
    p += run;
    left -= run;
  }
  return true;
}

// Fills a long run on every processor: a new layer's pages are first
// touched here, and that costs more than the writing.
void FillRun(uint32_t* p, std::size_t run, uint32_t value, bool split) {
  if (!split || run < kMinPixelsToSplit * 16) {
    std::fill_n(p, run, value);
    return;
  }
  auto fill = [&](int first, int end) {
    const std::size_t from = run * std::size_t(first) / kPieces, to = run * std::size_t(end) / kPieces;
    std::fill_n(p + from, to - from, value);
  };
  RowWorkers::Run(kPieces, fill);
}

// Decodes the pairs from s up to end (whole pairs) into p, stopping early
// when `left` pixels are done. Returns where it stopped, or null on a run
// of 0 or past `left`. p must be all zero, as a new layer is: transparent
// runs are skipped, not written.
const uint8_t* DecodeRuns(const uint8_t* s, const uint8_t* end, uint32_t*& p, std::size_t& left,
                          bool splitFills) {
  while (s != end && left > 0) {
#if defined(__SSE2__)
    // Noise: four runs of one a step, their pixels gathered with a shuffle.
    const __m128i ones = _mm_set1_epi32(1);
    while (end - s >= 32 && left >= 4) {
      const __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(s));
      const __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(s + 16));
      const __m128i runs = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
      if (_mm_movemask_epi8(_mm_cmpeq_epi32(runs, ones)) != 0xFFFF) break;
      _mm_storeu_ps(reinterpret_cast<float*>(p), _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
      p += 4;
      left -= 4;
      s += 32;
    }
    if (s == end || left == 0) break;
#endif
    uint32_t run, value;
    std::memcpy(&run, s, 4);
    std::memcpy(&value, s + 4, 4);
    s += 8;
    if (run == 0 || run > left) return nullptr;
    if (value != 0) FillRun(p, run, value, splitFills);
    p += run;
    left -= run;
  }
  return s;
}

// A block of pairs decoded side by side: a first pass adds up the runs of
// each piece of the block, which gives every piece the pixel it starts at
// and finds where the layer ends (or a bad run, refusing the file before
// anything is written).
constexpr std::size_t kBlockPairs = std::size_t{1} << 19;
constexpr std::size_t kMinPairsToSplit = std::size_t{1} << 15;

// Sum of the runs of `pairs` pairs at s; zero is set when one of them is 0.
uint64_t SumRuns(const uint8_t* s, std::size_t pairs, bool& zero) {
  uint64_t sum = 0;
  std::size_t i = 0;
#if defined(__SSE2__)
  // Runs are below 2^32, so 64-bit lanes take them without carries.
  const __m128i low = _mm_set_epi32(0, -1, 0, -1);
  __m128i total = _mm_setzero_si128(), zeros = _mm_setzero_si128();
  for (; i + 2 <= pairs; i += 2) {
    const __m128i v = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 8 * i)), low);
    total = _mm_add_epi64(total, v);
    zeros = _mm_or_si128(zeros, _mm_cmpeq_epi32(v, _mm_setzero_si128()));
  }
  uint64_t lanes[2];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), total);
  sum = lanes[0] + lanes[1];
  // The value lanes were cleared and always compare equal; only runs count.
  zero = (_mm_movemask_epi8(zeros) & 0x0F0F) != 0;
#else
  zero = false;
#endif
  for (; i < pairs; ++i) {
    uint32_t run;
    std::memcpy(&run, s + 8 * i, 4);
    sum += run;
    zero |= run == 0;
  }
  return sum;
}

// Decodes as much of the block of `pairs` pairs at s as belongs to the
// layer, setting `used` to the pairs taken; false on a bad run.
bool DecodeBlockSplit(const uint8_t* s, std::size_t pairs, uint32_t*& p, std::size_t& left,
                      std::size_t& used) {
  // Piece k: pairs pairAt[k] .. pairAt[k + 1], pixels pixelAt[k] on.
  std::size_t pairAt[kPieces + 1] = {}, pixelAt[kPieces + 1] = {};
  int pieces = 0;
  std::size_t decodedHere = 0;  // pixels of the piece where the layer ends
  while (pieces < kPieces && pixelAt[pieces] < left) {
    const std::size_t from = pairAt[pieces], to = pairs * std::size_t(pieces + 1) / kPieces;
    bool zero = false;
    const uint64_t sum = SumRuns(s + 8 * from, to - from, zero);
    std::size_t room = left - pixelAt[pieces];
    if (zero || sum > room) {
      // The layer ends in this piece or the file is broken in it; the
      // checking decoder tells which.
      uint32_t* at = p + pixelAt[pieces];
      const uint8_t* stop = DecodeRuns(s + 8 * from, s + 8 * to, at, room, false);
      if (!stop) return false;
      used = static_cast<std::size_t>(stop - s) / 8;
      decodedHere = left - pixelAt[pieces] - room;
      break;
    }
    pairAt[pieces + 1] = to;
    pixelAt[pieces + 1] = pixelAt[pieces] + sum;
    ++pieces;
    used = to;
  }
  auto decode = [&](int first, int end) {
    uint32_t* at = p + pixelAt[first];
    std::size_t count = pixelAt[end] - pixelAt[first];
    DecodeRuns(s + 8 * pairAt[first], s + 8 * pairAt[end], at, count, false);  // checked above
  };
  RowWorkers::Run(pieces, decode);
  const std::size_t done = pixelAt[pieces] + decodedHere;
  p += done;
  left -= done;
  return true;
}

// The same as ReadPixelsPlain from whole blocks of look-ahead; `pixels` must
// be all zero, as a new layer is.
bool ReadPixelsFast(WordReader& in, Surface& pixels) {
  uint32_t* p = pixels.Data();
  std::size_t left = pixels.PixelCount();
  while (left > 0) {
    if (!in.Ensure(8)) return false;
    const std::size_t pairs = std::min(in.Available() / 8, kBlockPairs);
    std::size_t used = 0;
    if (pairs >= kMinPairsToSplit) {
      if (!DecodeBlockSplit(in.Data(), pairs, p, left, used)) return false;
    } else {
      const uint8_t* stop = DecodeRuns(in.Data(), in.Data() + 8 * pairs, p, left, true);
      if (!stop) return false;
      used = static_cast<std::size_t>(stop - in.Data()) / 8;
    }
    in.Skip(8 * used);
  }
  return true;
}

std::unique_ptr<Document> ReadDocument(WordReader& in) {
  char magic[4];
  if (!in.Bytes(magic, 4)) return nullptr;
  int layout = 0;
  for (int i = 0; i < 4; ++i)
    if (std::memcmp(magic, kMagic[i], 4) == 0) layout = i + 1;
  if (layout == 0) return nullptr;

  uint32_t header[6];
  if (!in.Words(header)) return nullptr;
  const uint32_t width = header[0], height = header[1], count = header[4];
  // Every limit is checked before any pixel is allocated.
  if (!CanvasSizeAllowed(width, height) || count < 1 || count > kMaxLayers) return nullptr;
  // A run pair fills a whole layer, so a tiny file can ask for a thousand
  // 250-megapixel layers: refuse what could never fit in this machine.
  const uint64_t memory = PhysicalMemoryBytes();
  if (memory && uint64_t(width) * height * 4 * count > memory) return nullptr;

  auto doc = std::make_unique<Document>();
  doc->width = static_cast<int32_t>(width);
  doc->height = static_cast<int32_t>(height);
  doc->dpi = static_cast<int32_t>(header[2]) < 1 ? kDefaultDpi : static_cast<int32_t>(header[2]);
  doc->compositeDirty = doc->Bounds();
  doc->layers.reserve(std::min<uint32_t>(count, 8));
  const bool fast = FastRuns();
  for (uint32_t i = 0; i < count; ++i) {
    Layer layer(doc->width, doc->height, u"Layer");
    if (!ReadLayerFields(in, layer, layout) ||
        !(fast ? ReadPixelsFast(in, layer.pixels) : ReadPixelsPlain(in, layer.pixels)))
      return nullptr;
    doc->layers.push_back(std::move(layer));
  }
  doc->colorCount = static_cast<int32_t>(header[3]);
  doc->active = std::clamp(static_cast<int32_t>(header[5]), 0, static_cast<int32_t>(count) - 1);
  doc->modified = false;
  doc->untitledNumber = TakeUntitledNumber();
  SetTitle(*doc);
  return doc;
}

}  // namespace

bool IsLayeredExtension(const std::filesystem::path& path) {
  std::u16string ext = path.extension().u16string();
  for (char16_t& c : ext)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  return ext == u".tvl" || ext == u".kzl";
}

bool WriteLayeredDocument(const Document& doc, const std::filesystem::path& path) {
  SafeFileWriter out(path);
  if (!out.Open()) return false;
  const int layout = LayoutFor(doc);
  out.Write(kMagic[layout - 1], 4);
  for (int32_t w : {doc.width, doc.height, doc.dpi, doc.colorCount, doc.LayerCount(), doc.active})
    out.WriteU32(static_cast<uint32_t>(w));
  std::size_t largest = 0;
  for (const Layer& layer : doc.layers) largest = std::max(largest, layer.pixels.PixelCount());
  // A layer of kMaxRun pixels (no canvas is that large) keeps the plain
  // coder, which cuts runs at that length.
  const bool fast = FastRuns() && largest < kMaxRun;
  std::unique_ptr<uint32_t[], FreeDeleter> pairs;
  if (fast) pairs.reset(static_cast<uint32_t*>(CheckedAlloc(PairBufferWords(largest) * 4)));
  for (const Layer& layer : doc.layers) {
    WriteLayer(out, layer, layout);
    if (fast)
      WritePixelsFast(out, layer.pixels, pairs.get());
    else
      WritePixelsPlain(out, layer.pixels);
  }
  return out.Commit();
}

std::unique_ptr<Document> ReadLayeredDocument(const std::filesystem::path& path) {
  const FileHandle file = OpenFileForReading(path);
  if (file == kNoFile) return nullptr;
  WordReader in(file);
  return ReadDocument(in);
}

std::unique_ptr<Document> ReadLayeredDocumentBytes(std::span<const uint8_t> bytes) {
  WordReader in(bytes);
  return ReadDocument(in);
}

std::unique_ptr<Document> ReadLayeredDocument(ByteInput& source) {
  WordReader in(source);
  return ReadDocument(in);
}

void AllowFastRunCodingForTesting(bool allowed) { g_fastRunsAllowed.store(allowed); }

}  // namespace tavora
