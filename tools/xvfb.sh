# Sourced, not run: private X servers for scripts and tests.
#
#   start_xvfb WIDTHxHEIGHT || fail "no X server"
# starts Xvfb on a display number it finds free itself (-displayfd: no two
# scripts can pick the same one), waits until it says it listens, exports
# DISPLAY and sets xvfb_pid. -noreset, or about one window start in ten fails
# when the last client of an earlier test disconnects.
start_xvfb() {
  local said number=""
  said=$(mktemp)
  Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -noreset 3> "$said" > /dev/null 2>&1 &
  xvfb_pid=$!
  for _ in $(seq 600); do
    [ -s "$said" ] && break
    kill -0 "$xvfb_pid" 2> /dev/null || break
    sleep 0.05
  done
  [ -s "$said" ] && number=$(head -n 1 "$said")
  rm -f "$said"
  [ -n "$number" ] || return 1
  export DISPLAY=":$number"
}

#   start_two_monitor_xvfb || fail "no X server"
# the same at 1920x1080, split into two 960x1080 monitors side by side (as
# XScreenSaver sees two monitors), adding the server's pid to pids.
start_two_monitor_xvfb() {
  start_xvfb 1920x1080 || return 1
  pids+=("$xvfb_pid")
  xrandr --setmonitor left 960/254x1080/286+0+0 screen > /dev/null
  xrandr --setmonitor right 960/254x1080/286+960+0 none > /dev/null
}

#   start_xlogo WIDTHxHEIGHT || fail "xlogo shows no window"
# a window another program made, as XScreenSaver hands a hack its window:
# xlogo's top-level window at the top left is covered by a child, whose id it
# sets in `child`; xlogo's pid is in `xlogo_pid`.
start_xlogo() {
  xlogo -geometry "$1+0+0" > /dev/null 2>&1 &
  xlogo_pid=$!
  child=""
  for _ in $(seq 100); do
    child=$(xwininfo -name xlogo -children 2>/dev/null | awk '/^ +0x/ {print $1; exit}') || true
    [ -n "$child" ] && return 0
    sleep 0.05
  done
  return 1
}
