# lib.sh: what the verbs of ./dev share: lines for people, packages, builds behind a lock, programs in the box.
# Sourced by each verb; `dev` has set AP_ROOT (the tree) and AP_BUILD (where everything is built) and made AP_ROOT the
# current folder. Plain POSIX sh.
set -eu

# --- lines for people -------------------------------------------------------------------------------------------------

if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
    bold=$(printf '\033[1m') red=$(printf '\033[1;31m') green=$(printf '\033[32m') plain=$(printf '\033[0m')
else
    bold='' red='' green='' plain=''
fi

step() { printf '%s== %s%s\n' "$bold" "$*" "$plain"; }
note() { printf '   %s\n' "$*"; }
die() {
    printf 'dev: %s\n' "$*" >&2
    exit 1
}

# Answers --help with the comment that opens the verb's own file; to be called first: help_of_verb "$0" "$@".
help_of_verb() {
    help_file=$1
    case ${2:-} in -h | --help) ;; *) return 0 ;; esac
    sed -n '1,/^[^#]/{ s/^# \{0,1\}//p; }' "$help_file"
    exit 0
}

processors() { getconf _NPROCESSORS_ONLN 2>/dev/null || echo 1; }

# `awk` that passes each line on at once; Debian's own collects a block first unless it is told otherwise.
live_awk() {
    case $(awk -W version 2>&1 </dev/null) in *mawk*) awk -W interactive "$@" ;; *) awk "$@" ;; esac
}

# Runs a command and gives its output to a filter: piped FILTER COMMAND [ARG...]; the status is the command's own.
piped() {
    pipe_filter=$1
    shift
    pipe_status=$(mktemp)
    { "$@" 2>&1 && echo 0 >"$pipe_status" || echo $? >"$pipe_status"; } | $pipe_filter
    pipe_result=$(cat "$pipe_status")
    rm -f "$pipe_status"
    return "${pipe_result:-1}"
}

# --- builds -----------------------------------------------------------------------------------------------------------

# Configures when there is need and builds: build PRESET [TARGET...]. Two runs on the same folder wait for each other.
build() {
    build_preset=$1
    shift
    build_folder=$AP_BUILD/$build_preset
    mkdir -p "$AP_BUILD"
    exec 9>"$AP_BUILD/$build_preset.lock"
    flock -n 9 || { note "waiting for another build of $build_preset" && flock 9; }
    build_result=0
    step "build $build_preset"
    configure "$build_preset" 9>&- && compile "$build_folder" "$@" 9>&- || build_result=1
    exec 9>&-
    return "$build_result"
}

# Ninja follows changed CMakeLists by itself; a changed preset or other options need another configure.
configure() {
    configure_folder=$AP_BUILD/$1
    configure_line="cmake --preset $1 -B $configure_folder $(options_of_preset "$1") ${AP_CMAKE:-}"
    configure_stamp=$configure_folder/configured
    if [ -f "$configure_folder/build.ninja" ] && [ "$(cat "$configure_stamp" 2>/dev/null)" = "$configure_line" ] &&
        [ -z "$(find CMakePresets.json cmake -newer "$configure_stamp")" ]; then
        return 0
    fi
    mkdir -p "$configure_folder"
    # Options that are no longer given would stay in the cache of CMake.
    configure_fresh=--fresh
    [ "$(cat "$configure_stamp" 2>/dev/null)" != "$configure_line" ] || configure_fresh=
    if ! $configure_line $configure_fresh >"$configure_folder/configure.log" 2>&1; then
        cat "$configure_folder/configure.log" >&2
        return 1
    fi
    printf '%s\n' "$configure_line" >"$configure_stamp"
}

options_of_preset() {
    case $1 in mipsel) echo "-DAP_SYSROOT=$AP_BUILD/target/sysroot -DAP_BOX=$AP_BUILD/host/bin/apbox" ;; esac
}

compile() {
    compile_folder=$1
    shift
    if [ -t 1 ]; then
        ninja -C "$compile_folder" -j "$(processors)" -k 0 "$@"
    else
        piped every_tenth ninja -C "$compile_folder" -j "$(processors)" -k 0 "$@"
    fi
}

# Of ninja's "[N/ALL] Building ..." lines, one per tenth of the work; every other line as it is.
every_tenth() {
    live_awk '
        /^\[[0-9]+\/[0-9]+\] / && !failing {
            split(substr($1, 2), part, "/")
            tenth = int(10 * part[1] / part[2])
            if (tenth != last || part[1] + 0 == 1) { print "   " $0; last = tenth }
            next
        }
        /^ninja: Entering directory/ { next }
        /^ninja: no work to do/ { print "   nothing to build"; next }
        { print }'
}

# --- the box ----------------------------------------------------------------------------------------------------------

# Runs a command in a fresh device box of the host build.
in_box() { "$AP_BUILD/host/bin/apbox" run --writable "$AP_BUILD" -- "$@"; }

. "$AP_ROOT/tools/dev/packages.sh"
