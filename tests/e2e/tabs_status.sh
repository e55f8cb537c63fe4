#!/usr/bin/env bash
# End-to-end: three files open as three tabs; dragging the first tab to the
# last place reorders the tabs and the Tabs menu alike; a modified tab shows
# its mark; the middle button closes a tab left of the active one, which
# stays active; the close button of the modified tab asks to save and "Yes"
# saves it; the status bar names the pointer's pixel, the picture and the
# selection; the toolbar's zoom box follows and sets the zoom; a double
# click on the empty bar asks for a new image; "Close All Tabs" asks first
# and then closes every tab.
# The bars are read through their window texts by a small helper built here
# with the same compiler as the program.
# Usage: tabs_status.sh TAVORA_EXE CXX_COMPILER WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cxx="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" tabs_status
"$cxx" -O1 -municode -static -o "$work/window_text.exe" "$(dirname "$0")/window_text.cpp" ||
  fail "the window text helper did not build"
find_on_screen="$(dirname "$0")/screen_find.py"

# Three small pictures of distinct colours; the names are short, so every
# tab has the least width, 96 pixels at 96 dpi.
convert -size 64x48 xc:'#C03030' "PNG24:$work/a.png"
convert -size 64x48 xc:'#30C030' "PNG24:$work/b.png"
convert -size 64x48 xc:'#3030C0' "PNG24:$work/c.png"

# "LEFT TOP RIGHT BOTTOM TEXT" of the first child of the class.
child() { "$wine_run" "$work/window_text.exe" "$1" 2>/dev/null | tr -d '\r'; }
tabs_text() { child KZTabs | cut -d' ' -f5-; }
status_text() { child KZStatus | cut -d' ' -f5-; }
# Waits until the tabs bar shows exactly $1.
tabs_are() {
  for _ in $(seq 1 20); do [ "$(tabs_text)" = "$1" ] && return 0; sleep 0.5; done
  fail "the tabs are \"$(tabs_text)\", not \"$1\""
}
title_is() {
  for _ in $(seq 1 20); do [ "$(xdotool getwindowname "$main")" = "$1" ] && return 0; sleep 0.5; done
  fail "the title is \"$(xdotool getwindowname "$main")\", not \"$1\""
}
status_has() {
  for _ in $(seq 1 20); do status_text | grep -qF -- "$1" && return 0; sleep 0.5; done
  fail "the status bar shows \"$(status_text)\", without \"$1\""
}
# The screen point X pixels into the tabs bar, at the middle of its height.
at_tab() { echo "$((tx + $1)) $(((ty + tb) / 2))"; }

"$wine_run" "$work/tavora.exe" "$(winpath "$work/a.png")" "$(winpath "$work/b.png")" \
  "$(winpath "$work/c.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^c.png - Tavora$') || fail "the three files did not open"
splash_gone
sleep 1
tabs_are "a.png | b.png | c.png"
read -r tx ty tr tb _ <<<"$(child KZTabs)"
[ $((tb - ty)) -eq 30 ] || fail "the tabs bar is $((tb - ty)) pixels high"
import -window root "$out/tabs-three.png"

# Drag a.png over b.png to the place of c.png: it passes b.png, then c.png.
xdotool mousemove $(at_tab 40) mousedown 1
sleep 0.3
for x in 70 110 150 190 230 250; do xdotool mousemove $(at_tab $x); sleep 0.3; done
xdotool mouseup 1
tabs_are "b.png | c.png | a.png"
title_is "a.png - Tavora"
# The Tabs menu lists them in the same order: its first item is b.png.
xdotool windowfocus --sync "$main"
xdotool key alt+t
sleep 0.8
xdotool key 1
title_is "b.png - Tavora"
# Back to a.png by its tab, and a change marks it.
xdotool mousemove $(at_tab 240) click 1
title_is "a.png - Tavora"
xdotool windowfocus --sync "$main"
xdotool key ctrl+i
tabs_are "b.png | c.png | a.png  ●"
import -window root "$out/tabs-modified.png"

# The middle button closes b.png, left of the active tab, which stays active.
xdotool mousemove $(at_tab 48) click 2
tabs_are "c.png | a.png  ●"
title_is "a.png * - Tavora"

# The close button of a.png (the second tab, 96..192) asks to save; Yes
# saves it in place, inverted, and closes it.
xdotool mousemove $(at_tab $((192 - 14))) click 1
prompt=$(window '^Tavora$') || fail "closing the modified tab did not ask to save"
import -window root "$out/tabs-save-prompt.png"
xdotool windowfocus --sync "$prompt"
xdotool key alt+y
tabs_are "c.png"
title_is "c.png - Tavora"
[ "$(convert "$work/a.png" -format '%[hex:p{5,5}]' info: | cut -c1-6)" = "3FCFCF" ] ||
  fail "Yes did not save the inverted picture"

# The status bar: over pixel 5,7 of c.png its position and channels, the
# picture's zoom, size, resolution and depth, then a dragged selection.
sleep 1
import -window root "$work/shot.png"
read -r ox oy <<<"$(python3 "$find_on_screen" "$work/shot.png" origin 3030C0)"
[ -n "${oy:-}" ] || fail "the picture is not on the screen"
xdotool mousemove $((ox + 5)) $((oy + 7))
status_has "X 5   Y 7     R 48  G 48  B 192  A 255"
status_has "100%   64 × 48 px   "
status_has "   24-bit"

# The toolbar's zoom box shows the zoom. A typed percent, the Zoom in
# button, a zoom by key and the box's list each set it, and the status bar
# agrees. At 96 dpi the box spans 198..294 of the bar and Zoom in 296..322.
toolbar_text() { child KZToolbar | cut -d' ' -f5-; }
zoom_is() {
  for _ in $(seq 1 20); do
    [ "$(toolbar_text)" = "$1" ] && status_text | grep -qF -- "$2   64 × 48" && return 0
    sleep 0.5
  done
  fail "the zoom box shows \"$(toolbar_text)\" and the status bar \"$(status_text)\", not $1 and $2"
}
read -r bx by _ bb _ <<<"$(child KZToolbar)"
mid=$(((by + bb) / 2))
zoom_is "100%" "100%"
xdotool mousemove $((bx + 230)) $mid click 1
sleep 0.3
xdotool key End BackSpace BackSpace BackSpace BackSpace BackSpace BackSpace
xdotool type 25
xdotool key Return
zoom_is "25%" "25%"
xdotool mousemove $((bx + 309)) $mid click 1
zoom_is "33.3%" "33%"
import -window root "$out/toolbar-zoom.png"
xdotool windowfocus --sync "$main"
xdotool key ctrl+minus
zoom_is "25%" "25%"
# F4 opens the list; its last entry is actual pixels, 100 % at 96 dpi.
xdotool mousemove $((bx + 230)) $mid click 1
sleep 0.3
xdotool key F4
sleep 0.5
for _ in $(seq 1 10); do xdotool key Down; done
xdotool key Return
zoom_is "100%" "100%"
xdotool mousemove $((ox + 5)) $((oy + 7))
status_has "X 5   Y 7"
xdotool windowfocus --sync "$main"
xdotool key m
sleep 0.3
xdotool mousemove $((ox + 10)) $((oy + 10)) mousedown 1
for step in 1 2 3; do xdotool mousemove $((ox + 10 + step * 10 / 3)) $((oy + 10 + step * 20 / 3)); sleep 0.2; done
xdotool mousemove $((ox + 20)) $((oy + 30)) mouseup 1
status_has "Selection 10 × 20"
import -window root "$out/tabs-status-selection.png"
xdotool key ctrl+a
status_has "Selection 64 × 48"
# Selecting is a step of the history: the tab shows the change.
tabs_are "c.png  ●"

# A double click beside the last tab asks for a new image; Esc leaves it.
xdotool mousemove $(at_tab 300) click --repeat 2 --delay 80 1
dialog=$(window '^New Image$') || fail "a double click on the empty bar did not ask for a new image"
xdotool windowfocus --sync "$dialog"
xdotool key Escape
sleep 2
tabs_are "c.png  ●"

# Close All Tabs from the right button's menu asks first, then offers to
# save the changed picture; No closes it unsaved.
xdotool mousemove $(at_tab 48) click 3
sleep 1
xdotool key a
prompt=$(window '^Tavora$') || fail "Close All Tabs did not ask first"
import -window root "$out/tabs-close-all.png"
xdotool windowfocus --sync "$prompt"
xdotool key alt+y
asked=""
for _ in $(seq 1 20); do
  sleep 0.5
  second=$(xdotool search --onlyvisible --name '^Tavora$' 2>/dev/null | grep -vx "$prompt" | head -1 || true)
  [ -n "$second" ] && { asked=1; break; }
done
[ -n "$asked" ] || fail "Close All Tabs did not offer to save the changed picture"
import -window root "$out/tabs-close-all-save.png"
xdotool windowfocus --sync "$second"
xdotool key alt+n
title_is "Tavora"
tabs_are ""
status_has "Ready"
echo "tabs and status: 1 passed, 0 failed"
