#!/usr/bin/env bash
# End-to-end: the Brush chosen with its key and its size typed in the
# options bar paints a stroke that undo and redo take away and give back;
# the saved pixels equal the stroke tavora-cli computes for the same path.
# A rectangle selection keeps a second stroke inside it, and after a
# restart the Brush still has the size typed before. A click on a dialog's
# button never reaches the canvas beneath it.
# Usage: brush_stroke.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" brush
find="$(dirname "$0")/screen_find.py"
convert -size 320x200 xc:'#3366CC' "PNG24:$work/pic.png"

start() {
  "$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
  app=$!
  main=$(window '^pic.png - Tavora') || fail "the picture did not open"
  splash_gone
  xdotool windowfocus --sync "$main"
  sleep 1
  import -window root "$work/shot.png"
  read -r ox oy < <(python3 "$find" "$work/shot.png" origin 3366CC) || true
  [ -n "${ox:-}" ] || fail "the picture is not on the screen"
}
# Drags the left button along image points "x,y x,y ...", one move at a time.
stroke() {
  local first=1 x y
  for p in "$@"; do
    x=$((ox + ${p%,*})); y=$((oy + ${p#*,}))
    if [ $first = 1 ]; then xdotool mousemove $x $y mousedown 1; first=0
    else xdotool mousemove $x $y; fi
    sleep 0.25
  done
  xdotool mouseup 1
  sleep 0.5
}
saved() {
  save_as "$1"
  written "$1"
  sleep 0.5
}
flat() { "$wine_run" "$cli" convert --flatten "$(winpath "$1")" "$(winpath "$2")" >/dev/null; }
differ() { compare -metric AE "PNG32:$1" "PNG32:$2" null: 2>&1 || true; }
# Screen pixels land on image pixel centres: the path tavora-cli is given.
path="20,30 150,60 290,170 40,160"
cli_path() { for p in $path; do echo "${p%,*}.5,${p#*,}.5"; done; }

start
eval "$(xdotool getwindowgeometry --shell "$main")"
read -r fx fy < <(python3 "$find" "$work/shot.png" field "$X" $((Y + 54)) $((Y + 122))) || true
[ -n "${fx:-}" ] || fail "no number box on the options bar"
xdotool key m
sleep 0.3
xdotool key b
sleep 0.3
xdotool mousemove "$fx" "$fy" click 1
xdotool key ctrl+a
xdotool type --delay 30 9
sleep 0.3

# shellcheck disable=SC2086
stroke $path
import -window root "$out/brush-stroke.png"
xdotool mousemove $((ox - 30)) $((oy - 30))  # the brush ring off the picture
xdotool key ctrl+z
sleep 0.7
import -window root "$work/undone.png"
colors=$(convert "$work/undone.png" -crop "320x200+$ox+$oy" -format '%k' info:)
[ "$colors" = "1" ] || fail "undo left $colors colours on the picture"
xdotool key ctrl+y
sleep 0.7
saved "$work/one.tvl"

# shellcheck disable=SC2046
"$wine_run" "$cli" paint brush size=9 $(cli_path) "$(winpath "$work/pic.png")" "$(winpath "$work/expected.tvl")" >/dev/null
flat "$work/one.tvl" "$work/one.png"
flat "$work/expected.tvl" "$work/expected.png"
[ "$(differ "$work/one.png" "$work/expected.png")" = "0" ] || fail "the stroke differs from tavora-cli's"

# A rectangle selection from (100,20) to (200,120): the selection tools take
# pixel corners, so it holds exactly columns 100-199 and rows 20-119. A
# stroke across it paints only inside, as tavora-cli's does.
xdotool key m
stroke 100,20 150,70 200,120
xdotool key b
stroke 10,90 300,90
import -window root "$out/brush-selection.png"
saved "$work/two.tvl"
"$wine_run" "$cli" paint brush size=9 select=100,20,200,120 10.5,90.5 300.5,90.5 \
  "$(winpath "$work/one.tvl")" "$(winpath "$work/expected2.tvl")" >/dev/null
flat "$work/two.tvl" "$work/two.png"
flat "$work/expected2.tvl" "$work/expected2.png"
[ "$(differ "$work/two.png" "$work/expected2.png")" = "0" ] || fail "the stroke in the selection differs from tavora-cli's"
[ "$(differ "$work/two.png" "$work/one.png")" != "0" ] || fail "the stroke in the selection painted nothing"

# File > Exit, then the Brush size must still be 9.
xdotool windowfocus --sync "$main"
xdotool key alt+f x
for _ in $(seq 1 20); do kill -0 $app 2>/dev/null || break; sleep 0.5; done
grep -qi '^size=9' "$work/tavora.ini" || fail "the Brush size was not remembered"
start
# shellcheck disable=SC2086
stroke $path
saved "$work/three.tvl"
flat "$work/three.tvl" "$work/three.png"
[ "$(differ "$work/three.png" "$work/expected.png")" = "0" ] || fail "after a restart the stroke differs"

# With the Brush current, a click on a dialog's button never paints on the
# canvas beneath it. Gaussian Blur's Apply is clicked once right after the
# pointer moves onto it (that first click must take); the next time it is
# held, released and at once clicked again, so that the second press is
# queued with the release and still waits when the dialog closes. Exactly
# the two blurs are applied and no dab is painted: the picture is the one
# tavora-cli blurs twice, and two undos give back the picture before.
blur_apply() {  # XDOTOOL_MOUSE_COMMANDS...
  xdotool windowfocus --sync "$main"
  xdotool key alt+c b g
  dlg=$(window '^Gaussian Blur$') || fail "Effects > Blur > Gaussian Blur opened no dialog"
  sleep 1
  eval "$(xdotool getwindowgeometry --shell "$dlg")"
  xdotool mousemove $((X + WIDTH - 150)) $((Y + HEIGHT - 52)) "$@"  # Apply (above the progress row)
  for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Gaussian Blur$' >/dev/null 2>&1 || break; sleep 0.3; done
  ! xdotool search --onlyvisible --name '^Gaussian Blur$' >/dev/null 2>&1 || fail "Apply did not take the first click"
  sleep 3  # a click let through reaches the canvas late under Wine
}
blur_apply click 1
blur_apply mousedown 1 sleep 0.3 mouseup 1 click 1
import -window root "$out/brush-after-dialog.png"
saved "$work/blurred.tvl"
"$wine_run" "$cli" apply gaussian-blur gaussian-blur "$(winpath "$work/three.tvl")" \
  "$(winpath "$work/expected4.tvl")" >/dev/null
flat "$work/blurred.tvl" "$work/blurred.png"
flat "$work/expected4.tvl" "$work/expected4.png"
[ "$(differ "$work/blurred.png" "$work/expected4.png")" = "0" ] || fail "Apply did more than blur twice"
xdotool windowfocus --sync "$main"
xdotool key ctrl+z
sleep 0.5
xdotool key ctrl+z
sleep 0.5
saved "$work/unblurred.tvl"
flat "$work/unblurred.tvl" "$work/unblurred.png"
[ "$(differ "$work/unblurred.png" "$work/three.png")" = "0" ] || fail "a click on Apply reached the canvas"
echo "brush stroke: 1 passed, 0 failed"
