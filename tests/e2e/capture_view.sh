#!/usr/bin/env bash
# End-to-end: View > Ruler puts a pixel ruler over the canvas whose major
# ticks stand at the picture's edge and every 100 pixels at 100 %; File >
# Capture Screen (Ctrl+Shift+F), Capture Region (Ctrl+Shift+R, a drag on
# the overlay) and Capture with Delay (its dialog) each open a new tab
# named Capture-1, -2, -3, the region exactly the dragged size; View >
# Slideshow runs two slides full screen from the first tab and Esc ends it.
# Usage: capture_view.sh TAVORA_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; wine_run="$2"; out="$3"
. "$(dirname "$0")/common.sh" capture_view
find_on_screen="$(dirname "$0")/screen_find.py"
# A red-to-blue picture with a magenta marker at its top-left corner, and a
# green one.
convert -size 400x300 gradient:red-blue -fill '#FF00FF' -draw 'rectangle 0,0 5,5' "PNG24:$work/a.png"
convert -size 300x400 xc:'#20C040' "PNG24:$work/b.png"

"$wine_run" "$work/tavora.exe" "$(winpath "$work/a.png")" "$(winpath "$work/b.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^b.png - Tavora$') || fail "the pictures did not open"
splash_gone
sleep 1
# Waits until the main window's title is the given one.
titled() {
  for _ in $(seq 1 30); do
    [ "$(xdotool getwindowname "$main" 2>/dev/null)" = "$1" ] && return 0
    sleep 0.5
  done
  fail "the title is not '$1' but '$(xdotool getwindowname "$main")'"
}
# The brightness 0..255 of a screen pixel of a screenshot.
grey() { convert "$1" -format "%[fx:int(255*p{$2,$3}.intensity)]" info:; }
channels() { convert "$1" -format "%[fx:int(255*p{$2,$3}.r)] %[fx:int(255*p{$2,$3}.g)] %[fx:int(255*p{$2,$3}.b)]" info:; }

# ---- the ruler, on the first tab at 100 %
xdotool windowfocus --sync "$main"
xdotool key alt+t
sleep 0.5
xdotool key 1
titled "a.png - Tavora"
xdotool key alt+v
sleep 0.5
xdotool key r
sleep 1
xdotool key ctrl+2
sleep 1.5
import -window root "$work/ruler.png"
cp "$work/ruler.png" "$out/capture-view-ruler.png"
read -r ox oy <<<"$(python3 "$find_on_screen" "$work/ruler.png" origin FF00FF)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"
# Up the picture's left edge to the ruler's bottom row: the last bright
# pixel of the column above the picture (the canvas between is dark).
edge=$(convert "$work/ruler.png" -crop "1x$oy+$ox+0" +repage -colorspace gray -depth 8 txt:- |
  sed -n 's/^0,\([0-9]*\): (\([0-9]*\).*/\1 \2/p' | awk '$2 > 150 { y = $1 } END { print y }')
[ -n "$edge" ] || fail "no ruler tick above the picture's edge"
# 15 pixels above the bottom row only the major ticks reach: at 0 and 100,
# not at 30 or at the middle tick, 50.
high=$((edge - 15))
[ "$(grey "$work/ruler.png" "$ox" "$high")" -gt 150 ] || fail "the tick at 0 is not a major one"
[ "$(grey "$work/ruler.png" $((ox + 100)) "$high")" -gt 150 ] || fail "no major tick at 100"
[ "$(grey "$work/ruler.png" $((ox + 100)) "$edge")" -gt 150 ] || fail "the tick at 100 does not reach the canvas"
[ "$(grey "$work/ruler.png" $((ox + 50)) "$edge")" -gt 150 ] || fail "no middle tick at 50"
[ "$(grey "$work/ruler.png" $((ox + 50)) "$high")" -lt 90 ] || fail "the middle tick at 50 is as long as a major one"
[ "$(grey "$work/ruler.png" $((ox + 30)) "$high")" -lt 90 ] || fail "a minor tick at 30 is as long as a major one"

# ---- captures: the whole screen, a region, and through the delay dialog
xdotool windowfocus --sync "$main"
xdotool key ctrl+shift+f
titled "Capture-1 * - Tavora"
sleep 1
xdotool windowfocus --sync "$main"
xdotool key ctrl+shift+r
overlay=$(window '^Screen Capture$') || fail "no capture overlay"
sleep 0.5
import -window root "$out/capture-view-overlay-start.png"
xdotool mousemove 300 300 mousedown 1
sleep 0.2
xdotool mousemove 500 450
sleep 0.2
xdotool mousemove 700 600
sleep 0.5
import -window root "$out/capture-view-overlay.png"
xdotool mouseup 1
titled "Capture-2 * - Tavora"
sleep 1
save_as "$work/region.png"
written "$work/region.png"
size=$(identify -format "%wx%h" "$work/region.png")
[ "$size" = "400x300" ] || fail "the region shot is $size, not the dragged 400x300"

sleep 1
xdotool windowfocus --sync "$main"
xdotool key alt+f
sleep 0.5
xdotool key d
dlg=$(window '^Screen Capture$') || fail "no Screen Capture dialog"
sleep 0.5
import -window root "$out/capture-view-delay-dialog.png"
# Full screen (the first choice), after no delay.
xdotool windowfocus --sync "$dlg"
xdotool key Tab End BackSpace BackSpace BackSpace BackSpace
xdotool type 0
xdotool key Return
titled "Capture-3 * - Tavora"

# ---- the slideshow: one second a slide, from the first tab, no transition
sleep 1
xdotool windowfocus --sync "$main"
xdotool key alt+v
sleep 0.5
xdotool key l
dlg=$(window '^Slideshow$') || fail "no Slideshow dialog"
sleep 0.5
xdotool windowfocus --sync "$dlg"
xdotool key End BackSpace BackSpace BackSpace BackSpace
xdotool type 1
xdotool key Tab Home Tab space
sleep 0.3
import -window root "$out/capture-view-slideshow-dialog.png"
xdotool key Return
window '^Full Screen View$' >/dev/null || fail "the slideshow did not start"
# The first slide is the first tab (red to blue), then the second (green);
# the centre of the monitor shows each.
seen=""
for _ in $(seq 1 40); do
  import -window root "$work/slide.png"
  read -r r g b <<<"$(channels "$work/slide.png" 800 500)"
  if [ -z "$seen" ] && [ "$r" -gt 80 ] && [ "$b" -gt 80 ] && [ "$g" -lt 40 ]; then
    seen=first
    cp "$work/slide.png" "$out/capture-view-slide-1.png"
  elif [ "$seen" = first ] && [ "$g" -gt 150 ] && [ "$r" -lt 80 ]; then
    seen=second
    cp "$work/slide.png" "$out/capture-view-slide-2.png"
    break
  fi
  sleep 0.1
done
[ "$seen" = second ] || fail "the slideshow did not show the first two tabs in turn (saw: ${seen:-nothing})"
# The view covers the monitor: its corners are black.
[ "$(grey "$work/slide.png" 2 2)" -lt 10 ] && [ "$(grey "$work/slide.png" 1597 997)" -lt 10 ] ||
  fail "the slideshow does not cover the screen"
xdotool key Escape
for _ in $(seq 1 20); do
  xdotool search --onlyvisible --name '^Full Screen View$' >/dev/null 2>&1 || break
  sleep 0.5
done
xdotool search --onlyvisible --name '^Full Screen View$' >/dev/null 2>&1 && fail "Esc did not end the slideshow"
sleep 1
import -window root "$out/capture-view-after.png"
titled "Capture-3 * - Tavora"
echo "capture and view: 1 passed, 0 failed"
