# packages.sh: installs Debian packages when, and only when, something is missing. Sourced by lib.sh.
# The lists stand in tools/dev/packages/, one package a line with the reason behind it.

# Installs what is missing of the named lists: need LIST...
need() {
    if ! command -v dpkg-query >/dev/null; then
        note "no Debian machine: please see to the packages in tools/dev/packages/ ($*) yourself"
        return 0
    fi
    needed_missing=$(missing_packages "$@")
    [ -z "$needed_missing" ] || install_packages $needed_missing
}

packages_of() {
    for packages_list in "$@"; do sed 's/#.*//; /^ *$/d' "$AP_ROOT/tools/dev/packages/$packages_list"; done
}

missing_packages() {
    missing_wanted=$(packages_of "$@")
    {
        dpkg-query -W -f='${db:Status-Status} ${Package}\n' $missing_wanted 2>/dev/null || true
        printf 'wanted %s\n' $missing_wanted
    } | awk '$1 == "installed" { have[$2] = 1 } $1 == "wanted" && !have[$2] && !seen[$2]++ { print $2 }'
}

install_packages() {
    install_log=$(mktemp)
    if ! install_prefix=$(become_root); then
        die "these packages are missing; as root, run: apt-get update && apt-get install -y --no-install-recommends $*"
    fi
    step "install $*"
    ls /var/lib/apt/lists/*_Packages* >/dev/null 2>&1 || refresh_lists
    if ! apt install "$@"; then
        note "trying again with fresh lists of packages"
        refresh_lists
        if ! apt install "$@"; then
            grep -E '^(E|W):|^dpkg: error' "$install_log" >&2 || tail -n 20 "$install_log" >&2
            die "apt-get could not install them; its whole output is in $install_log"
        fi
    fi
    rm -f "$install_log"
    note "installed"
}

# Prints what makes a command run as root: nothing, or sudo; fails when neither can.
become_root() {
    [ "$(id -u)" -ne 0 ] || return 0
    command -v sudo >/dev/null || return 1
    if sudo -n true 2>/dev/null || [ -t 0 ]; then echo sudo; else return 1; fi
}

refresh_lists() {
    note "refreshing the lists of packages"
    apt update || note "apt-get update met errors; going on with what it has"
}

# Runs one action of apt-get, quietly but for its progress, and waits for another apt-get that holds a lock.
apt() {
    apt_tries=0
    # Descriptor 3 carries the progress; it is made behind sudo, which closes all but the first three.
    while ! piped apt_progress $install_prefix env DEBIAN_FRONTEND=noninteractive LC_ALL=C \
        sh -c 'exec "$@" 3>&1' sh apt-get -y -qq -o APT::Status-Fd=3 -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -o APT::Install-Recommends=false "$@"; do
        tail -n 5 "$install_log" | grep -qE 'Could not get lock|Unable to (acquire|lock)' || return 1
        [ "$apt_tries" -lt 60 ] || return 1
        [ "$apt_tries" -gt 0 ] || note "another program is installing packages; waiting for it"
        apt_tries=$((apt_tries + 1))
        sleep 5
    done
}

# Keeps apt's output in the log and prints a line a quarter of each stage ("dlstatus" downloads, "pmstatus" installs).
apt_progress() {
    progress_last='download 0 %'
    while IFS= read -r progress_line; do
        printf '%s\n' "$progress_line" >>"$install_log"
        case $progress_line in
        dlstatus:*) progress_stage=download ;;
        pmstatus:*) progress_stage=unpack ;;
        *) continue ;;
        esac
        progress_percent=${progress_line#*:*:}
        progress_percent=${progress_percent%%[.:]*}
        case $progress_percent in '' | *[!0-9]*) continue ;; esac
        progress_quarter="$progress_stage $((progress_percent / 25 * 25)) %"
        [ "$progress_quarter" = "$progress_last" ] || note "$progress_quarter"
        progress_last=$progress_quarter
    done
}
