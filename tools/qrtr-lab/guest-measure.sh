#!/bin/sh
# Inside the emulated machine: whole commands against the bare exchange and the program as it was.
export TOVI_LOG=/dev/null TOVI_MODEM=qrtr TOVI_STATE=/tmp/served
: >/tmp/ready
./tovi-modem serve --qrtr 2>/tmp/ready &
until grep -q ready /tmp/ready; do sleep 0.05; done
./qrtr_floor >/dev/null && ./tovi 4 1 0 550 >/dev/null || exit 1

failures=0
at_most() { # NAME PERCENT ACTUAL REFERENCE
  ratio=$((100 * $3 / $4))
  [ "$ratio" -le "$2" ] && verdict=ok || verdict=FAILED
  [ $verdict = ok ] || failures=$((failures + 1))
  printf '%-7s %s: %d us, %d %% (at most %d %%)\n' $verdict "$1" "$3" "$ratio" "$2"
}

floor=$(./qrtr_floor --time 50 ./qrtr_floor)
echo "        a bare exchange: $floor us"
for command in '4 1 0 550' '5 5' '5 10 4 0' '10 0 1'; do
  now=$(./qrtr_floor --time 50 ./tovi $command)
  at_most "tovi $command, of the bare exchange" 115 "$now" "$floor"
  [ -x ./tovi-before ] || continue
  at_most "tovi $command, of what it was" 65 "$now" "$(./qrtr_floor --time 50 ./tovi-before $command)"
done
echo "$failures failed"
[ $failures = 0 ]
