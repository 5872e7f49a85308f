# shellcheck shell=bash
# How programs are run under Wine, in a prefix that belongs to one build folder. Needs lib.bash and `build_dir`, the
# build folder's absolute path.

# The tests'; the demonstration has one of its own, so that neither ends the other's programs or changes its registry.
# shellcheck disable=SC2154 # set by whoever sources this
export WINEPREFIX=$build_dir/wine
# Debian's launcher and Wine itself report what is harmless here: the 32-bit part is not installed, and not needed.
export WINEDEBUG=${WINEDEBUG:--all}
export WINEARCH=win64
# No menus and file types of the prefix get into the user's desktop, and nobody is asked to install .NET or a browser.
export WINEDLLOVERRIDES='winemenubuilder.exe=;mscoree=;mshtml='
# Nothing here opens a window; a display, where there is one, would only cost time.
unset DISPLAY WAYLAND_DISPLAY

# Wine's server and services outlive the program that they were started for.
wine() { unlocked wine "$@"; }
wineserver() { unlocked wineserver "$@"; }

# windows_path PATH: how a program under Wine names a file of this machine.
windows_path() {
    local path
    path=$(realpath -m -- "$1")
    printf 'Z:%s' "${path//\//\\}"
}

# What a program learns of where things lie.
export_locations() {
    local value
    value=$(windows_path "$build_dir/bin")
    export KIVNST_BIN=$value WINEPATH=$value
    value=$(windows_path "$build_dir/mail-client")
    export KIVNST_MAIL_CLIENT=$value
    value=$(windows_path "$source_dir/tests/data")
    export KIVNST_TEST_DATA=$value
    value=$(windows_path "${KIVNST_DEPS_DIR:-$source_dir/build/deps}/pst-data")
    export KIVNST_PST_DATA=$value
}

make_prefix() {
    wineboot --init
    # A test that crashes is to end, not to ask.
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f
}

# Has the prefix made and the mail client of this build folder registered in it.
prepare_prefix() {
    if [[ ! -f $WINEPREFIX/system.reg ]]; then
        step "Creating a Wine prefix" make_prefix || die "Wine could not make its prefix in $WINEPREFIX"
    fi
    # Each time, at the cost of one program's start: the build folder may have moved, a test may have been stopped while
    # it had another client registered.
    local log=$WINEPREFIX/testbed-setup.log
    if ! wine "$build_dir/bin/testbed-setup.exe" "$(windows_path "$build_dir/mail-client")" >"$log" 2>&1 </dev/null; then
        cat -- "$log" >&2
        die "the mail client could not be registered in $WINEPREFIX"
    fi
}

# Makes the sample host known to the mail client of this build folder.
register_host() {
    wine "$build_dir/bin/archive-setup.exe" register --service ArchiveSvc --display "My Archive" --dll ArchiveHost.dll
}

# Ends what this prefix still has running; only this prefix's.
end_wine() { [[ ! -d $WINEPREFIX ]] || wineserver -k >/dev/null 2>&1 || true; }
