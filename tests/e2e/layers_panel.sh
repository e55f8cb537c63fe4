#!/usr/bin/env bash
# End-to-end: in the Layers panel, a new layer is renamed by a double click
# and dragged below the Background, and the New button adds one more layer
# (a key pressed after it goes to the canvas, not the button); the saved
# .tvl holds the layers in that order under their names, and its picture is
# still the one opened.
# Usage: layers_panel.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" layers
convert -size 320x200 gradient:'#208040-#f0e0a0' "PNG24:$work/pic.png"

# The last band of the selected-row colour down a column of the screen:
# the active layer's row (the History panel's current row lies above it).
active_row_top() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -crop "1x1000+$1+0" -depth 8 txt:- |
    awk -F'[,:]' '/#2F5D9E/ { y = $2 + 0; if (y != last + 1) start = y; last = y } END { print start }'
}

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
eval "$(xdotool getwindowgeometry --shell "$main")"
column=$((X + WIDTH - 150))  # the names of the Layers panel's rows
gap=$((X + WIDTH - 196))     # between the eye and the thumbnail: only the row's colour

xdotool windowfocus --sync "$main"
xdotool key ctrl+shift+n
sleep 1.5
top=$(active_row_top "$gap")
[ -n "$top" ] || fail "no active row in the Layers panel"

xdotool mousemove "$column" $((top + 20)) click --repeat 2 --delay 80 1
dlg=$(window '^Rename Layer$') || fail "a double click did not offer to rename"
xdotool windowfocus --sync "$dlg"
xdotool key ctrl+a
xdotool type --delay 30 Top
xdotool key Return
sleep 1.5

# Drag the row one place down: below the Background.
xdotool mousemove "$column" $((top + 20)) mousedown 1
sleep 0.2
for dy in 30 45 60; do xdotool mousemove "$column" $((top + dy)); sleep 0.1; done
xdotool mouseup 1
sleep 1.5
import -window root "$out/layers-panel.png"

# The panel's New button gives the keys back to the canvas: Space then pans
# and does not press the button a second time.
xdotool mousemove $((X + WIDTH - 181)) $((Y + HEIGHT - 42)) click 1
sleep 1
xdotool key space
sleep 1

save_as "$work/out.tvl"
written "$work/out.tvl"

names=$("$wine_run" "$cli" info --json "$(winpath "$work/out.tvl")" |
        python3 -c 'import json,sys; print(",".join(l["name"] for l in json.load(sys.stdin)["layers"]))')
case "$names" in
  Top,*,Background) [ "$(echo "$names" | tr ',' '\n' | wc -l)" -eq 3 ] || fail "layers saved as $names" ;;
  *) fail "layers saved as $names" ;;
esac
"$wine_run" "$cli" convert --flatten "$(winpath "$work/out.tvl")" "$(winpath "$work/back.png")" >/dev/null
diff=$(compare -metric AE "PNG32:$work/pic.png" "PNG32:$work/back.png" null: 2>&1 || true)
[ "$diff" = "0" ] || fail "the saved picture differs ($diff)"
echo "layers panel: 1 passed, 0 failed"
