#!/bin/sh
# The checks inside the emulated machine. Prints a line for each and the number of failures last.
export TOVI_LOG=/dev/null
failures=0

passed() { echo "ok      $1"; }
failed() {
  echo "FAILED  $1"
  failures=$((failures + 1))
}
expect() { # NAME TEXT < OUTPUT
  if grep -q -- "$2"; then passed "$1"; else failed "$1"; fi
}

serve() {
  ./tovi-modem serve --qrtr "$@" 2>/tmp/ready &
  server=$!
  until grep -q ready /tmp/ready; do sleep 0.01; done
}
stop() {
  kill "-${1:-TERM}" $server
  wait $server 2>/dev/null
}
# All sockets of the machine; each on QRTR owns a port.
sockets() { sed -n 's/^sockets: used //p' /proc/net/sockstat; }

path=/nv/item_files/modem/velmor/rf_print_mask
commands() {
  for command in '4 1 0 550' "4 5 0 $path 15 0 0 0" "4 4 0 $path" "4 6 0 $path" "4 4 0 $path" \
    '4 2 1 77 1 2 3' '4 1 1 77' '4 3 1 77' '4 1 1 77' '6 4 35' '6 3 1' '4 1 0 7233' \
    '5 1' '5 10 1 0' '5 10 5 0' '5 10 4 0' '7 1 1' '9 0 1' '10 1 3' '12 0'; do
    ./tovi $command 2>&1
  done
}

TOVI_MODEM=sim TOVI_STATE=/tmp/embedded commands >/tmp/embedded.out
export TOVI_MODEM=qrtr TOVI_STATE=/tmp/served
idle=$(sockets)
serve

# What others wrote, on the same bus: a list of its services, and a server that looks for clients.
tqftpserv >/dev/null 2>&1 &
beside=$!
until qrtr-lookup >/tmp/lookup && grep -q '^ *4096 ' /tmp/lookup; do sleep 0.1; done
for service in 3 11 17 36 228 65508; do
  expect "qrtr-lookup lists service $service" "^ *$service " </tmp/lookup
done
commands >/tmp/served.out
if cmp -s /tmp/embedded.out /tmp/served.out; then
  passed "the same output as on the embedded modem, beside tqftpserv"
else
  failed "the same output as on the embedded modem, beside tqftpserv"
  diff /tmp/embedded.out /tmp/served.out | head -20
fi
kill $beside || failed "tqftpserv has ended"
wait $beside

./tovictl doctor --ask 2>&1 | expect "tovictl: the doctor finds nothing wrong" 'nothing is wrong'
head -c 5000 tovictl >/tmp/file
./tovictl put /test/file /tmp/file
./tovictl get /test/file | cmp -s - /tmp/file && passed "tovictl: a whole file there and back" ||
  failed "tovictl: a whole file there and back"
./tovictl run 4 1 0 79 2>&1 | expect "tovictl: a refusal has its name" 'refused: extend nv_read 79: 5 (not active)'
./tovictl --json watch --count 3 --every 0 nr-snr | expect "tovictl: a watch" snr_rx3
./tovictl save /tmp/backup --nv 0-1000 2>/dev/null && ./tovictl diff /tmp/backup && passed "tovictl: a backup" ||
  failed "tovictl: a backup"

# Every socket that has sent costs the kernel's grace period when it closes.
while read -r wanted command; do
  count=$(strace -f -e trace=socket ./tovi $command 2>&1 >/dev/null | grep -c QIPCRTR)
  [ "$count" = "$wanted" ] && passed "$count socket: $command" || failed "$count sockets: $command"
done <<END
1 3 1
1 4 1 0 550
1 5 1
1 5 5
1 5 10 1 0
1 5 10 4 0
1 6 4 0x23 0 0 0
1 7 1 1
1 9 8 0
1 10 0 3
1 11 2
1 12 0
2 10 1 3
END

serving=$(sockets)
[ "$serving" -gt "$idle" ] && passed "the server's sockets are counted" || failed "no socket counted"
i=0
while [ $i -lt 1000 ]; do
  ./tovi 4 1 0 550 >/tmp/out
  grep -q 'data len(9)' /tmp/out || break
  i=$((i + 1))
done
[ $i = 1000 ] && passed "1000 commands" || failed "command $i of 1000"
[ "$(sockets)" = "$serving" ] && passed "no socket left over" || failed "sockets left over"

i=0
while [ $i -lt 8 ]; do
  (for n in 1 2 3 4 5; do
    ./tovi 4 5 $((i % 2)) /parallel/$i $i $n 7 >/dev/null
    ./tovi 4 4 $((i % 2)) /parallel/$i >/tmp/parallel.$i
    grep -q "data len(3)" /tmp/parallel.$i && grep -q ":  0$n\$" /tmp/parallel.$i || echo bad
  done >/tmp/parallel.result.$i) &
  eval "worker$i=$!"
  i=$((i + 1))
done
for i in 0 1 2 3 4 5 6 7; do eval "wait \$worker$i"; done
cat /tmp/parallel.result.* | grep -q bad && failed "8 processes at once" || passed "8 processes at once"

stop KILL
TOVI_TIME_SCALE=0.01 ./tovi 4 1 0 550 2>&1 | expect "a killed server is missed" 'error_code(-102)'
serve
./tovi 4 1 0 550 | expect "a server started again is found" 'data len(9)'
stop
[ "$(sockets)" = "$idle" ] && passed "nothing left after the end" || failed "sockets after the end"

for fault in drop error:5 garbage short:9 down restart delay:5000; do
  serve --faults "ffe4#1=$fault"
  TOVI_TIME_SCALE=0.05 ./tovi 4 1 0 550 2>&1 | expect "fault $fault fails the command" 'error_code(-103)'
  sleep 0.4
  if [ $fault != down ]; then
    ./tovi 4 1 0 550 | expect "and the next one works" 'data len(9)'
  fi
  stop
done
for fault in twice delay:20; do
  serve --faults "ffe4#1=$fault"
  ./tovi 4 1 0 550 | expect "fault $fault does no harm" 'data len(9)'
  stop
done

# A name service that began anew knows no socket: it is opened again. The kernel's own never does, so
# its word is put into the program's mouth.
reset_at() { # PROGRAM CALL N: what strace is to do
  echo "-f -o /tmp/trace.$1 -e trace=socket,sendto,recvfrom -e inject=$2:error=ENETRESET:when=$3"
}
opened() { grep -c 'socket(AF_QIPCRTR' "/tmp/trace.$1"; }
serve
strace $(reset_at client sendto 1) ./tovi 4 1 0 550 2>&1 | expect "a forgotten client asks again" 'data len(9)'
[ "$(opened client)" = 2 ] && passed "on a new socket" || failed "$(opened client) sockets"
stop
for call in sendto recvfrom; do
  strace $(reset_at server $call 8) ./tovi-modem serve --qrtr 2>/tmp/ready &
  server=$!
  until grep -q ready /tmp/ready; do sleep 0.01; done
  TOVI_TIME_SCALE=0.1 ./tovi 4 1 0 550 >/dev/null 2>&1
  TOVI_TIME_SCALE=0.1 ./tovi 4 1 0 550 >/dev/null 2>&1
  ./tovi 4 1 0 550 2>&1 | expect "a forgotten service is there again ($call)" 'data len(9)'
  [ "$(opened server)" = 7 ] && passed "on a new socket" || failed "$(opened server) sockets"
  kill $(cat /proc/$server/task/$server/children)  # strace passes no signal on
  wait $server
done

# The server goes while a command waits for its answer.
serve --faults 'ffe4=drop'
./tovi 4 1 0 550 >/tmp/out &
command=$!
sleep 0.3
stop KILL
wait $command
expect "a server killed during a command ends it" 'send msg sync failed:-2' </tmp/out

echo "$failures failed"
[ $failures = 0 ]
