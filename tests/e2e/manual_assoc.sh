#!/usr/bin/env bash
# End-to-end: the manual and the file association, through the real
# tavora.exe under Wine. F1 opens the manual at the current tool's page; a
# search typed into it finds the Effects page; a click on a link and one on
# Back move between pages; F1 in the New Image dialog shows that dialog's
# page. Then Edit > Settings registers ".tvl" and ".kzl" by clicks on its
# choice and on OK, `reg query` finds the keys, and the same clicks with "No"
# take them away again.
# Usage: manual_assoc.sh TAVORA_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; wine_run="$2"; out="$3"
. "$(dirname "$0")/common.sh" manual
find_on_screen="$(dirname "$0")/screen_find.py"
classes='HKCU\Software\Classes'

reg_has() { "$wine_run" reg query "$classes\\$1" >/dev/null 2>&1; }
# A key's default value; empty when it has none.
reg_value() {
  "$wine_run" reg query "$classes\\$1" /ve 2>/dev/null | tr -d '\r' | sed -n 's/.*REG_SZ *//p' |
    grep -v '^(value not set)$' || true
}
# Left over from an earlier run that failed half-way.
for key in .tvl .kzl Tavora.Layered Tavora.Image; do "$wine_run" reg delete "$classes\\$key" /f >/dev/null 2>&1 || true; done
manual_title() { xdotool getwindowname "$manual" 2>/dev/null || true; }
expect_title() {
  for _ in $(seq 1 10); do [ "$(manual_title)" = "Tavora Manual – $1" ] && return 0; sleep 0.5; done
  fail "manual shows \"$(manual_title)\", not \"$1\""
}

"$wine_run" "$work/tavora.exe" >/dev/null 2>&1 &
app=$!
main=$(window '^Tavora$') || fail "no main window"
sleep 3
splash_gone
main=$(xdotool search --name '^Tavora$' | head -1)
eval "$(xdotool getwindowgeometry --shell "$main")"
# A click on the empty end of the options bar makes the main window the
# active one (a click on an empty canvas would ask for a file).
activate_main() { xdotool mousemove $((X + WIDTH - 120)) $((Y + 66)) click 1; sleep 0.5; }
activate_main

# F1 with the brush, the tool Tavora starts with.
xdotool key F1
manual=$(window '^Tavora Manual') || fail "F1 opened no manual"
expect_title "Paint brush and Eraser"

# The search box has the focus: two words, Return opens the best page.
xdotool windowfocus --sync "$manual"
xdotool type --delay 40 "gaussian blur"
sleep 1
import -window root "$out/manual-search.png"
xdotool key Return
expect_title "Effects"
import -window root "$work/shot.png"
cp "$work/shot.png" "$out/manual-effects.png"
# The first link of the page (the Effects menu), found by its colour.
read -r lx ly <<<"$(python3 "$find_on_screen" "$work/shot.png" origin 7FB2F5)"
[ -n "${lx:-}" ] || fail "no link on the page"
xdotool mousemove $((lx + 3)) $((ly + 5)) click 1
expect_title "Effects menu"
eval "$(xdotool getwindowgeometry --shell "$manual")"
xdotool mousemove $((X + 40)) $((Y + 21)) click 1
expect_title "Effects"

# F1 in a dialog: the dialog's page.
eval "$(xdotool getwindowgeometry --shell "$main")"
activate_main
xdotool key ctrl+n
dlg=$(window '^New Image$') || fail "no New Image dialog"
xdotool windowfocus --sync "$dlg"
xdotool key F1
expect_title "Making a new image"
import -window root "$out/manual-dialog.png"
# Its Cancel button, bottom right (the dialog measures in dialog units:
# 318 across, 36 + 18 per row down).
eval "$(xdotool getwindowgeometry --shell "$dlg")"
xdotool mousemove $((X + WIDTH * (318 - 7 - 24) / 318)) $((Y + HEIGHT * (36 + 72 - 14) / (36 + 72))) click 1
for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^New Image$' >/dev/null 2>&1 || break; sleep 0.5; done
xdotool search --onlyvisible --name '^New Image$' >/dev/null 2>&1 && fail "New Image did not close"
sleep 2

# Settings: row 8 of 9 is the association's Yes/No choice; the list drops
# below it, "Yes" first.
settings_choose() {
  eval "$(xdotool getwindowgeometry --shell "$main")"
  activate_main
  xdotool key alt+e g
  settings=$(window '^Settings$') || fail "no Settings window"
  sleep 0.5
  eval "$(xdotool getwindowgeometry --shell "$settings")"
  local cx=$((X + WIDTH * 232 / 318)) cy=$((Y + HEIGHT * 139 / 198))
  xdotool mousemove $cx $cy click 1
  sleep 0.8
  if [ "$1" = Yes ]; then xdotool mousemove $cx $((cy + 18)) click 1; else xdotool mousemove $cx $((cy + 34)) click 1; fi
  sleep 0.8
  import -window root "$out/manual-settings-$1.png"
  xdotool mousemove $((X + WIDTH * 235 / 318)) $((Y + HEIGHT * 184 / 198)) click 1
  for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Settings$' >/dev/null 2>&1 || break; sleep 0.5; done
  xdotool search --onlyvisible --name '^Settings$' >/dev/null 2>&1 && fail "Settings did not close"
  sleep 1
}

reg_has .tvl && fail ".tvl registered before the test"
settings_choose Yes
[ "$(reg_value .tvl)" = "Tavora.Layered" ] || fail ".tvl not registered"
[ "$(reg_value .kzl)" = "Tavora.Layered" ] || fail ".kzl not registered"
command=$(reg_value 'Tavora.Layered\shell\open\command')
[ "$command" = "\"$(winpath "$work")\\tavora.exe\" \"%1\"" ] || fail "open command is $command"
"$wine_run" reg query "$classes\\.png\\OpenWithProgids" /v Tavora.Image >/dev/null 2>&1 || fail "no Open with entry for .png"
reg_value .png | grep -q . && fail ".png's default program was changed"

settings_choose No
for key in .tvl .kzl Tavora.Layered Tavora.Image '.png\OpenWithProgids'; do
  reg_has "$key" && fail "$key left behind"
done

echo "manual and association: 1 passed, 0 failed"
