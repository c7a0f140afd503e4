#!/bin/sh
# 15_power.sh: restarts, power cuts at random moments, and a full disk: the store holds the old or the new set
# runs: outside
. "$AP_ROOT/examples/demo/lib.sh"

device=demo-power-$$
trap 'apbox stop $device >/dev/null 2>&1; demo_end' EXIT
inside() { apbox enter $device -- sh -c "$1"; }
cuts=${DEMO_CUTS:-100}

say "A device is switched on, configured, and restarted by its own reboot command."
expect "the device that is up" "$(apbox start $device)" $device
inside 'cfm set demo.a 0 && cfm set demo.b 0 && cfm commit && cfm set demo.a lost && echo x >/var/lost' >/dev/null
inside 'reboot; sleep 5' >/dev/null 2>&1
check "it comes up again" wait_for 5 apbox enter $device -- test -e /.apbox
expect "its starts" "$(inside 'cat /apbox/boot')" 2
expect "the committed value is back, the other is gone" "$(inside 'cfm get demo.a')" 0
expect "files left in /var" "$(inside 'ls /var/lost 2>/dev/null | wc -l')" 0

say "Two settings go up together, commit after commit; the power is cut at a random moment, $cuts times."
# Prints each number once its commit has returned: from then on it must not be lost.
writer='n=$(cfm get demo.a); while n=$((n + 1)); do cfm set demo.a $n && cfm set demo.b $n && cfm commit >/dev/null && echo $n; done'
random() { od -An -N2 -tu2 /dev/urandom | tr -d ' '; }
promised=$(mktemp)
mixed=0 lost=0 done_cuts=0 commits=0
while [ $done_cuts -lt "$cuts" ]; do
    inside "$writer" >"$promised" 2>/dev/null &
    writing=$!
    sleep "0.$(printf '%03d' $(($(random) % 250 + 20)))"
    apbox power-cut $device || break
    wait $writing
    done_cuts=$((done_cuts + 1))
    last=$(tail -n 1 "$promised")
    commits=$((commits + $(wc -l <"$promised")))
    found=$(inside 'echo $(cfm get demo.a) $(cfm get demo.b)')
    [ "${found% *}" = "${found#* }" ] || mixed=$((mixed + 1))
    [ "${found% *}" -ge "${last:-0}" ] || lost=$((lost + 1))
done
rm -f "$promised"
expect "power cuts" $done_cuts "$cuts"
check "commits meanwhile" test $commits -gt 0
expect "times that a mixture was found" $mixed 0
expect "times that a finished commit was lost" $lost 0

say "The flash file system is filled to the last block."
before=$(inside 'cfm get demo.a')
inside 'dd if=/dev/zero of=/cfg/rubbish bs=4k 2>/dev/null; dd if=/dev/zero of=/cfg/more bs=1 2>/dev/null; cfm set demo.a full'
check "a commit fails and says so" inside '! cfm commit 2>&1'
apbox power-cut $device
expect "after a power cut, the set before it" "$(inside 'cfm get demo.a')" "$before"
inside 'rm -f /cfg/rubbish /cfg/more; cfm set demo.a room'
check "with room again a commit succeeds" inside 'cfm commit'
apbox power-cut $device
expect "and survives" "$(inside 'cfm get demo.a')" room
