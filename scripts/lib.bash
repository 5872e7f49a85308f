# shellcheck shell=bash
# What every script here shares: how it speaks, how it runs a long step, how it gets root's rights.

set -euo pipefail

# Time since the script began, the way a person says it.
elapsed() {
    local seconds=$((SECONDS - ${1:-0}))
    if ((seconds < 60)); then
        printf '%d s' "$seconds"
    else
        printf '%d min %02d s' $((seconds / 60)) $((seconds % 60))
    fi
}

say() { printf '%s\n' "$*"; }

die() {
    printf 'run: %s\n' "$*" >&2
    exit 1
}

# wait_for_lock DESCRIPTOR -s|-x TEXT: locks the open file; where another script stands in the way, says TEXT and waits.
wait_for_lock() {
    if ! flock "$2" --nonblock "$1"; then
        say "Waiting: $3"
        flock "$2" "$1"
    fi
}

# The locks that this script holds: for each name its descriptor.
declare -A held_locks=()

# hold NAME -s|-x TEXT: holds the lock NAME of this checkout, shared or alone, until this script ends or asks again. Where
# another script stands in the way, says TEXT and waits.
hold() {
    # shellcheck disable=SC2154 # set by whoever sources this
    local name=$1 mode=$2 text=$3 file=$source_dir/build/.lock-$1 descriptor
    release "$name"
    mkdir -p -- "$source_dir/build"
    while true; do
        exec {descriptor}>>"$file"
        wait_for_lock "$descriptor" "$mode" "$text"
        # Whoever held it may have removed the file, with the whole folder.
        if [[ /proc/self/fd/$descriptor -ef $file ]]; then break; fi
        exec {descriptor}>&-
    done
    held_locks[$name]=$descriptor
}

# release NAME: gives the lock back, where it is held.
release() {
    local descriptor=${held_locks[$1]:-}
    if [[ -n $descriptor ]]; then exec {descriptor}>&-; fi
    unset "held_locks[$1]"
}

# unlocked COMMAND...: runs a program that may live on, or start what does, so that it keeps neither a lock nor the way
# out of a step.
unlocked() (
    local lock
    for lock in "${!held_locks[@]}"; do
        release "$lock"
    done
    exec "$@" 3>&-
)

# step TEXT COMMAND...: says what is being done, keeps the command's output in a log and shows that it is alive;
# prints the log's end where the command fails. The command's descriptor 3 is where the text went.
step() {
    local text=$1 begin=$SECONDS log status=0 waited=0
    shift
    log=$(mktemp "${TMPDIR:-/tmp}/kivnst-log.XXXXXXXX")
    printf '%s ... ' "$text"
    # A process group of its own, so that all of it can be ended when the user interrupts.
    set -m
    "$@" 3>&1 >"$log" 2>&1 </dev/null &
    step_pid=$!
    set +m
    trap 'kill -- "-$step_pid" 2>/dev/null; rm -f "$log"; printf "\n"; exit 130' INT TERM
    while kill -0 "$step_pid" 2>/dev/null; do
        sleep 0.2
        waited=$((waited + 1))
        # A dot every ten seconds tells a slow step from a stuck one, in a terminal and in a CI log alike.
        if ((waited % 50 == 0)); then printf '.'; fi
    done
    wait "$step_pid" || status=$?
    trap - INT TERM
    if ((status == 0)); then
        printf ' done (%s)\n' "$(elapsed "$begin")"
        rm -f "$log"
        return 0
    fi
    printf ' FAILED (%s)\n' "$(elapsed "$begin")"
    printf '%s\n' "--- the last lines of its output:" >&2
    tail -n "${KIVNST_LOG_LINES:-40}" "$log" >&2
    rm -f "$log"
    return "$status"
}

# as_root COMMAND...: runs it with root's rights, by sudo where the caller has them not.
as_root() {
    if (($(id -u) == 0)); then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "that needs root's rights; run it as root, or install sudo"
    fi
}

# missing_packages NAME...: prints those that are not installed; asks dpkg alone, so it costs no network and no time.
missing_packages() {
    local package
    declare -A installed=()
    while read -r package; do
        installed[$package]=1

    done < <(dpkg-query -W -f '${db:Status-Abbrev} ${Package} ${Provides}\n' 2>/dev/null |
        sed -n 's/^ii  *//p' | sed 's/([^)]*)//g' | tr -s ', ' '\n')
    for package in "$@"; do
        [[ -n ${installed[$package]:-} ]] || printf '%s\n' "$package"
    done
}

# apt_get ARGUMENT...: apt-get as root, once no other package manager holds the locks that it needs: it waits for dpkg's
# itself when told to, but not for those of the lists and of the archives. Says on descriptor 3 that it waits.
apt_get() {
    local output status told='' end=$((SECONDS + 1800))
    while true; do
        status=0
        output=$(as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C apt-get -o DPkg::Lock::Timeout=1800 "$@" 2>&1) ||
            status=$?
        printf '%s\n' "$output"
        if ((status == 0 || SECONDS >= end)) || [[ $output != *"Could not get lock"* ]]; then return "$status"; fi
        if [[ -z $told ]]; then
            told=1
            printf '(waiting for another package manager) ' >&3
        fi
        sleep 2
    done
}

# install_packages NAME...: installs what is missing of them; says nothing where nothing is.
install_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    say "Missing Debian packages: ${missing[*]}"
    # sudo may have to ask for a password, which it cannot while a step's output goes to a log.
    as_root true
    step "Reading Debian's package lists" apt_get update || return 1
    step "Installing them" apt_get install -y --no-install-recommends "${missing[@]}"
}
