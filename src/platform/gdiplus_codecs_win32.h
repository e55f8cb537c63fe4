#pragma once
// PNG, JPEG, BMP, GIF, TIFF and ICO through GDI+, as the system codec of the
// codec bridge. Start GDI+ before the table is registered with
// SetSystemCodec(&GdiplusCodecs()); stop it after the last decode or encode.
#include "platform/codec_bridge.h"

namespace tavora {

// False when GDI+ cannot be started; the bridge must then stay switched off.
[[nodiscard]] bool StartGdiplusCodecs();
void StopGdiplusCodecs();

const SystemCodec& GdiplusCodecs();

}  // namespace tavora
