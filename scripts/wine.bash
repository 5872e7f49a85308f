# shellcheck shell=bash
# How programs are run under Wine, in a prefix that belongs to one build folder. Needs lib.bash and `build_dir`, the
# build folder's absolute path.

# shellcheck disable=SC2154 # set by whoever sources this
export WINEPREFIX=$build_dir/wine
# Debian's launcher and Wine itself report what is harmless here: the 32-bit part is not installed, and not needed.
export WINEDEBUG=${WINEDEBUG:--all}
export WINEARCH=win64
# No menus and file types of the prefix get into the user's desktop, and nobody is asked to install .NET or a browser.
export WINEDLLOVERRIDES='winemenubuilder.exe=;mscoree=;mshtml='
# Nothing here opens a window; a display, where there is one, would only cost time.
unset DISPLAY WAYLAND_DISPLAY

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

# The registry entries by which the mail client and its MAPI module are found, as a file that regedit reads.
mail_client_registration() {
    local folder
    folder=$(windows_path "$build_dir/mail-client")
    folder=${folder//\\/\\\\}
    printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' \
        '[HKEY_LOCAL_MACHINE\Software\Clients\Mail]' '@="Microsoft Outlook"' '' \
        '[HKEY_LOCAL_MACHINE\Software\Clients\Mail\Microsoft Outlook]' '@="Microsoft Outlook"' \
        "\"DllPathEx\"=\"$folder\\\\olmapi32.dll\"" '' \
        '[HKEY_LOCAL_MACHINE\Software\Microsoft\Windows\CurrentVersion\App Paths\outlook.exe]' \
        "@=\"$folder\\\\outlook.exe\"" '' '[HKEY_CURRENT_USER\Software\Wine\WineDbg]' '"ShowCrashDialog"=dword:00000000'
}

register_mail_client() {
    local file=$WINEPREFIX/mail-client.reg
    # regedit takes a path beyond ASCII only in UTF-16.
    { printf '\xff\xfe' && mail_client_registration | iconv -f UTF-8 -t UTF-16LE; } >"$file"
    wine regedit /S "$(windows_path "$file")"
    mail_client_registration >"$WINEPREFIX/.registered"
}

# Has the prefix made and the mail client of this build folder registered in it.
prepare_prefix() {
    if [[ ! -f $WINEPREFIX/system.reg ]]; then
        mkdir -p "$WINEPREFIX"
        step "Creating a Wine prefix" wineboot --init || die "Wine could not make its prefix in $WINEPREFIX"
    fi
    if [[ ! -f $WINEPREFIX/.registered || $(<"$WINEPREFIX/.registered") != "$(mail_client_registration)" ]]; then
        step "Registering the mail client in it" register_mail_client || die "Wine refused the registration"
    fi
}

# Ends what this prefix still has running; only this prefix's.
end_wine() { [[ ! -d $WINEPREFIX ]] || wineserver -k >/dev/null 2>&1 || true; }
