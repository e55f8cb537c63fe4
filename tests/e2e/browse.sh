#!/usr/bin/env bash
# End-to-end: started with a folder, Tavora opens the Browse tab on it and
# shows the pictures' thumbnails; sorting by size puts the largest file
# first (and is remembered); Enter on the sub-folder goes into it, Alt+Left
# comes back to the folder with the sub-folder still selected; F5 lists a
# picture added meanwhile; Enter on a picture opens it as a document.
# The Browse host's window text names the selected entry (or the folder).
# Usage: browse.sh TAVORA_EXE CXX_COMPILER WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cxx="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" browse
"$cxx" -O1 -municode -static -o "$work/window_text.exe" "$(dirname "$0")/window_text.cpp" ||
  fail "the window text helper did not build"
find_on_screen="$(dirname "$0")/screen_find.py"

pics="$work/pics"
mkdir -p "$pics/sub"
convert -size 64x48 xc:'#C03030' "PNG24:$pics/a.png"                 # the smallest file
convert -size 300x200 plasma:fractal "PNG24:$pics/b.png"             # the largest
convert -size 120x90 gradient:'#30C030-#208020' "PNG24:$pics/c.png"
convert -size 64x48 xc:'#3030C0' "PNG24:$pics/sub/d.png"
echo "not a picture" >"$pics/notes.txt"

host_text() { "$wine_run" "$work/window_text.exe" KZBrowse 2>/dev/null | tr -d '\r' | cut -d' ' -f5-; }
host_is() {
  for _ in $(seq 1 20); do [ "$(host_text)" = "$1" ] && return 0; sleep 0.5; done
  fail "Browse points at \"$(host_text)\", not \"$1\""
}
on_screen() {
  for _ in $(seq 1 20); do
    import -window root "$work/shot.png"
    [ -n "$(python3 "$find_on_screen" "$work/shot.png" origin "$1")" ] && return 0
    sleep 0.5
  done
  fail "no $1 on the screen"
}

"$wine_run" "$work/tavora.exe" "$(winpath "$pics")" >/dev/null 2>&1 &
app=$!
splash_gone
main=$(window '^Tavora$') || fail "no main window"
sleep 1
host_is "$(winpath "$pics")"
read -r hx hy hr hb _ <<<"$("$wine_run" "$work/window_text.exe" KZBrowse 2>/dev/null | tr -d '\r')"
# The red square's thumbnail is drawn at its own size: it is not enlarged.
on_screen C03030
import -window root "$out/browse-start.png"

# The grid takes the keys once clicked (its lower right is empty).
grid_click() { xdotool mousemove $((hr - 320)) $((hb - 20)) click 1; sleep 0.5; }
grid_click
xdotool key Home
host_is "$(winpath "$pics/sub")"
xdotool key Right
host_is "$(winpath "$pics/a.png")"

# Sort by size: the list at the right end of the bar above the grid.
xdotool mousemove $((hr - 60)) $((hy + 17)) click 1
sleep 1
xdotool key s Return
sleep 1
grep -q '^Sort=2' "$work/tavora.ini" || fail "the sort order was not remembered"
grid_click
xdotool key Home Right
host_is "$(winpath "$pics/b.png")"
# The smallest picture is last: the text file is not listed.
xdotool key End
host_is "$(winpath "$pics/a.png")"
import -window root "$out/browse-by-size.png"

# Into the sub-folder and back.
xdotool key Home Return
host_is "$(winpath "$pics/sub")"
sleep 0.5
host_is "$(winpath "$pics/sub")"
on_screen 3030C0
xdotool key Right
host_is "$(winpath "$pics/sub/d.png")"
xdotool key alt+Left
host_is "$(winpath "$pics/sub")"

# A picture added meanwhile shows after F5: the smallest file, last by size.
convert -size 4x4 xc:'#808080' "PNG24:$pics/e.png"
xdotool key F5 End
host_is "$(winpath "$pics/e.png")"

# Enter on the largest picture opens it.
xdotool key Home Right
host_is "$(winpath "$pics/b.png")"
xdotool key Return
window '^b.png - Tavora$' >/dev/null || fail "Enter did not open b.png"
import -window root "$out/browse-opened.png"
echo "browse: 1 passed, 0 failed"
