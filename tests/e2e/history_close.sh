#!/usr/bin/env bash
# End-to-end: with a two-layer .tvl open, a key bound to nothing (Ctrl+K)
# does nothing; Ctrl+I inverts (undone at once); Ctrl+Shift+E flattens, Ctrl+Z and Ctrl+Y follow the
# history (each state saved with Ctrl+S and read back by tavora-cli.exe);
# the History panel scrolls, keeps the current row in view and jumps to a
# row scrolled into view; closing the modified document asks to save (in
# the program's own message box, dark as the theme), and "No" closes it
# unsaved.
# Usage: history_close.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" history
# Two layers in the oldest layout the program reads: a blue background and a
# half-transparent red layer above it.
python3 - "$work/two.tvl" <<'PY'
import struct, sys
def name(s):
    b = s.encode("utf-16-le")
    return b + b"\0" * (128 - len(b))
out = b"KZL1" + struct.pack("<6I", 64, 48, 72, 16777216, 2, 1)
for layer, pixel in (("Background", 0xFF2040A0), ("Red", 0x80FF0000)):
    out += name(layer) + struct.pack("<4I", 1, 255, 0, 1 if layer == "Background" else 0)
    out += struct.pack("<18I", 0, 6, 6, 8, 0, 60, 0, 0, 0, 12, 0xFFD84A, 80, 0, 0, 0, 12, 0xFFFFFF, 80)
    out += struct.pack("<2I", 64 * 48, pixel)
open(sys.argv[1], "wb").write(out)
PY

layers() {
  "$wine_run" "$cli" info --json "$(winpath "$work/two.tvl")" | python3 -c 'import json,sys; print(len(json.load(sys.stdin)["layers"]))'
}
key() {
  xdotool windowfocus --sync "$main"
  xdotool key "$@"
  sleep 0.8
}
flat() { "$wine_run" "$cli" convert --flatten "$(winpath "$1")" "$(winpath "$2")" >/dev/null; }
# The screen colour at X,Y as RRGGBB.
colour() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -format "%[hex:p{$1,$2}]" info: | cut -c1-6
}
# Down the column X of a screenshot, from Y0 to Y1: the first row of the
# panels' background (the History panel's top), then each run of the
# current-row mark as START-END.
panel_marks() {
  python3 - "$@" <<'PY'
import subprocess, sys
shot, x, y0, y1 = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
ppm = subprocess.run(["convert", shot, "-crop", f"1x{y1 - y0}+{x}+{y0}", "+repage", "rgb:-"],
                     check=True, capture_output=True).stdout
rows = [ppm[i:i + 3].hex().upper() for i in range(0, len(ppm), 3)]
top = next((y0 + i for i, c in enumerate(rows) if c == "25262A"), -1)
runs, start = [], None
for i, c in enumerate(rows + [""]):
    if c == "2F5D9E" and start is None:
        start = i
    elif c != "2F5D9E" and start is not None:
        runs.append(f"{y0 + start}-{y0 + i - 1}")
        start = None
print(top, *runs)
PY
}

"$wine_run" "$work/tavora.exe" "$(winpath "$work/two.tvl")" >/dev/null 2>&1 &
app=$!
main=$(window '^two.tvl - Tavora$') || fail "the layered file did not open"
sleep 3

key ctrl+k
window '^two.tvl - Tavora$' >/dev/null || fail "a key bound to nothing changed the document"
key ctrl+i
window '^two.tvl \* - Tavora$' >/dev/null || fail "Invert did not change the document"
key ctrl+z

key ctrl+shift+e
window '^two.tvl \* - Tavora$' >/dev/null || fail "Flatten did not mark the document modified"
key ctrl+s
[ "$(layers)" = 1 ] || fail "the flattened save does not hold one layer"
key ctrl+z
key ctrl+s
[ "$(layers)" = 2 ] || fail "undo did not bring the two layers back"
key ctrl+y
key ctrl+s
[ "$(layers)" = 1 ] || fail "redo did not flatten again"
import -window root "$out/history-flattened.png"

# Grayscale and thirteen inverts make fifteen states: sixteen rows where the
# panel has room for eleven. The current (last) row is in view and marked,
# above the Layers panel's mark of the active layer. The wheel takes the
# list back to its top, and a click on the Grayscale row goes back to it:
# the saved picture is the flattened one greyed by tavora-cli.
cp "$work/two.tvl" "$work/flat.tvl"
key ctrl+shift+g
for _ in $(seq 1 13); do key ctrl+i; done
import -window root "$work/steps.png"
cp "$work/steps.png" "$out/history-scrolled.png"
eval "$(xdotool getwindowgeometry --shell "$main")"
read -r top marks < <(panel_marks "$work/steps.png" $((X + WIDTH - 30)) "$Y" $((Y + HEIGHT)))
[ "$top" -gt 0 ] || fail "no History panel at the right"
set -- $marks
[ $# -ge 2 ] || fail "the current row of the History panel is out of view (marks: $marks)"
first=${1%-*}; last=${1#*-}
[ $((last - first + 1)) -eq 24 ] || fail "the History panel's current row is cut (rows $1)"
xdotool mousemove $((X + WIDTH - 110)) $((top + 100))
xdotool click --repeat 3 --delay 100 4
sleep 0.5
import -window root "$out/history-top.png"
xdotool mousemove $((X + WIDTH - 110)) $((top + 28 + 2 * 24 + 12)) click 1
sleep 1.5
key ctrl+s
"$wine_run" "$cli" apply grayscale "$(winpath "$work/flat.tvl")" "$(winpath "$work/grey.tvl")" >/dev/null
flat "$work/grey.tvl" "$work/grey.png"
flat "$work/two.tvl" "$work/jumped.png"
diff=$(compare -metric AE "PNG32:$work/grey.png" "PNG32:$work/jumped.png" null: 2>&1 || true)
[ "$diff" = "0" ] || fail "a click on the Grayscale row did not go back to it ($diff pixels differ)"

key ctrl+z
key ctrl+w
prompt=$(window '^Tavora$') || fail "closing a modified document did not ask"
import -window root "$out/history-close-prompt.png"
eval "$(xdotool getwindowgeometry --shell "$prompt")"
[ "$(colour $((X + 4)) $((Y + 4)))" = "2B2C30" ] || fail "the close prompt is not dark"
xdotool windowfocus --sync "$prompt"
xdotool key alt+n
closed=""
for _ in $(seq 1 20); do
  [ "$(xdotool getwindowname "$main")" = "Tavora" ] && { closed=1; break; }
  sleep 0.5
done
[ -n "$closed" ] || fail "No did not close the tab"
[ "$(layers)" = 1 ] || fail "No saved the document"
echo "history and close: 1 passed, 0 failed"
