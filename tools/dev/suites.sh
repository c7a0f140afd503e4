# suites.sh: runs suites of tests and adds up what they found. Sourced by the verbs "test" and "target".
#
# Each suite writes a file of records to the results folder, and close_results adds them up:
#   passed COUNT | failed COUNT WHAT | skipped WHAT<TAB>REASON

start_results() {
    results=$AP_BUILD/results
    rm -rf "$results"
    mkdir -p "$results"
}

record() { printf '%s\n' "$*" >>"$results/$suite.records"; }

# run_suite SUITE [NAME...]: a suite that breaks off counts as one failure, and the next one goes on.
run_suite() {
    suite=$1
    shift
    suite_started=$(date +%s)
    (suite_"$suite" "$@") || record "failed 1 $suite: the suite did not get to its end"
    sum_records "$results/$suite.records"
    note "$suite suite: $sum_passed ok, $sum_failed not ok, $sum_skipped skipped, $(($(date +%s) - suite_started)) s"
}

sum_records() {
    set -- $(cat "$@" 2>/dev/null | awk '{ count[$1] += $1 == "skipped" ? 1 : $2 }
        END { print count["passed"] + 0, count["failed"] + 0, count["skipped"] + 0 }')
    sum_passed=$1 sum_failed=$2 sum_skipped=$3
}

# Names what was skipped and what failed, and prints the closing line; status 0 when nothing failed.
close_results() {
    sum_records "$results"/*.records
    [ $((sum_passed + sum_failed + sum_skipped)) -gt 0 ] || { echo 'failed 1 no test was found' >"$results/none.records" && sum_failed=1; }
    cat "$results"/*.records | awk -F '\t' '
        sub(/^skipped /, "") { names[$2] = names[$2] (names[$2] == "" ? "" : ", ") $1 }
        END { for (reason in names) printf "skipped (%s): %s\n", reason, names[reason] }'
    sed -n 's/^failed [0-9]* /failed: /p' "$results"/*.records
    printf '%s passed, %s failed\n' "$sum_passed" "$sum_failed"
    [ "$sum_failed" -eq 0 ]
}

# --- the suites -------------------------------------------------------------------------------------------------------

suite_host() { need build test bench && suite_of_preset host "$@"; }
suite_asan() { need build test && suite_of_preset asan "$@"; }
suite_tsan() { need build test && suite_of_preset tsan "$@"; }
suite_mipsel() {
    build_target "$@" || { record "failed 1 mipsel: it does not build"; return 0; }
    programs_of mipsel "$@"
}

suite_of_preset() {
    build "$1" $(targets_of "$@") || { record "failed 1 $1: it does not build"; return 0; }
    programs_of "$@"
}

# What the tests whose name matches need: targets_of PRESET [NAME...]. Nothing, which builds all, without a name.
targets_of() {
    targets_preset=$1
    shift
    [ $# -gt 0 ] || return 0
    echo tools/all
    for targets_file in tests/*_test.cpp fuzz/*_fuzz.cpp; do
        targets_name=${targets_file##*/}
        case $targets_preset,$targets_name in tsan,*_threads_test.cpp) ;; tsan,*) continue ;; esac
        if echo "${targets_name%.cpp}" | grep -qE "$(echo "$*" | tr ' ' '|')"; then echo "${targets_name%.cpp}"; fi
    done
}

# The emulated tests start in boxes of this machine's own build: build_target [NAME...].
build_target() {
    need build test target bench
    mkdir -p "$AP_BUILD/target"
    step "the device's sysroot"
    flock "$AP_BUILD/target.lock" tools/target/sysroot "$AP_BUILD/target" $(packages_of sysroot) || return 1
    build host apbox && build mipsel $(targets_of mipsel "$@")
}

# Runs the test programs and test scripts of a build: programs_of PRESET [NAME...].
programs_of() {
    programs_preset=$1
    shift
    programs_filter=$(echo "$*" | tr ' ' '|')
    step "test $programs_preset"
    ctest --test-dir "$AP_BUILD/$programs_preset" -V -j "$(processors)" ${programs_filter:+-R "$programs_filter"} 2>&1 |
        LC_ALL=C live_awk -v suite="$programs_preset" -v records="$results/$suite.records" \
            -v kept="$results/$programs_preset.log" -f tools/dev/count.awk
}

# A few seconds of each fuzz target; a finding stays in build/fuzz/findings.
suite_fuzz() {
    need build test clang
    sh tools/dev/fuzz --records "$results/fuzz.records" 5 "$@"
}

suite_lint() {
    need build test bench clang
    sh tools/dev/lint --records "$results/lint.records" --changed --within 120
}

# What the library takes on the device, stripped.
library_size() {
    size_library=$AP_BUILD/mipsel/lib/libapsupport.so
    [ -f "$size_library" ] || return 0
    mipsel-linux-gnu-strip -o "$size_library.stripped" "$size_library"
    note "libapsupport.so for MIPS: $(wc -c <"$size_library.stripped") bytes stripped; by section:"
    mipsel-linux-gnu-size "$size_library.stripped" | awk 'NR == 2 { printf "   text %s, data %s, bss %s\n", $1, $2, $3 }'
}
