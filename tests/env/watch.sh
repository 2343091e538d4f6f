# Sourced by the throwaway database servers' scripts. watch_owner LINE FILE STOP: a
# detached watcher that runs the command STOP within a second of the end of the program
# that started the sourcing script (ctest, stopped early by --stop-on-failure, a time-out
# or Ctrl-C, skips the stop), unless FILE, the server's record, no longer holds LINE (a
# stop or a newer start came first).
watch_owner() {
  setsid bash -c "while kill -0 $PPID && grep -qx '$1' '$2'; do sleep 1; done
                  grep -qx '$1' '$2' && $3" </dev/null >/dev/null 2>&1 &
}
