#!/bin/sh
# checks.sh: what is looked at on the virtual target: the kernel's own flash, portal socket and cast filter, the tools
# over the library, and the test programs. Prints a line a check; the status is 1 when one failed.
failures=0
result() {
    if [ "$1" -eq 0 ]; then
        echo "   ok   $2"
    else
        failures=$((failures + 1))
        echo "   FAILED $2"
    fi
}

# check WHAT COMMAND...: the command succeeds.     refuse WHAT COMMAND...: it fails.
check() {
    what=$1
    shift
    output=$("$@" 2>&1)
    result $? "$what${output:+: $output}"
}
refuse() {
    what=$1
    shift
    if output=$("$@" 2>&1); then result 1 "$what"; else result 0 "$what: $output"; fi
}

bank=/dev/mtd$(sed -n 's/^mtd\([0-9]*\): .*"KernelFS1"$/\1/p' /proc/mtd)
erased_bank() { [ "$(head -c 65536 "$bank" | tr -d '\377' | wc -c)" -eq 0 ]; }
written_bank() { [ "$(head -c 7 "$bank")" = "kernel1" ]; }
write_bank() { printf kernel1 >"$bank"; }

check "the machine" uname -srm
check "flash" flash info "$bank"
refuse "a locked bank is not erased" flash erase "$bank"
check "unlock" flash unlock "$bank"
check "erase" flash erase "$bank"
check "the bank is empty" erased_bank
check "write" write_bank
check "the bank holds what was written" written_bank
check "lock" flash lock "$bank"
refuse "a locked bank is not erased again" flash erase "$bank"
check "the bank still holds it" written_bank
check "the cast filter's device" cat /dev/castfilter

if command -v cfm >/dev/null; then
    check "a value is set" cfm set target.check "real kernel"
    check "the value is read" cfm get target.check
    check "the values are committed" cfm commit
    check "the committed file is there" test -s /cfg
fi

# Each test program finds the device as it is after a start: fresh files in memory, and shared memory of its own.
fresh='for folder in /tmp /var /etc /cfg /mnt; do mount -t tmpfs none "$folder"; done
    mkdir -p /var/run /var/socket /var/log /etc/wm_config /mnt/s_brcmnand
    cp /save/* /etc/
    exec timeout 300 "$0"'
mkdir -p /save
cp /etc/passwd /etc/hosts /save/
for program in /tests/*_test; do
    [ -x "$program" ] || continue
    name=${program##*/}
    unshare -m -i sh -c "$fresh" "$program" >/dev/shm/output 2>&1
    status=$?
    [ "$status" -eq 0 ] || tail -n 40 /dev/shm/output
    result "$status" "$name, $(sed -n 's/^\[  PASSED  \] //p' /dev/shm/output)"
done
exit $((failures > 0))
