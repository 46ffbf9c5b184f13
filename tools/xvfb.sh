# Sourced, not run: private X servers for scripts and tests.
#
#   start_xvfb FIRST LAST WIDTHxHEIGHT || fail "no free display"
# starts Xvfb on the first free display number in FIRST..LAST, waits until it
# answers, exports DISPLAY and sets xvfb_pid. -noreset, or about one window
# start in ten fails when the last client of an earlier test disconnects.
start_xvfb() {
  local n display=""
  for n in $(seq "$1" "$2"); do
    if [ ! -e "/tmp/.X11-unix/X$n" ] && [ ! -e "/tmp/.X$n-lock" ]; then display=":$n"; break; fi
  done
  [ -n "$display" ] || return 1
  Xvfb "$display" -screen 0 "$3x24" -nolisten tcp -noreset > /dev/null 2>&1 &
  xvfb_pid=$!
  export DISPLAY=$display
  for _ in $(seq 50); do xdpyinfo > /dev/null 2>&1 && break; sleep 0.1; done
}

#   start_two_monitor_xvfb FIRST LAST || fail "no free display"
# the same at 1920x1080, split into two 960x1080 monitors side by side (as
# XScreenSaver sees two monitors), adding the server's pid to pids.
start_two_monitor_xvfb() {
  start_xvfb "$1" "$2" 1920x1080 || return 1
  pids+=("$xvfb_pid")
  xrandr --setmonitor left 960/254x1080/286+0+0 screen > /dev/null
  xrandr --setmonitor right 960/254x1080/286+960+0 none > /dev/null
}
