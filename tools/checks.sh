# For the scripts that check what was built: a line for each check, the number of failures last.
failures=0

check() { # NAME COMMAND...: passes when the command succeeds
  if "${@:2}"; then
    echo "ok      $1"
  else
    echo "FAILED  $1"
    failures=$((failures + 1))
  fi
}
has() { grep -q -- "$2" <<<"$1"; }
lacks() { ! has "$@"; }

# Waits until a socket is there.
wait_for() {
  timeout 10 sh -c 'until [ -S "$1" ]; do sleep 0.01; done' - "$1"
}

finish() {
  echo "$failures failed"
  exit $((failures > 0))
}
