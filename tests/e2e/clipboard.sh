#!/usr/bin/env bash
# End-to-end: a rectangle selected inside a red square and feathered is
# copied (Ctrl+C) and opened with Edit > Paste as New Image (Ctrl+Shift+V):
# the saved PNG keeps the soft edge in its alpha over the unchanged red.
# Then Cut (Ctrl+X) leaves a white hole in the background, and Paste
# (Ctrl+V) puts the pixels back on a layer "Pasted" at the place they were
# cut from; tavora-cli reads both saves back.
# Usage: clipboard.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" clipboard
find_on_screen="$(dirname "$0")/screen_find.py"
# 240 x 180 white: a magenta marker at the top-left corner, a red square
# (20..120) left of the middle and a blue one to the right. The selection
# (40..100) lies well inside the red; a paste centred on the canvas instead
# of back in place would miss the left half of the hole.
convert -size 240x180 xc:white -fill '#FF00FF' -draw 'rectangle 0,0 5,5' \
  -fill '#E02020' -draw 'rectangle 20,20 120,120' -fill '#2040C0' -draw 'rectangle 140,40 220,130' \
  "PNG24:$work/pic.png"

key() {
  xdotool windowfocus --sync "$main"
  xdotool key "$@"
  sleep 1
}
# The channel (r, g, b or a) of a pixel of a PNG, 0..255.
channel() { convert "$1" -format "%[fx:int(255*p{$2,$3}.$4+0.5)]" info:; }
layer_names() {
  "$wine_run" "$cli" info --json "$(winpath "$1")" |
    python3 -c 'import json,sys; print(" ".join(l["name"] for l in json.load(sys.stdin)["layers"]))'
}
flat() { "$wine_run" "$cli" convert --flatten "$(winpath "$1")" "$(winpath "$2")" >/dev/null; }

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
sleep 1
import -window root "$work/shot.png"
read -r ox oy <<<"$(python3 "$find_on_screen" "$work/shot.png" origin FF00FF)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"

# Rectangle Select from (40,40) to (100,100), then Select > Feather (5 px).
xdotool windowfocus --sync "$main"
xdotool key m
sleep 0.3
xdotool mousemove $((ox + 40)) $((oy + 40)) mousedown 1
sleep 0.2
xdotool mousemove $((ox + 70)) $((oy + 70))
sleep 0.2
xdotool mousemove $((ox + 100)) $((oy + 100))
sleep 0.2
xdotool mouseup 1
sleep 0.5
key alt+s
xdotool key f
window '^Feather Selection$' >/dev/null || fail "no Feather prompt"
xdotool key Return
sleep 1.5

# Copy, then Paste as New Image: a tab of its own, saved as PNG.
key ctrl+c
key ctrl+shift+v
main=$(window '^Untitled-[0-9]+ \* - Tavora$') || fail "Paste as New Image opened no tab"
import -window root "$out/clipboard-new-image.png"
save_as "$work/copied.png"
written "$work/copied.png"
read -r w h <<<"$(convert "$work/copied.png" -format '%w %h' info:)"
[ "$w" -ge 60 ] && [ "$w" -le 100 ] && [ "$h" -ge 60 ] && [ "$h" -le 100 ] ||
  fail "the new image is ${w}x$h, not the feathered selection's size"
# Every pixel that shows at all is the square's red; the middle is opaque,
# the corners nearly clear, and the alpha runs through many levels between.
read -r visible other levels middle corner <<<"$(convert "$work/copied.png" -depth 8 rgba:- | python3 -c '
import sys
b = sys.stdin.buffer.read(); w, h = '"$w"', '"$h"'
px = [b[i:i + 4] for i in range(0, len(b), 4)]
shown = [p for p in px if p[3]]
print(len(shown), sum(1 for p in shown if p[:3] != bytes((224, 32, 32))), len({p[3] for p in px}),
      px[(h // 2) * w + w // 2][3], px[0][3])')"
[ "$visible" -gt 0 ] && [ "$other" = 0 ] || fail "the copy's colours changed ($other of $visible pixels)"
[ "$middle" = 255 ] || fail "the middle of the copy is not opaque ($middle)"
[ "$corner" -lt 64 ] || fail "the feathered corner is not clear (alpha $corner)"
[ "$levels" -ge 8 ] || fail "the soft edge lost its alpha ($levels levels)"

# Back to the picture (the saved copy closes without a question): Cut leaves
# a white hole, Paste brings the pixels back where they were.
key ctrl+w
# (The selection is a step of its own, so the picture is marked modified.)
main=$(window '^pic.png \* - Tavora$') || fail "the picture's tab did not come back"
key ctrl+x
save_as "$work/cut.tvl"
written "$work/cut.tvl"
flat "$work/cut.tvl" "$work/cut.png"
[ "$(layer_names "$work/cut.tvl")" = "Background" ] || fail "Cut made a layer"
[ "$(channel "$work/cut.png" 70 70 g)" = 255 ] || fail "Cut left the middle of the selection"
[ "$(channel "$work/cut.png" 25 70 g)" = 32 ] && [ "$(channel "$work/cut.png" 70 115 g)" = 32 ] ||
  fail "Cut reached outside the selection"

main=$(window '^cut.tvl - Tavora$') || fail "the save did not rename the tab"
key ctrl+v
key ctrl+s
sleep 1
import -window root "$out/clipboard-pasted.png"
[ "$(layer_names "$work/cut.tvl")" = "Background Pasted" ] || fail "Paste made no layer \"Pasted\""
flat "$work/cut.tvl" "$work/pasted.png"
for at in "55 55" "70 70" "60 85"; do
  read -r x y <<<"$at"
  [ "$(channel "$work/pasted.png" "$x" "$y" r)" = 224 ] && [ "$(channel "$work/pasted.png" "$x" "$y" g)" = 32 ] ||
    fail "the paste did not land where the pixels were cut from ($x,$y)"
done
[ "$(channel "$work/pasted.png" 180 85 b)" = 192 ] || fail "the blue square changed"
echo "clipboard: 1 passed, 0 failed"
