#!/usr/bin/env bash
# End-to-end: with a two-layer .tvl open, a command that has not landed
# (Ctrl+X, Cut) does nothing; Ctrl+I inverts (undone at once); Ctrl+Shift+E flattens, Ctrl+Z and Ctrl+Y follow the
# history (each state saved with Ctrl+S and read back by tavora-cli.exe);
# closing the modified document asks to save, and "No" closes it unsaved.
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

"$wine_run" "$work/tavora.exe" "$(winpath "$work/two.tvl")" >/dev/null 2>&1 &
app=$!
main=$(window '^two.tvl - Tavora$') || fail "the layered file did not open"
sleep 3

key ctrl+x
window '^two.tvl - Tavora$' >/dev/null || fail "a greyed command changed the document"
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

key ctrl+z
key ctrl+w
prompt=$(window '^Tavora$') || fail "closing a modified document did not ask"
import -window root "$out/history-close-prompt.png"
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
