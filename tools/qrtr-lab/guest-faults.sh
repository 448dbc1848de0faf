#!/bin/sh
# Every row of ./fault-rows on a real kernel's QRTR: the verdict is that on the embedded modem, and
# the next command works unless the service is gone for good, or the modem. Prints what is otherwise,
# and a count.
export TOVI_LOG=/dev/null TOVI_MODEM=qrtr TOVI_STATE=/tmp/state TOVI_TIME_SCALE=0.1
rows=0 failures=0

failed() {
  echo "FAILED  $rule, $command: $1"
  failures=$((failures + 1))
}

while IFS='|' read -r status rule command; do
  rm -rf $TOVI_STATE
  TOVI_MODEM=sim ./tovi 4 1 0 550 >/dev/null
  cp -r commands/state/. $TOVI_STATE
  ./tovi-modem serve --qrtr --faults "$rule" 2>/tmp/ready &
  until grep -q ready /tmp/ready; do sleep 0.01; done
  ./tovictl --yes --timeout 5 run $command >/dev/null 2>/tmp/said
  told=$?
  [ $told = "$status" ] || failed "$told, not $status: $(cat /tmp/said)"
  # A modem that restarts may not have begun yet.
  case "$rule, $command" in *=restart,* | *", 11"*) sleep 0.5 ;; esac
  case "$rule, $command" in
    extend*=down,* | *", 11 1") ;;
    *) TOVI_TIME_SCALE=1 ./tovi 4 1 0 550 | grep -q 'data len(9)' || failed "the next command fails" ;;
  esac
  kill $!
  wait $! || failed "the server ends with $?"
  rows=$((rows + 1))
done <fault-rows
echo "$rows faults on QRTR, $failures failed"
[ $failures = 0 ]
