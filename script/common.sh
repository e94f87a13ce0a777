# shellcheck shell=bash
# Shared by the scripts: sourced, never run. Leaves the shell in the top folder of the tree.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() {
    printf '\n== %s\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "not root, and no sudo: cannot run: $*"
    fi
}

# listed_packages [SECTION...]: the names under these sections of packages.txt; without any, all.
listed_packages() {
    awk -v wanted=" $* " '
        /^# \[/ { split($2, part, /[][]/); section = part[2]; next }
        /^[^#]/ && (wanted == "  " || index(wanted, " " section " ")) { print $1 }
    ' script/packages.txt
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_packages [SECTION...]: asks the package manager only for what is missing.
install_packages() {
    local name missing=()
    command -v dpkg-query >/dev/null || die "this is no Debian: install what script/packages.txt lists by hand"
    for name in $(listed_packages "$@"); do
        is_installed "$name" || missing+=("$name")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    say "Installing ${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq update
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install "${missing[@]}"
}
