#!/bin/sh
# 50_firmware.sh: firmware from bank to bank, bad images refused, and a power cut in the middle of an upgrade
# runs: in a box
. "$AP_ROOT/examples/demo/lib.sh"

flash_sum() { cat /apbox/flash/KernelFS1 /apbox/flash/KernelFS2 | cksum; }
# bank N FIELD: what the boot loader sees: state, sequence or length
bank() { apctl image banks --json | sed -n "s/.*\"$2\":[^\"]*\"\([^\"]*\)\".*/\1/p" | sed -n "$1p"; }
boots_next() { apctl image banks --json | sed -n 's/.*"boots_next":[^"]*"\([^"]*\)".*/\1/p'; }
running() { apctl image banks --json | sed -n 's/.*"running":[^"]*"\([^"]*\)".*/\1/p'; }
switch_on() { apctl image banks --init >/dev/null; }
# patch FILE OFFSET OCTAL: changes one byte
patch() { printf "\\$3" | dd of="$1" bs=1 seek="$2" conv=notrunc 2>/dev/null; }

product=$(cfm get fw.profile.type)
[ -n "$product" ] || product=$(cfm get fw.product.id)
head -c 300000 /dev/urandom >/tmp/payload
check "wrapped" apctl image make /tmp/payload /tmp/firmware.img --product "$product" --name "demo firmware"

say "A new device runs the factory's firmware from its first bank; the second is erased."
check "switched on" switch_on
expect "the boot loader takes" "$(boots_next)" KernelFS1
expect "the first bank" "$(bank 1 state), $(bank 1 sequence)" "good, 0x80000001"
expect "the second bank" "$(bank 2 state)" "erased"

say "Three upgrades, each into the bank that is not running, each with the next sequence number."
for round in 2 3 4; do
    case $(running) in KernelFS1) target=KernelFS2 number=2 ;; *) target=KernelFS1 number=1 ;; esac
    check "upgrade from $(running)" apctl image flash /tmp/firmware.img
    expect "the boot loader would take" "$(boots_next), $(bank $number sequence)" "$target, 0x8000000$round"
    switch_on
    expect "after the restart runs" "$(running)" "$target"
done

say "Six images that must not be flashed."
before=$(flash_sum)
refused() { # WHAT CODE FILE
    seen=$(apctl image flash "$3") && seen="flashed: $seen"
    expect "$1" "${seen%%:*}" "refused with $2"
}
for bad in magic class checksum; do cp /tmp/firmware.img /tmp/$bad.img; done
patch /tmp/magic.img 0 050
patch /tmp/class.img 32 004
patch /tmp/checksum.img 100000 "$(printf %03o $((($(od -An -tu1 -j100000 -N1 /tmp/checksum.img) + 1) % 256)))"
apctl image make /tmp/payload /tmp/product.img --product deadbeef >/dev/null
head -c 4300000 /dev/urandom >/tmp/large
apctl image make /tmp/large /tmp/large.img --product "$product" >/dev/null
head -c 200000 /tmp/firmware.img >/tmp/truncated.img
refused "another magic" -1 /tmp/magic.img
refused "another class" -1 /tmp/class.img
refused "another product" -1 /tmp/product.img
refused "one changed byte" -2 /tmp/checksum.img
refused "larger than its bank" -3 /tmp/large.img
refused "truncated" -2 /tmp/truncated.img
expect "the flash" "$(flash_sum)" "$before"

say "The power goes in the middle of an upgrade."
was_running=$(running)
expect "cut at the eighth erase or write" "$(apctl image flash --power-cut 8 /tmp/firmware.img)" \
    "the power was cut; the bank that boots next: $was_running"
case $was_running in KernelFS1) cut=2 ;; *) cut=1 ;; esac
expect "the bank that was being written" "$(bank $cut state)" "checksum is wrong"
switch_on
expect "the device comes back from" "$(running)" "$was_running"
check "the next upgrade" apctl image flash /tmp/firmware.img
switch_on
expect "and after the restart runs" "$(running), $(bank $cut state)" "KernelFS$cut, good"
