#pragma once
// Lens Flare: the light a bright source scatters inside a lens, laid over
// the picture. Around the source: a bright core, a soft glow and haze, a
// thin halo ring with a coloured rim, and diffraction streaks (a star);
// along the line from the source through the area's centre: ghosts, the
// reflections between lens surfaces, as coloured discs, rings and aperture
// hexagons of varied sizes. Each lens type has its own set. The flare is
// added in screen fashion (out = 1 - (1 - in)(1 - flare)), alpha stays.
#include <cstdint>
#include <span>
#include <string_view>

#include "processing/effect_dialogs.h"

namespace tavora {

enum class LensType : int32_t { Zoom50To300 = 0, Prime35 = 1, Prime105 = 2, MoviePrime = 3 };

struct LensFlareParams {
  // The source, in the pixels of the area the operation is given: (x, y)
  // is the centre of pixel x of row y, as a click on it gives. It may lie
  // outside the area.
  float centerX = 0, centerY = 0;
  int32_t brightness = 100;  // per cent, 0..300; 0 leaves the pixels alone
  int32_t size = 100;        // per cent, 10..300; 100 scales the flare to the area's diagonal
  int32_t lens = 0;          // a LensType
};

// A PixelOp.
void LensFlare(uint32_t* pixels, int32_t width, int32_t height, const void* params);

// The lens types' names, in LensType order (the dialog's choices).
std::span<const std::u16string_view> LensTypeNames();

// The dialog's description, in the form of the effect table's entries:
// "Center X:" and "Center Y:" (whole pixels of the operated rectangle,
// -30000..60000 so that the source may lie off the picture), "Brightness
// (%):" and "Size (%):", and the choice "Lens type:"; no margin, live
// preview, short name "lens-flare". The table's defaults for the centre are
// 0, 0: a dialog starts from the rectangle's centre (LensFlareDefaultValues).
const EffectDef& LensFlareEffect();
// The dialog's starting values for an area of this size: the table's
// defaults with the source at the area's centre.
EffectValues LensFlareDefaultValues(int32_t width, int32_t height);

}  // namespace tavora
