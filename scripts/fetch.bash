# shellcheck shell=bash
# How third-party sources are fetched: from Debian's source packages by the system's own apt, pinned by SHA-256, made
# once for all build folders. Needs lib.bash; a script begins with begin_fetching.

# begin_fetching FOLDER: `deps` is then FOLDER's absolute path, locked until the end of this script, and `work` a new folder
# for what is being made.
begin_fetching() {
    mkdir -p -- "$1"
    deps=$(cd -- "$1" && pwd)
    # Two build folders that are configured at once share this folder. What each script makes is its own.
    exec 9>"$deps/.lock-${0##*/}"
    wait_for_lock 9 -x "another ${0##*/} is at work"
    # Everything is made in a folder whose path has no space in it, which libpff's configure would not take, and moved
    # to its place when it is whole.
    work=$(mktemp -d "${TMPDIR:-/tmp}/kivnst-deps.XXXXXXXX")
    trap 'rm -rf -- "$work"' EXIT
}

# have NAME PIN: true where FOLDER/NAME was made from exactly that.
have() { [[ -f $deps/$1/.made-from && $(<"$deps/$1/.made-from") == "$2" ]]; }

# keep NAME PIN: moves what was made to its place.
keep() {
    printf '%s\n' "$2" >"$work/$1/.made-from"
    rm -rf -- "${deps:?}/$1"
    mv -- "$work/$1" "$deps/$1"
}

# apt with a source list of its own, derived from the system's, so that the system's configuration stays untouched.
private_apt() {
    apt-get -o "Dir::Etc::sourcelist=$work/apt/sources.list" -o "Dir::Etc::sourceparts=$work/apt/parts" \
        -o "Dir::State::lists=$work/apt/lists" -o "Dir::Cache=$work/apt/cache" \
        -o "APT::Sandbox::User=$(id -un)" "$@"
}

prepare_private_apt() {
    [[ ! -d $work/apt ]] || return 0
    mkdir -p "$work/apt/parts" "$work/apt/lists/partial" "$work/apt/cache/archives/partial"
    local file
    : >"$work/apt/sources.list"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ ! -f $file ]] || sed -n 's/^deb\(-src\)\{0,1\}[[:space:]]/deb-src /p' "$file"
    done | sort -u >"$work/apt/sources.list"
    for file in /etc/apt/sources.list.d/*.sources; do
        [[ ! -f $file ]] || sed 's/^Types:.*/Types: deb-src/' "$file" >"$work/apt/parts/${file##*/}"
    done
    # A third party's list may have no sources, which apt takes for an error; what counts is that the archives come.
    private_apt update || true
}

matches() { [[ -f $1 ]] && printf '%s  %s\n' "$2" "$1" | sha256sum --check --status; }

download() {
    local package=$1 archive=$2
    mkdir -p "$work/download"
    prepare_private_apt
    (cd "$work/download" && private_apt source --tar-only "$package")
    [[ -f $work/download/$archive ]]
}

# fetch PACKAGE ARCHIVE SHA256: has the source package's archive in FOLDER/downloads, whole and unaltered.
fetch() {
    local package=$1 archive=$2 sha256=$3
    mkdir -p "$deps/downloads"
    if ! matches "$deps/downloads/$archive" "$sha256"; then
        step "Fetching $archive from Debian's source package" download "$package" "$archive" ||
            die "$archive could not be fetched; the network and apt's own sources are needed for it"
        matches "$work/download/$archive" "$sha256" ||
            die "$archive is not the file that is expected here (SHA-256 $sha256)"
        mv -- "$work/download/$archive" "$deps/downloads/$archive"
    fi
}
