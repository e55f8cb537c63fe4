#!/usr/bin/env bash
# End-to-end: the real tavora.exe under Wine on a virtual display. It starts
# with its splash and menu bar, shows About from the keyboard, switches the
# theme through the View menu, exits from the File menu, and leaves its
# settings (theme, window placement, last folder) next to the executable.
# Usage: shell_smoke.sh TAVORA_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; wine_run="$2"; out="$3"
. "$(dirname "$0")/common.sh" shell
"$wine_run" "$work/tavora.exe" >/dev/null 2>&1 &
app=$!
win=""
for _ in $(seq 1 60); do
  win=$(xdotool search --name '^Tavora$' 2>/dev/null | tail -1 || true)
  [ -n "$win" ] && xwininfo -id "$win" 2>/dev/null | grep -q '1352x833\|IsViewable' && break
  sleep 0.5
done
[ -n "$win" ] || fail "no main window"
sleep 3   # past the splash
import -window root "$out/shell-start.png"

# A first start stores the dark theme.
grep -q '^Theme=2' "$work/tavora.ini" || fail "theme not stored at first start"

main=$(xdotool search --name '^Tavora$' | head -1)
xdotool windowfocus --sync "$main"
xdotool key alt+h a
sleep 1.5
about=$(xdotool search --name '^About Tavora$' | head -1 || true)
[ -n "$about" ] || fail "About box did not open"
import -window root "$out/shell-about.png"
# Its OK button sits centred near the bottom of the box.
eval "$(xdotool getwindowgeometry --shell "$about")"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT - 22)) click 1
gone=""
for _ in $(seq 1 20); do
  xdotool search --onlyvisible --name '^About Tavora$' >/dev/null 2>&1 || { gone=1; break; }
  sleep 0.5
done
[ -n "$gone" ] || fail "About box did not close"

# View > Theme > Light, from the keyboard.
xdotool windowfocus --sync "$main"
xdotool key alt+v t l
sleep 1
grep -q '^Theme=1' "$work/tavora.ini" || fail "theme change not stored"
import -window root "$out/shell-light.png"

# File > Exit.
xdotool windowfocus --sync "$main"
xdotool key alt+f x
for _ in $(seq 1 40); do kill -0 $app 2>/dev/null || break; sleep 0.5; done
kill -0 $app 2>/dev/null && fail "did not exit"
grep -q '^\[Window\]' "$work/tavora.ini" || fail "window placement not stored"
grep -q '^W=1360' "$work/tavora.ini" || fail "window width not stored"
grep -q '^LastDir=' "$work/tavora.ini" || fail "last folder not stored"
echo "shell smoke: 1 passed, 0 failed"
