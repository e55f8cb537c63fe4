#!/usr/bin/env bash
# End-to-end: File > Open reads a layered Photoshop file (its layers, names
# and opacity kept) and a Radiance HDR file through the exposure dialog
# (+1 EV gives what tavora-cli gives at +1); Save As WebP goes through the
# WebP options dialog.
# Usage: formats_open.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" formats_open
python3 "$(dirname "$0")/make_psd.py" "$work/layers.psd"
convert -size 64x48 gradient:'#102030-#ffe0a0' "$work/light.hdr"
convert -size 200x150 xc:'#808080' "PNG24:$work/start.png"

# File > Open with the typed path.
open_file() {
  xdotool windowfocus --sync "$main"
  xdotool key ctrl+o
  dlg=$(window '^Open$') || fail "Ctrl+O opened no Open dialog"
  xdotool windowfocus --sync "$dlg"
  sleep 0.5
  xdotool type --delay 15 "$(winpath "$1")"
  xdotool key Return
}
info() { "$wine_run" "$cli" info --json "$(winpath "$1")"; }

"$wine_run" "$work/tavora.exe" "$(winpath "$work/start.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^start.png - Tavora$') || fail "the program did not start"
splash_gone

open_file "$work/layers.psd"
main=$(window '^layers.psd \* - Tavora$') || fail "the Photoshop file did not open as a modified document"
sleep 1
import -window root "$out/formats-psd.png"
save_as "$work/psd.tvl"
written "$work/psd.tvl"
layers=$(info "$work/psd.tvl" | python3 -c 'import json,sys; print(",".join("%s:%d" % (l["name"], l["opacity"]) for l in json.load(sys.stdin)["layers"]))')
[ "$layers" = "Base:255,Box:200" ] || fail "the Photoshop layers came in as $layers"

open_file "$work/light.hdr"
dlg=$(window '^Open HDR Image$') || fail "an HDR file opened without asking for the exposure"
sleep 0.5
xdotool key End BackSpace BackSpace BackSpace BackSpace BackSpace
xdotool type --delay 40 1
xdotool key Return
main=$(window '^light.hdr \* - Tavora$') || fail "the HDR file did not open"
sleep 1
save_as "$work/hdr.tvl"
written "$work/hdr.tvl"
"$wine_run" "$cli" convert --flatten "$(winpath "$work/hdr.tvl")" "$(winpath "$work/hdr-ui.png")" >/dev/null
"$wine_run" "$cli" convert --exposure=1 --flatten "$(winpath "$work/light.hdr")" "$(winpath "$work/hdr-cli.png")" >/dev/null
diff=$(compare -metric AE "PNG32:$work/hdr-ui.png" "PNG32:$work/hdr-cli.png" null: 2>&1 || true)
[ "$diff" = "0" ] || fail "the exposure chosen in the dialog was not applied ($diff pixels differ)"

# Save As WebP: the options dialog, accepted as it stands.
save_as "$work/out.webp"
dlg=$(window '^WebP Options$') || fail "no WebP Options dialog"
sleep 0.5
import -window root "$out/formats-webp.png"
xdotool key Return
written "$work/out.webp"
size=$(info "$work/out.webp" | python3 -c 'import json,sys; d=json.load(sys.stdin); print(d["width"], d["height"])')
[ "$size" = "64 48" ] || fail "the WebP file holds $size"
echo "formats open: 1 passed, 0 failed"
