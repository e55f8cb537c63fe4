#!/usr/bin/env bash
# End-to-end: Layers > Properties and Effects turns on a drop shadow and a
# stroke by clicks on their boxes in the effects list; the canvas shows both
# while the dialog is open and after OK, and a PNG saved afterwards holds
# them: a black ring just outside the square and a soft shadow below right.
# Usage: layer_effects.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" layer_effects
find_on_screen="$(dirname "$0")/screen_find.py"
# 900 x 600, transparent (wide enough that the square shows left of the
# dialog): a magenta marker at the top-left corner and an opaque blue square
# from (60,40) to (119,99).
convert -size 900x600 xc:none -fill '#FF00FF' -draw 'rectangle 0,0 5,5' \
  -fill '#2040E0' -draw 'rectangle 60,40 119,99' "PNG32:$work/pic.png"

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
sleep 1
import -window root "$work/shot.png"
read -r ox oy <<<"$(python3 "$find_on_screen" "$work/shot.png" origin FF00FF)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"
# The screen's grey at a picture pixel (the canvas shows it at zoom 100 %).
screen_grey() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -format "%[fx:int(255*p{$((ox + $1)),$((oy + $2))}.intensity)]" info:
}
before_ring=$(screen_grey 58 70)

xdotool windowfocus --sync "$main"
xdotool key alt+l
sleep 0.6
xdotool key p
dlg=$(window '^Properties and Effects$') || fail "no Properties and Effects dialog"
sleep 0.8
eval "$(xdotool getwindowgeometry --shell "$dlg")"
# The effects list: Drop Shadow is the first row, Stroke the seventh; each
# row's box sits at its left edge (rows 15 px apart at 96 dpi).
import -window root "$out/layer-effects-dialog.png"
xdotool mousemove $((X + 23)) $((Y + 97)) click 1
sleep 0.5
xdotool mousemove $((X + 23)) $((Y + 97 + 6 * 15)) click 1
sleep 2
import -window root "$out/layer-effects-preview.png"
convert "$out/layer-effects-preview.png" -format "%[fx:int(255*p{$((ox + 58)),$((oy + 70))}.intensity)]" info: >"$work/ring"
[ "$(cat "$work/ring")" -lt 40 ] || fail "the canvas does not preview the stroke (grey $(cat "$work/ring"), before $before_ring)"
xdotool windowfocus --sync "$dlg"
xdotool key Return
for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Properties and Effects$' >/dev/null 2>&1 || break; sleep 0.5; done
sleep 1.5
[ "$(screen_grey 58 70)" -lt 40 ] || fail "the stroke is gone from the canvas after OK"
import -window root "$out/layer-effects.png"

save_as "$work/out.png"
written "$work/out.png"
alpha() { convert "$work/out.png" -format "%[fx:int(255*p{$1,$2}.a)]" info:; }
grey() { convert "$work/out.png" -format "%[fx:int(255*p{$1,$2}.intensity)]" info:; }
[ "$(alpha 58 70)" -gt 200 ] && [ "$(grey 58 70)" -lt 30 ] || fail "no black stroke outside the square in the PNG"
[ "$(alpha 90 70)" -eq 255 ] && [ "$(grey 90 70)" -gt 40 ] || fail "the square itself changed"
shadow=$(alpha 124 100)
[ "$shadow" -gt 20 ] && [ "$(grey 124 100)" -lt 40 ] || fail "no shadow below right of the square (alpha $shadow)"
[ "$(alpha 30 20)" -eq 0 ] || fail "the effects spread far from the square"
[ "$(alpha 40 110)" -eq 0 ] || fail "the shadow fell on the wrong side"
echo "layer effects: 1 passed, 0 failed"
