#!/usr/bin/env bash
# End-to-end: the Fill tool fills a closed outline with a click, the Magic
# Wand selects a disc and Edit > Fill with Background (Ctrl+Backspace)
# paints it out, the Clone brush copies from a Ctrl+clicked source, and
# Image > Color Depth reduces the picture to 16 colours through its dialog;
# the saved file shows each of these.
# Usage: fill_tools.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" fill_tools
find_on_screen="$(dirname "$0")/screen_find.py"
# 320 x 240 white: a magenta marker at the top-left corner, a closed black
# outline, a red disc, and a grey ramp along the bottom (many colours).
convert -size 320x240 xc:white -fill '#FF00FF' -draw 'rectangle 0,0 5,5' \
  -fill none -stroke black -strokewidth 3 -draw 'rectangle 20,20 140,140' \
  -stroke none -fill '#E02020' -draw 'circle 240,80 240,50' \
  \( -size 320x40 gradient:'#101010-#F0F0F0' -rotate 90 -resize 320x40! \) -geometry +0+200 -composite \
  "PNG24:$work/pic.png"

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
sleep 1
import -window root "$work/shot.png"
read -r ox oy <<<"$(python3 "$find_on_screen" "$work/shot.png" origin FF00FF)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"
xdotool windowfocus --sync "$main"

# Fill inside the outline with the foreground colour (black).
xdotool key g
sleep 0.3
xdotool mousemove $((ox + 80)) $((oy + 80)) click 1
sleep 1
# The wand selects the disc; Ctrl+Backspace fills it with the background (white).
xdotool key w
sleep 0.3
xdotool mousemove $((ox + 240)) $((oy + 80)) click 1
sleep 1
xdotool key ctrl+BackSpace
sleep 1
xdotool key ctrl+d
sleep 0.5
# The Clone brush: Ctrl+click on the filled square, then a stroke on white.
xdotool key k
sleep 0.3
xdotool mousemove $((ox + 80)) $((oy + 80))
xdotool keydown ctrl click 1 keyup ctrl
sleep 0.5
xdotool mousemove $((ox + 230)) $((oy + 170)) mousedown 1
for x in 240 250 260 270 280; do xdotool mousemove $((ox + x)) $((oy + 170)); sleep 0.05; done
xdotool mouseup 1
sleep 1
# Color Depth: the list runs from true colour down; 16 colours is the eighth.
xdotool key alt+i
sleep 0.6
xdotool key d
dlg=$(window '^Color Depth$') || fail "no Color Depth dialog"
sleep 0.5
xdotool key Home Down Down Down Down Down Down Down
sleep 0.3
import -window root "$out/fill-tools-depth.png"
xdotool key Return
for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Color Depth$' >/dev/null 2>&1 || break; sleep 0.5; done
sleep 1.5
import -window root "$out/fill-tools.png"

save_as "$work/out.tvl"
written "$work/out.tvl"
"$wine_run" "$cli" convert --flatten "$(winpath "$work/out.tvl")" "$(winpath "$work/back.png")" >/dev/null
grey() { convert "$work/back.png" -format "%[fx:int(255*p{$1,$2}.intensity)]" info:; }
[ "$(grey 80 80)" -lt 40 ] || fail "the outline was not filled"
[ "$(grey 10 10)" -gt 215 ] || fail "the fill leaked out of the outline"
[ "$(grey 240 80)" -gt 215 ] || fail "the wand's disc was not filled with the background"
[ "$(grey 255 170)" -lt 60 ] || fail "the clone brush copied nothing"
[ "$(convert "$work/pic.png" -format %k info:)" -gt 16 ] || fail "the test picture has too few colours"
colours=$(convert "$work/back.png" -format %k info:)
[ "$colours" -le 16 ] || fail "Color Depth left $colours colours"
echo "fill tools: 1 passed, 0 failed"
