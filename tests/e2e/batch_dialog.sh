#!/usr/bin/env bash
# End-to-end: File > Batch Conversion through its dialog with real clicks:
# the source and destination folders typed into their boxes, JPEG chosen as
# the destination type, Start pressed; the progress bar and the status line
# move while the window stays responsive, and the closing report counts the
# files; the JPEGs written read back at the source's size, the subfolder
# and the text file are left alone.
# Usage: batch_dialog.sh TAVORA_EXE TAVORA_CLI_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; cli="$2"; wine_run="$3"; out="$4"
. "$(dirname "$0")/common.sh" batch_dialog
mkdir -p "$work/src/sub" "$work/dst"
convert -size 1600x1200 plasma:fractal "PNG24:$work/base.png"
for i in $(seq 1 24); do convert "$work/base.png" -roll +$((i * 37))+0 "PNG24:$work/src/pic$i.png"; done
cp "$work/src/pic1.png" "$work/src/sub/inner.png"
echo "not a picture" >"$work/src/notes.txt"

"$wine_run" "$work/tavora.exe" >/dev/null 2>&1 &
app=$!
main=$(window 'Tavora') || fail "Tavora did not start"
splash_gone
sleep 1
main=$(xdotool search --onlyvisible --name 'Tavora' | head -1)
xdotool windowfocus --sync "$main"
xdotool key alt+f
sleep 0.6
xdotool key v
dlg=$(window '^Batch Conversion$') || fail "no Batch Conversion dialog"
sleep 0.8
eval "$(xdotool getwindowgeometry --shell "$dlg")"
# Places in the dialog (96 dpi): the two folder boxes, the destination type
# list, the progress bar's two ends and Start.
click() { xdotool mousemove $((X + $1)) $((Y + $2)) click 1; sleep 0.3; }
click 297 26
xdotool type --delay 10 "$(winpath "$work/src")"
click 297 104
xdotool type --delay 10 "$(winpath "$work/dst")"
click 287 137
xdotool key Home Down Return
sleep 0.5
import -window root "$out/batch-dialog.png"
# The mean brightness along the progress bar, in percent: it changes as
# the bar fills.
filled() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -crop "500x1+$((X + 18))+$((Y + 297))" +repage -format "%[fx:int(100*mean)]" info:
}
empty=$(filled)
click 377 361
# Watch the run: the bar must move between the first look and the report.
moving=0
for _ in $(seq 1 40); do
  sleep 0.25
  now=$(filled)
  [ "$now" != "$empty" ] && { moving=1; import -window root "$out/batch-running.png"; break; }
done
[ "$moving" = 1 ] || fail "the progress bar never moved"
# The report comes as a second window of the same title.
for _ in $(seq 1 120); do
  [ "$(xdotool search --onlyvisible --name '^Batch Conversion$' 2>/dev/null | wc -l)" -ge 2 ] && break
  sleep 0.5
done
[ "$(xdotool search --onlyvisible --name '^Batch Conversion$' | wc -l)" -ge 2 ] || fail "no closing report"
sleep 0.5
import -window root "$out/batch-report.png"
xdotool key Return
sleep 1

n=$(ls "$work/dst" | wc -l)
[ "$n" -eq 24 ] || fail "the batch wrote $n files, not 24: $(ls "$work/dst" | head -5)"
[ ! -e "$work/dst/inner.jpg" ] && [ ! -e "$work/dst/notes.jpg" ] || fail "a subfolder or text file was converted"
size=$(identify -format "%m %w %h" "$work/dst/pic7.jpg")
[ "$size" = "JPEG 1600 1200" ] || fail "pic7.jpg is $size"
# The closing report and the dialog still answer: close the dialog with its button.
click 475 361
for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Batch Conversion$' >/dev/null 2>&1 || break; sleep 0.5; done
xdotool search --onlyvisible --name '^Batch Conversion$' >/dev/null 2>&1 && fail "Close did not close the dialog"
echo "batch dialog: 1 passed, 0 failed"
