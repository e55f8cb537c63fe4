# Shared by the end-to-end scripts: sourced after `exe`, `wine_run` and `out`
# are set, with the test's name as $1. Gives a work folder holding a copy of
# tavora.exe, a virtual display of its own, and the helpers below; on exit
# the program, Wine's server and the display are stopped and the folder goes.
e2e_name="$1"
work="$(mktemp -d)"
export WINEPREFIX="${WINEPREFIX:-$HOME/.cache/tavora/wine}"
app=""
# Each step may find its process gone already; none may change the exit status.
trap 'status=$?; set +e; [ -n "$app" ] && kill $app 2>/dev/null; "$wine_run" --shutdown; kill $xvfb 2>/dev/null; rm -rf "$work"; exit $status' EXIT
mkdir -p "$out"
cp "$exe" "$work/tavora.exe"

display=":$((200 + RANDOM % 500))"
Xvfb "$display" -screen 0 1600x1000x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
export DISPLAY="$display"
# Wine's desktop process belongs to the display it started on: a server left
# from another display must go first.
"$wine_run" --shutdown
sleep 1

# A Unix path as the program sees it.
winpath() { echo "Z:$1" | sed 's|/|\\|g'; }
fail() {
  echo "FAILED: $*"
  import -window root "$out/$e2e_name-failure.png" 2>/dev/null || true
  exit 1
}
# Waits for a visible window whose title matches and prints its id.
window() {
  for _ in $(seq 1 40); do
    w=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -1 || true)
    [ -n "$w" ] && { echo "$w"; return 0; }
    sleep 0.5
  done
  return 1
}
# Waits until the splash (titled "Tavora", as the empty main window is) is gone.
splash_gone() {
  for _ in $(seq 1 20); do xdotool search --onlyvisible --name '^Tavora$' >/dev/null 2>&1 || break; sleep 0.5; done
}
# Save As through the real dialog of the window $main: Ctrl+Shift+S, the
# full path, Return.
save_as() {
  xdotool windowfocus --sync "$main"
  xdotool key ctrl+shift+s
  dlg=$(window '^Save As$') || fail "no Save As dialog"
  xdotool windowfocus --sync "$dlg"
  xdotool key ctrl+a
  xdotool type --delay 15 "$(winpath "$1")"
  xdotool key Return
}
# Waits until the program has written a file.
written() {
  for _ in $(seq 1 20); do [ -f "$1" ] && return 0; sleep 0.5; done
  fail "$(basename "$1") was not written"
}
