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

# step TEXT COMMAND...: says what is being done, keeps the command's output in a log and shows that it is alive;
# prints the log's end where the command fails.
step() {
    local text=$1 begin=$SECONDS log status=0 waited=0
    shift
    log=$(mktemp "${TMPDIR:-/tmp}/kivnst-log.XXXXXXXX")
    printf '%s ... ' "$text"
    # A process group of its own, so that all of it can be ended when the user interrupts.
    set -m
    "$@" >"$log" 2>&1 </dev/null &
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

# install_packages NAME...: installs what is missing of them; says nothing where nothing is.
install_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    say "Missing Debian packages: ${missing[*]}"
    # sudo may have to ask for a password, which it cannot while a step's output goes to a log.
    as_root true
    step "Reading Debian's package lists" as_root apt-get update || return 1
    step "Installing them" as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}
