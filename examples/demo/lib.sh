# lib.sh: what the steps of the demo share. A step is a file NN_name.sh, run in the order of the numbers:
#
#   #!/bin/sh
#   # 10_config_and_log.sh: what a person reads above the step
#   # runs: in a box            (a fresh box of its own), or "outside": the step starts boxes itself
#   . "$AP_ROOT/examples/demo/lib.sh"
#   say "what happens now"
#   expect "the LAN address" "$(cfm get lan.ip)" 192.168.0.1      compares what was seen with what should be
#   check "the commit succeeds" cfm commit                        runs a command and takes its status
#
# Each check prints what it looked at, what it saw, and ok or FAILED. The step's status is 1 when one failed.
# From the runner: AP_ROOT the tree, AP_BIN the tools, AP_COLOUR "yes" on a terminal.
set -u

PATH=$AP_BIN:$PATH
if [ "${AP_COLOUR:-}" = yes ]; then
    demo_ok=$(printf '\033[32mok\033[0m') demo_failed=$(printf '\033[1;31mFAILED\033[0m')
else
    demo_ok=ok demo_failed=FAILED
fi
demo_checks=0 demo_failures=0
trap demo_end EXIT

say() { printf '  %s\n' "$*"; }

# expect WHAT SEEN EXPECTED
expect() {
    if [ "$2" = "$3" ]; then
        demo_result "$demo_ok" "$1" "$2"
    else
        demo_failures=$((demo_failures + 1))
        demo_result "$demo_failed" "$1" "$2 (expected $3)"
    fi
}

# check WHAT COMMAND [ARG...]: what the command prints is what was seen.
check() {
    demo_what=$1
    shift
    if demo_seen=$("$@" 2>&1); then
        demo_result "$demo_ok" "$demo_what" "$demo_seen"
    else
        demo_failures=$((demo_failures + 1))
        demo_result "$demo_failed" "$demo_what" "$demo_seen (\"$*\" failed)"
    fi
}

# wait_for SECONDS COMMAND [ARG...]: until the command succeeds, ten times a second; 1 when it never does.
wait_for() {
    demo_tries=$(($1 * 10))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$demo_tries" -gt 0 ] || return 1
        demo_tries=$((demo_tries - 1))
        sleep 0.1
    done
}

demo_result() {
    demo_checks=$((demo_checks + 1))
    printf '    %-52s %s  %s\n' "$2" "$(printf '%s' "$3" | head -n 1)" "$1"
}

# A step that breaks off, or that checks nothing, has failed.
demo_end() {
    demo_status=$?
    if [ "$demo_checks" -eq 0 ]; then
        say "nothing was checked  $demo_failed"
        exit 1
    fi
    [ "$demo_failures" -eq 0 ] || exit 1
    exit "$demo_status"
}

# --- several access points on one network -----------------------------------------------------------------------------

# start_network NAME CLOCK BOX...: boxes whose time passes CLOCK times as fast; they stop at the end of the step.
start_network() {
    network=$1 network_clock=$2
    shift 2
    trap 'apbox stop --network "$network" >/dev/null 2>&1; demo_end' EXIT
    for box in "$@"; do
        apbox start "$network-$box" --network "$network" --clock "$network_clock" || exit 1
    done
}

# on BOX COMMAND [ARG...]
on() {
    box=$1
    shift
    apbox enter "$network-$box" -- "$@"
}

# serve BOX NAME COMMAND: starts a program that outlives this call; what it prints is in /tmp/NAME.log of the box.
serve() { on "$1" sh -c "$3 >/tmp/$2.log 2>&1 </dev/null &"; }

# What a command prints, indented under the step's own lines.
show() { sed 's/^/    /'; }
