#!/usr/bin/env bash
# End-to-end: Ctrl+M's Brightness / Contrast preview changes the canvas and
# Cancel restores it exactly; Ctrl+Shift+G greys the picture, and Ctrl+S
# saves the grey picture in place. The dialog is dark in the dark theme and
# light after View > Theme > Light.
# Usage: adjust.sh TAVORA_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; wine_run="$2"; out="$3"
. "$(dirname "$0")/common.sh" adjust
convert -size 320x200 gradient:'#3060c0-#f0a040' "PNG24:$work/pic.png"

# The screen colour at the middle of the picture (it is centred in the canvas,
# left of the History panel).
sample() {
  import -window root "$work/shot.png"
  eval "$(xdotool getwindowgeometry --shell "$main")"
  convert "$work/shot.png" -format "%[pixel:p{$((X + (WIDTH - 236) / 2)),$((Y + HEIGHT / 2))}]" info:
}

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
# The splash (also titled "Tavora") must be gone before the canvas is read.
splash_gone
sleep 1
before=$(sample)

# The screen colour at X,Y as RRGGBB.
colour() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -format "%[hex:p{$1,$2}]" info: | cut -c1-6
}
# The background of the dialog's client area, at its bottom-left corner.
dialog_colour() {
  eval "$(xdotool getwindowgeometry --shell "$dlg")"
  colour $((X + 4)) $((Y + HEIGHT - 4))
}

xdotool windowfocus --sync "$main"
xdotool key ctrl+m
dlg=$(window '^Brightness / Contrast$') || fail "Ctrl+M opened no dialog"
sleep 0.5
[ "$(dialog_colour)" = "2B2C30" ] || fail "the dialog is not dark in the dark theme"
eval "$(xdotool getwindowgeometry --shell "$dlg")"
xdotool mousemove $((X + 190)) $((Y + 26)) click 1
xdotool key ctrl+a
xdotool type --delay 40 80
sleep 2
previewed=$(sample)
import -window root "$out/adjust-preview.png"
[ "$previewed" != "$before" ] || fail "the live preview did not change the canvas"
eval "$(xdotool getwindowgeometry --shell "$dlg")"
xdotool mousemove $((X + WIDTH - 60)) $((Y + 92)) click 1
for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Brightness / Contrast$' >/dev/null 2>&1 || break; sleep 0.5; done
sleep 1
[ "$(sample)" = "$before" ] || fail "Cancel did not restore the canvas"

xdotool windowfocus --sync "$main"
xdotool key ctrl+shift+g
sleep 1
xdotool key ctrl+s
sleep 2
import -window root "$out/adjust-grey.png"
colours=$(convert "$work/pic.png" -colorspace HSL -channel G -separate -format '%[fx:maxima]' info:)
[ "$colours" = "0" ] || fail "the saved picture is not grey (saturation $colours)"

xdotool windowfocus --sync "$main"
xdotool key alt+v t l
sleep 1
xdotool key ctrl+m
dlg=$(window '^Brightness / Contrast$') || fail "Ctrl+M opened no dialog in the light theme"
sleep 0.5
import -window root "$out/adjust-light.png"
light=$(dialog_colour)
[ $((16#${light:0:2})) -ge 192 ] && [ $((16#${light:4:2})) -ge 192 ] || fail "the dialog is not light in the light theme ($light)"
xdotool key Escape
echo "adjustments: 1 passed, 0 failed"
