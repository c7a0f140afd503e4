#!/bin/sh
# 10_config_and_log.sh: an access point boots for the first time: its configuration, its log, its cipher
# runs: in a box
. "$AP_ROOT/examples/demo/lib.sh"

store() { ls -i /cfg | sort | cksum; }
shown() { grep -c 'line [0-9]' "$1" || true; }
# What the file said of the key at the factory; the last line of a key wins.
factory() { sed -n "s/^$1=//p" /webroot_ro/default.cfg | tail -n 1; }

say "First boot: there is no committed configuration, so the factory's becomes the working set."
count=$(sed -n 's/^\([^#=]*\)=.*/\1/p' /webroot_ro/default.cfg | grep -v '^url\.' | sort -u | wc -l)
expect "settings of the factory file that are there" "$(cfm show | wc -l)" "$count"
expect "the LAN address" "$(cfm get lan.ip)" "$(factory lan.ip)"
check "as a program reads it" first_steps read lan.ip

say "A batch of three settings: what differs is written and counted, then one commit."
expect "the batch" "$(first_steps batch lan.ip=192.168.77.1 lan.mask="$(factory lan.mask)" demo.step=10)" \
    "2 of 3 written, committed"
before=$(store)
expect "the same batch again" "$(first_steps batch lan.ip=192.168.77.1 lan.mask="$(factory lan.mask)" demo.step=10)" \
    "nothing changed, nothing committed"
expect "the committed file was left alone" "$(store)" "$before"

say "One process sets a value; another that is running sees it at once, committed or not."
cfm set demo.seen no
(while [ "$(cfm get demo.seen)" = no ]; do :; done && cfm get demo.seen >/tmp/seen) &
watcher=$!
cfm set demo.seen yes
wait "$watcher"
expect "the other process read" "$(cat /tmp/seen)" yes

say "A daemon says lines of level 4 (information); nobody wants them until an operator raises its module's level."
first_steps chat netctrl 4 >/tmp/chat &
daemon=$!
sleep 0.5
expect "lines shown while the level is 0" "$(shown /tmp/chat)" 0
check "the operator raises the level" apctl log set netctrl 4
check "the running daemon obeys" wait_for 2 grep -q 'line [0-9]' /tmp/chat
check "the operator lowers it again" apctl log set netctrl 0
sleep 0.3
quiet=$(shown /tmp/chat)
sleep 0.5
expect "no line more is shown" "$(shown /tmp/chat)" "$quiet"
kill "$daemon"

say "Error lines always show, and are kept in a file that starts over at 200 KiB."
first_steps complain netctrl 1500 >/dev/null
check "the error log grows" test -s /var/debug.netctrl.log
grown=$(wc -c </var/debug.netctrl.log)
first_steps complain netctrl 1500 >/dev/null
restarted=$(wc -c </var/debug.netctrl.log)
check "$grown bytes, then $restarted: it started over" test "$restarted" -lt 204800 -a $((2 * grown)) -gt 204800

say "A configuration file is enciphered for its way through strangers' hands, and deciphered."
cfm show /tmp/backup.cfg
cp /tmp/backup.cfg /tmp/travel.cfg
check "enciphered" first_steps encipher /tmp/travel.cfg
expect "settings that can still be read in it" "$(grep -c 'lan\.ip' /tmp/travel.cfg || true)" 0
check "deciphered" first_steps decipher /tmp/travel.cfg
check "it is the file that it was" cmp /tmp/backup.cfg /tmp/travel.cfg
