#!/usr/bin/env bash
# End-to-end: a scribble drawn with the Brush is removed with Edit > Fill
# Selection from Surroundings; a line, a rectangle, an ellipse and a rounded rectangle are
# drawn, undone and redone; text is placed with the Text tool and edited by
# a second click; Image > Rotate 90° Clockwise turns everything, the Crop
# tool cuts it down (its Apply button applies), the Resize dialog halves it
# and the Free Rotate dialog turns it by 180°, all with real key presses.
# The saved .tvl has the expected size and layers, the shapes and the text
# where they were drawn, and no trace of the scribble.
# Usage: image_edit.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" image_edit
find_on_screen="$(dirname "$0")/screen_find.py"
# 480 x 320: a gradient, a magenta marker at the top-left corner to find
# the picture on the screen.
convert -size 480x320 gradient:'#3060c0-#f0a040' -fill '#FF00FF' -draw 'rectangle 0,0 5,5' "PNG24:$work/pic.png"

# The screen position of the marker's top-left pixel.
marker() {
  import -window root "$work/shot.png"
  python3 "$find_on_screen" "$work/shot.png" origin FF00FF
}
# Waits until no visible window is titled $1.
gone() {
  for _ in $(seq 1 20); do xdotool search --onlyvisible --name "$1" >/dev/null 2>&1 || return 0; sleep 0.5; done
  fail "the window $1 stayed"
}
# The darkest grey in the 20 x 20 screen square below right of X,Y.
darkest_on_screen() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -crop "20x20+$1+$2" +repage -format "%[fx:int(255*minima.intensity)]" info:
}
drag() {
  xdotool mousemove "$1" "$2" mousedown 1
  sleep 0.2
  xdotool mousemove $((($1 + $3) / 2)) $((($2 + $4) / 2))
  sleep 0.2
  xdotool mousemove "$3" "$4"
  sleep 0.2
  xdotool mouseup 1
  sleep 0.5
}

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
sleep 1
read -r ox oy <<<"$(marker)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"

# A black zigzag with the Brush along y = 246..254, x = 200..360; then
# Rectangle Select around it and Fill Selection from Surroundings.
xdotool windowfocus --sync "$main"
xdotool key b
sleep 0.3
xdotool mousemove $((ox + 200)) $((oy + 250)) mousedown 1
for x in $(seq 210 10 360); do xdotool mousemove $((ox + x)) $((oy + 246 + (x / 10 % 2) * 8)); sleep 0.03; done
xdotool mouseup 1
sleep 0.5
[ "$(darkest_on_screen $((ox + 270)) $((oy + 240)))" -lt 40 ] || fail "the Brush drew no scribble"
xdotool key m
drag $((ox + 185)) $((oy + 238)) $((ox + 375)) $((oy + 262))
xdotool key alt+e
sleep 0.6
xdotool key s
dlg=$(window '^Fill Selection from Surroundings$') || fail "no prompt for how far to grow the selection"
xdotool key Return
sleep 3
gone '^Fill from Surroundings$'
xdotool windowfocus --sync "$main"
xdotool key ctrl+d
sleep 0.5

# The shape tools (U steps through them): a line, a rectangle, an ellipse and
# a rounded rectangle, all undone, then all redone.
shapes=("240 20 320 20" "240 30 320 110" "250 40 310 100" "235 25 325 115")
for corners in "${shapes[@]}"; do
  read -r x0 y0 x1 y1 <<<"$corners"
  xdotool key u
  sleep 0.3
  drag $((ox + x0)) $((oy + y0)) $((ox + x1)) $((oy + y1))
done
xdotool key ctrl+z ctrl+z ctrl+z ctrl+z
sleep 1
xdotool key ctrl+y ctrl+y ctrl+y ctrl+y
sleep 1

# The Text tool: a click opens its dialog, OK places "Hi" on a layer of its
# own; a click on that text opens it again, and "!" is added.
ok_text() {
  eval "$(xdotool getwindowgeometry --shell "$dlg")"
  xdotool mousemove $((X + WIDTH - 150)) $((Y + HEIGHT - 28)) click 1
  gone '^Text$'
  sleep 2
}
xdotool key t
sleep 0.3
xdotool mousemove $((ox + 60)) $((oy + 80)) click 1
dlg=$(window '^Text$') || fail "a Text tool click opened no dialog"
sleep 0.5
xdotool type --delay 40 Hi
sleep 1
import -window root "$out/image-edit-text.png"
ok_text
xdotool mousemove $((ox + 75)) $((oy + 120)) click 1
dlg=$(window '^Text$') || fail "a click on the text did not open it for editing"
sleep 0.5
xdotool key ctrl+End
xdotool type --delay 40 '!'
ok_text

xdotool windowfocus --sync "$main"
xdotool key alt+i
sleep 0.6
xdotool key l
sleep 1.5
# Turned clockwise, the marker is at the top-right corner of a 320 x 480 picture.
read -r mx my <<<"$(marker)"
[ -n "${my:-}" ] || fail "the rotated picture is not on the screen"
ox=$((mx - 314)); oy=$my

# The Crop tool: drag, then the options bar's Apply.
xdotool key c
sleep 0.5
drag $((ox + 20)) $((oy + 20)) $((ox + 300)) $((oy + 400))
import -window root "$out/image-edit-crop.png"
eval "$(xdotool getwindowgeometry --shell "$main")"
# "Apply" follows the tool's title on the options bar.
xdotool mousemove $((X + 94)) $((Y + 66)) click 1
sleep 1.5

# Resize: Tab to the width (the height and percent follow), half of 280.
xdotool key ctrl+alt+i
dlg=$(window '^Resize Image$') || fail "Ctrl+Alt+I opened no Resize dialog"
sleep 0.5
xdotool key Tab Tab Tab End BackSpace BackSpace BackSpace BackSpace
xdotool type --delay 60 140
sleep 0.5
xdotool key Return
gone '^Resize Image$'
sleep 1
# Free Rotate by 180 degrees.
xdotool windowfocus --sync "$main"
xdotool key alt+i
sleep 0.6
xdotool key f
dlg=$(window '^Free Rotate$') || fail "no Free Rotate dialog"
sleep 0.5
xdotool key End BackSpace BackSpace BackSpace BackSpace BackSpace BackSpace
xdotool type --delay 60 180
xdotool key Return
gone '^Free Rotate$'
sleep 1.5
import -window root "$out/image-edit.png"

save_as "$work/out.tvl"
written "$work/out.tvl"

info=$("$wine_run" "$cli" info --json "$(winpath "$work/out.tvl")")
summary=$(python3 -c 'import json,sys; d=json.load(sys.stdin); print(d["width"], d["height"], ",".join(l["name"] for l in d["layers"]))' <<<"$info")
case "$summary" in "140 190 Background,Text: Hi"*) ;; *) fail "saved as $summary" ;; esac
"$wine_run" "$cli" convert --flatten "$(winpath "$work/out.tvl")" "$(winpath "$work/back.png")" >/dev/null
# The darkest grey level in a W x H + X + Y box of the result.
darkest() { convert "$work/back.png" -crop "$1" -colorspace Gray -format '%[fx:int(minima*255)]' info:; }
# Each step moves what was drawn: turned clockwise (x, y) -> (319 - y, x),
# cropped by 20, halved, and turned by 180 in a 140 x 190 picture.
# The scribble ran along x = 200..360 at y = 246..254: now x = 111..119, y = 19..99.
[ "$(darkest 8x70+111+24)" -gt 40 ] || fail "the scribble is still there"
# The shapes lay within x = 230..330, y = 20..120: now x = 0..50, y = 34..84.
[ "$(darkest 50x50+0+34)" -lt 60 ] || fail "the shapes are missing after undo and redo"
# The text's box started near (58, 78): now x = 29..74, y = 135..170.
[ "$(darkest 45x35+29+135)" -lt 60 ] || fail "no text where it was placed"
echo "image edit: 1 passed, 0 failed"
