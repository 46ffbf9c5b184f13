# Sourced, not run: starts Xvfb at 1920x1080 on the first free display in
# FIRST..LAST, split into two 960x1080 monitors side by side (as XScreenSaver
# sees two monitors), exports DISPLAY and adds the server's pid to pids.
#   start_two_monitor_xvfb FIRST LAST || fail "no free display"
start_two_monitor_xvfb() {
  local n display=""
  for n in $(seq "$1" "$2"); do
    if [ ! -e "/tmp/.X11-unix/X$n" ] && [ ! -e "/tmp/.X$n-lock" ]; then display=":$n"; break; fi
  done
  [ -n "$display" ] || return 1
  Xvfb "$display" -screen 0 1920x1080x24 -nolisten tcp -noreset > /dev/null 2>&1 &
  pids+=($!)
  export DISPLAY=$display
  for _ in $(seq 50); do xdpyinfo > /dev/null 2>&1 && break; sleep 0.1; done
  xrandr --setmonitor left 960/254x1080/286+0+0 screen > /dev/null
  xrandr --setmonitor right 960/254x1080/286+960+0 none > /dev/null
}
