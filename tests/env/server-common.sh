# What the throwaway database servers' scripts share; they source it and set server_user,
# the system user their server runs as.

# Runs a command as server_user when we are root (the servers refuse to run as root), as
# ourselves otherwise.
as_owner() {
  if [ "$(id -u)" = 0 ]; then runuser -u "$server_user" -- "$@"; else "$@"; fi
}

# A fresh directory /tmp/qz-$1.XXXXXX that server_user may use: its path.
new_server_dir() {
  local dir
  dir=$(mktemp -d "/tmp/qz-$1.XXXXXX")
  chmod 755 "$dir"
  if [ "$(id -u)" = 0 ]; then chown "$server_user": "$dir"; fi
  echo "$dir"
}

# watch_owner LINE FILE STOP: a
# detached watcher that runs the command STOP within a second of the end of the program
# that started the sourcing script (ctest, stopped early by --stop-on-failure, a time-out
# or Ctrl-C, skips the stop), unless FILE, the server's record, no longer holds LINE (a
# stop or a newer start came first).
watch_owner() {
  setsid bash -c "while kill -0 $PPID && grep -qx '$1' '$2'; do sleep 1; done
                  grep -qx '$1' '$2' && $3" </dev/null >/dev/null 2>&1 &
}
