#!/usr/bin/env bash
# End-to-end: tavora.exe opens a PNG named on its command line, shows it,
# saves it through Save As as a layered .tvl and as a JPEG (with the quality
# dialog), and the saved files hold the picture. Checked with tavora-cli.exe
# and ImageMagick.
# Usage: open_save.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" open-save
# A picture with transparency and a gradient.
convert -size 320x200 gradient:'#204080-#f0c040' \( -size 320x200 xc:none -fill '#ff000080' \
  -draw 'circle 160,100 160,40' \) -composite "PNG32:$work/in.png"

"$wine_run" "$work/tavora.exe" "$(winpath "$work/in.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^in.png - Tavora$') || fail "the picture did not open"
sleep 3
import -window root "$out/open-save-opened.png"

save_as "$work/out.tvl"
written "$work/out.tvl"
window '^out.tvl - Tavora$' >/dev/null || fail "the title did not follow the new name"

save_as "$work/out.jpg"
q=$(window '^JPEG Quality$') || fail "no quality dialog"
xdotool windowfocus --sync "$q"
xdotool type 60
xdotool key Return
written "$work/out.jpg"

# The layered file holds exactly the picture that was opened.
"$wine_run" "$cli" convert "$(winpath "$work/out.tvl")" "$(winpath "$work/back.png")" >/dev/null
diff=$(compare -metric AE "PNG32:$work/in.png" "PNG32:$work/back.png" null: 2>&1 || true)
[ "$diff" = "0" ] || fail "the .tvl pixels differ from the PNG ($diff)"
# The JPEG is opaque, of the same size and close to the picture on white.
[ "$(identify -format '%w x %h' "$work/out.jpg")" = "320 x 200" ] || fail "JPEG size"
convert "$work/in.png" -background white -flatten "$work/flat.png"
rmse=$(compare -metric RMSE "$work/flat.png" "$work/out.jpg" null: 2>&1 | sed 's/.*(\(.*\))/\1/' || true)
awk -v e="$rmse" 'BEGIN { exit !(e < 0.05) }' || fail "JPEG too far from the picture (RMSE $rmse)"

xdotool windowfocus --sync "$main"
xdotool key ctrl+w
sleep 1
window '^Tavora$' >/dev/null || fail "closing the saved tab asked or failed"
xdotool key alt+F4 || true
for _ in $(seq 1 20); do kill -0 $app 2>/dev/null || break; sleep 0.5; done
echo "open and save: 1 passed, 0 failed"
