# count.awk: reads `ctest -V`, prints a line per test program (and all it said when it failed), and writes records.
# Variables: suite, its name; records, the file to add to (see suites.sh); kept, the file of what was read.
# Of a program that says more than 20,000 lines, the rest is counted but not kept.
#
# Of each program's output, marked "NUMBER: " in front, it counts GoogleTest's own lines. ctest's verdict, the line
# "K/ALL Test #NUMBER: NAME ... Passed", decides: a program that ends badly after its last case has failed too.

match($0, /^[0-9]+: /) {
    number = substr($0, 1, RLENGTH - 2)
    line = substr($0, RLENGTH + 1)
    if (++lines[number] <= 20000) {
        output[number] = output[number] line "\n"
        print > kept
    }
    if (line ~ /^\[       OK \]/) ++passed[number]
    else if (line ~ /^\[  FAILED  \].*ms\)$/) ++failed[number]
    else if (line ~ /^\[  PASSED  \] [0-9]+ test/) passed[number] = total_of(line)
    else if (line ~ /^\[  FAILED  \] [0-9]+ test/) failed[number] = total_of(line)
    else if (line ~ /^\[  SKIPPED \].*ms\)$/) skip_case(number, line)
    else if (line ~ /: Skipped$/) { reason[number] = ""; wants_reason[number] = 1; next }
    else if (wants_reason[number] && line != "") reason[number] = line
    if (line != "") wants_reason[number] = 0
    if (line != "") last[number] = line
    next
}

{ print > kept }

match($0, /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: /) {
    verdict = substr($0, RLENGTH + 1)
    number = substr($0, 1, RLENGTH - 2)
    sub(/.*#/, "", number)
    name = verdict
    sub(/[ .].*/, "", name)
    close_program(number, name, verdict)
    next
}

/^No tests were found/ { print "   no test of that name" }
/^ *[0-9]+ - .*\(Not Run\)|^CMake Error|^ctest: / { print "   " $0 }

# GoogleTest's closing "[  PASSED  ] 7 tests." stands for the cases one by one, some of which may share a line with output.
function total_of(line) {
    sub(/^\[[ A-Z]*\] /, "", line)
    return line + 0
}

function skip_case(number, line) {
    sub(/^\[  SKIPPED \] /, "", line)
    sub(/ \([0-9]+ ms\)$/, "", line)
    ++skipped[number]
    printf "skipped %s %s\t%s\n", suite, line, reason[number] >> records
}

function close_program(number, name, verdict,    seconds) {
    seconds = verdict
    sub(/ sec.*/, "", seconds)
    sub(/.* /, "", seconds)
    if (verdict ~ /\*\*\*Skipped/) {
        printf "skipped %s %s\t%s\n", suite, name, last[number] >> records
        printf "   skip %s: %s\n", name, last[number]
    } else if (verdict ~ / Passed /) {
        if (!passed[number] && !skipped[number]) passed[number] = 1
        printf "passed %d\n", passed[number] >> records
        printf "   ok   %s (%d, %s s)\n", name, passed[number], seconds
    } else {
        if (!failed[number]) failed[number] = 1
        if (passed[number]) printf "passed %d\n", passed[number] >> records
        printf "failed %d %s %s\n", failed[number], suite, name >> records
        gsub(/\.\.+/, " ", verdict)
        printf "   FAILED %s\n%s", verdict, output[number]
    }
    output[number] = ""
    fflush()
}
