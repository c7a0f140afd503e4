#!/bin/sh
# 20_message_server.sh: daemons and the programs that talk to them: one daemon on three transports, the kernel, timers
# runs: in a box
. "$AP_ROOT/examples/demo/lib.sh"

say "One daemon, on tcp, udp and a local socket at once, answers each message with itself."
echo_daemon tcp::5000 udp::5000 unix:echo >/tmp/echo.log 2>&1 &
daemon=$!
check "it is up" wait_for 5 apctl msg ask unix:echo "anybody there?"
for address in tcp:127.0.0.1:5000 udp:127.0.0.1:5000 unix:echo; do
    check "asked over ${address%%:*}" apctl msg ask "$address" "hello over $address"
done

say "Fifteen processes ask it at the same time; each gets its own answer."
mkdir /tmp/answers
asking=
for number in 1 2 3 4 5; do
    for address in tcp:127.0.0.1:5000 udp:127.0.0.1:5000 unix:echo; do
        apctl msg ask "$address" "question $number" >"/tmp/answers/${address%%:*}.$number" 2>/dev/null &
        asking="$asking $!"
    done
done
wait $asking
right=0
for file in /tmp/answers/*; do
    [ "$(cat "$file")" = "question ${file##*.}" ] && right=$((right + 1))
done
expect "right answers" "$right" 15

say "A program that vanishes before it is answered does not hurt the daemon."
apctl msg notify unix:echo "no time to wait" 2>/dev/null
check "still there" apctl msg ask unix:echo "still there"
check "one process all the while" kill -0 "$daemon"

say "A dialog with the kernel over netlink: which route does 127.0.0.1 take?"
route=$(printf '\177\000\000\001\000\000\000\000\000\000\377\000\000\000\000\000\000\000\000\000' |
    apctl msg ask netlink:10 - --hex 2>/dev/null | tr '\n' ' ')
say "the kernel answers: $route"
expect "prefix length and kind (2: this machine itself)" "$(echo "$route" | cut -d ' ' -f 13,15)" "20 02"

say "Timers fire by their expiry, whatever the order in which they were added; each adds itself again."
clock_daemon unix:clock 600 200 400 >/tmp/clock.log &
check "nine ticks or more" wait_for 10 sh -c '[ "$(grep -c tick /tmp/clock.log)" -ge 9 ]'
expect "the first ticks" "$(grep 'tick 1$' /tmp/clock.log | cut -d ' ' -f 1 | xargs)" "200 400 600"
check "the daemon answers between its timers" apctl msg ask unix:clock ticks

say "A shell command as a daemon: it gets the message as its input, and answers with what it prints."
apctl msg listen unix:shout --run 'tr a-z A-Z' --count 1 >/tmp/heard 2>/dev/null &
listener=$!
wait_for 5 test -S /var/socket/shout
expect "the answer" "$(apctl msg ask unix:shout 'radio check')" "RADIO CHECK"
wait "$listener"
expect "what the listener heard" "$(cat /tmp/heard)" "radio check"
