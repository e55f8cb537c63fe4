#!/usr/bin/env bash
# End-to-end: Ctrl+P opens the print preview with the sheet and the picture
# on it. With no printer installed Print says so; with a PostScript printer
# installed in the Wine prefix (Wine's own driver, port FILE:) Print to file
# with two copies writes a PostScript file of two pages.
# Usage: print_preview.sh TAVORA_EXE WINE_RUN OUTPUT_DIR
set -euo pipefail
exe="$1"; wine_run="$2"; out="$3"
. "$(dirname "$0")/common.sh" print-preview
convert -size 320x200 gradient:'#3060c0-#f0a040' "PNG24:$work/pic.png"

printer='Tavora Test Printer'
printers_key='HKLM\System\CurrentControlSet\Control\Print\Printers'
drivers_key='HKLM\System\CurrentControlSet\Control\Print\Environments\Windows x64\Drivers\Version-3'
devices_key='HKCU\Software\Microsoft\Windows NT\CurrentVersion'
remove_printer() {
  for key in "$printers_key\\$printer" "$drivers_key\\$printer"; do
    "$wine_run" reg delete "$key" /f >/dev/null 2>&1 || true
  done
  for key in Devices PrinterPorts; do
    "$wine_run" reg delete "$devices_key\\$key" /v "$printer" /f >/dev/null 2>&1 || true
  done
}
# Wine's PostScript driver as a printer on the FILE: port, described by a
# small PPD of A4 and Letter at 300 dpi.
install_printer() {
  local drivers="$WINEPREFIX/drive_c/windows/system32/spool/drivers/x64/3"
  mkdir -p "$drivers"
  cat >"$drivers/tavora-test.ppd" <<'EOF'
*PPD-Adobe: "4.3"
*FormatVersion: "4.3"
*FileVersion: "1.0"
*LanguageVersion: English
*LanguageEncoding: ISOLatin1
*PCFileName: "TAVTEST.PPD"
*Manufacturer: "Tavora"
*Product: "(Tavora Test Printer)"
*ModelName: "Tavora Test Printer"
*ShortNickName: "Tavora Test Printer"
*NickName: "Tavora Test Printer"
*PSVersion: "(3010.000) 0"
*LanguageLevel: "3"
*ColorDevice: True
*DefaultColorSpace: RGB
*DefaultResolution: 300dpi
*OpenUI *PageSize/Media Size: PickOne
*DefaultPageSize: A4
*PageSize A4/A4: "<</PageSize[595 842]/ImagingBBox null>>setpagedevice"
*PageSize Letter/US Letter: "<</PageSize[612 792]/ImagingBBox null>>setpagedevice"
*CloseUI: *PageSize
*DefaultImageableArea: A4
*ImageableArea A4/A4: "18 18 577 824"
*ImageableArea Letter/US Letter: "18 18 594 774"
*DefaultPaperDimension: A4
*PaperDimension A4/A4: "595 842"
*PaperDimension Letter/US Letter: "612 792"
EOF
  cat >"$work/printer.reg" <<EOF
Windows Registry Editor Version 5.00

[${drivers_key/HKLM/HKEY_LOCAL_MACHINE}\\$printer]
"Configuration File"="wineps.drv"
"Data File"="tavora-test.ppd"
"Datatype"="RAW"
"Driver"="wineps.drv"
"Version"=dword:00000003

[${printers_key/HKLM/HKEY_LOCAL_MACHINE}\\$printer]
"Attributes"=dword:00000040
"Datatype"="RAW"
"Name"="$printer"
"Port"="FILE:"
"Print Processor"="WinPrint"
"Printer Driver"="$printer"

[${devices_key/HKCU/HKEY_CURRENT_USER}\\Devices]
"$printer"="wineps.drv,FILE:"

[${devices_key/HKCU/HKEY_CURRENT_USER}\\PrinterPorts]
"$printer"="wineps.drv,FILE:,15,45"
EOF
  "$wine_run" reg import "$(winpath "$work/printer.reg")" >/dev/null 2>&1 || fail "the test printer could not be registered"
}

"$wine_run" "$work/tavora.exe" "$(winpath "$work/pic.png")" >/dev/null 2>&1 &
app=$!
main=$(window '^pic.png - Tavora$') || fail "the picture did not open"
splash_gone
sleep 1
remove_printer

# The screen colour at X,Y as RRGGBB.
colour() {
  import -window root "$work/shot.png"
  convert "$work/shot.png" -format "%[hex:p{$1,$2}]" info: | cut -c1-6
}
open_print() {
  xdotool windowfocus --sync "$main"
  xdotool key ctrl+p
  dlg=$(window '^Print$') || fail "Ctrl+P opened no print window"
  sleep 1
  eval "$(xdotool getwindowgeometry --shell "$dlg")"
}
# How many windows titled "Print" are shown (the window, and its message box).
print_windows() { xdotool search --onlyvisible --name '^Print$' 2>/dev/null | wc -l; }

open_print
import -window root "$out/print-preview-no-printer.png"
# The preview fills the left of the window; the picture, fitted to the
# sheet's width, sits in the middle of the sheet, white above it.
cx=$((X + (WIDTH - 302) / 2)); cy=$((Y + HEIGHT / 2))
middle=$(colour "$cx" "$cy")
above=$(colour "$cx" $((cy - 200)))
[ "$above" = "FFFFFF" ] || fail "no white sheet in the preview ($above)"
[ "${middle:0:2}" != "${middle:4:2}" ] || fail "no picture in the middle of the sheet ($middle)"
# Print with no printer: a message, and the window stays.
xdotool mousemove $((X + WIDTH - 156)) $((Y + HEIGHT - 28)) click 1
for _ in $(seq 1 20); do [ "$(print_windows)" -ge 2 ] && break; sleep 0.5; done
[ "$(print_windows)" -ge 2 ] || fail "Print without a printer showed no message"
import -window root "$out/print-preview-message.png"
xdotool key Return
sleep 2
xdotool windowfocus --sync "$dlg"
xdotool key Escape
for _ in $(seq 1 20); do [ "$(print_windows)" -eq 0 ] && break; sleep 0.5; done

install_printer
trap 'status=$?; set +e; remove_printer; [ -n "$app" ] && kill $app 2>/dev/null; "$wine_run" --shutdown; kill $xvfb 2>/dev/null; rm -rf "$work"; exit $status' EXIT
open_print
import -window root "$out/print-preview.png"
# Two copies, to a file.
xdotool mousemove $((X + WIDTH - 150)) $((Y + 426)) click 1
xdotool key End BackSpace BackSpace
xdotool type 2
xdotool mousemove $((X + WIDTH - 290)) $((Y + 462)) click 1
sleep 0.5
xdotool mousemove $((X + WIDTH - 156)) $((Y + HEIGHT - 28)) click 1
file=$(window '^Print to File$') || fail "Print to file asked for no file"
xdotool windowfocus --sync "$file"
xdotool key ctrl+a
xdotool type --delay 15 "$(winpath "$work/out.ps")"
xdotool key Return
written "$work/out.ps"
# The spooler writes the file as the job ends: wait for its last page.
for _ in $(seq 1 40); do grep -aq '^%%EOF' "$work/out.ps" && break; sleep 0.5; done
[ -s "$work/out.ps" ] || fail "the printed file is empty"
head -c 4 "$work/out.ps" | grep -q '^%!PS' || fail "the printed file is not PostScript"
pages=$(grep -ac '^%%Page: ' "$work/out.ps" || true)
[ "$pages" = "2" ] || fail "two copies printed $pages pages"
grep -aq ' image$\|^image$' "$work/out.ps" || fail "no picture in the printed file"
for _ in $(seq 1 20); do [ "$(print_windows)" -eq 0 ] && break; sleep 0.5; done
[ "$(print_windows)" -eq 0 ] || fail "the print window stayed after printing"
echo "print preview: 1 passed, 0 failed"
