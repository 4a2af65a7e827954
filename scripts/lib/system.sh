# Sourced by the scripts: the project's folder, and installing what is missing.

set -euo pipefail
unset CDPATH
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$project"

# How far a build is, in front of what it does.
export NINJA_STATUS='[%p] '

say() { printf '%s\n' "$*" >&2; }
fail() { say "$@"; exit 1; }

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }

# install_debian PACKAGE...: installs those of the packages that are missing.
install_debian() {
    local missing=() package install log=build/install.log who="Only an administrator can install these"
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    # Whoever has to type a password does it here, where nothing is redirected.
    [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || fail "$who, and there is no sudo: ${missing[*]}"
    as_root env true || fail "$who, and sudo does not let you: ${missing[*]}"
    say "Installing ${missing[*]}"
    mkdir -p build
    install=(env DEBIAN_FRONTEND=noninteractive
        apt-get install -y -qq --no-install-recommends "${missing[@]}")
    # The lists may be missing or old: first try without them, then with.
    as_root "${install[@]}" >"$log" 2>&1 && return 0
    { as_root apt-get update -qq && as_root "${install[@]}"; } >"$log" 2>&1 && return 0
    ! grep -qE '[Cc]ould not (resolve|connect)|failure resolving|Unable to connect|unreachable' "$log" ||
        fail "The package server cannot be reached, so these could not be installed: ${missing[*]}"
    cat "$log" >&2
    fail "These could not be installed: ${missing[*]}"
}

# install_homebrew FORMULA...: the same on macOS.
install_homebrew() {
    local missing=() formula
    command -v brew >/dev/null || fail "Install Homebrew first (https://brew.sh), then start again."
    for formula in "$@"; do
        [ -d "$(brew --prefix)/opt/$formula" ] || missing+=("$formula")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing ${missing[*]}"
    brew install --quiet "${missing[@]}"
}

# configure PRESET [OPTION...]: once; from then on the build looks after itself. A warning fails the
# gate, and nobody else's build.
configure() {
    local preset=$1
    shift
    [ "${CI:-}" != true ] || set -- -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@"
    [ -f "build/$preset/build.ninja" ] && [ $# -eq 0 ] && return 0
    mkdir -p build
    local log="build/configure-$preset.log"
    cmake --preset "$preset" "$@" >"$log" 2>&1 || {
        cat "$log" >&2
        return 1
    }
}

# show_percentage: of what ninja prints, how far it is: on a terminal a number that changes,
# elsewhere a line for each tenth.
show_percentage() {
    local line tenth=0
    while IFS= read -r line; do
        [[ $line =~ ^\[\ *([0-9]+)%\] ]] || continue
        if [ -t 2 ]; then
            printf '\r%3d%%' "${BASH_REMATCH[1]}" >&2
        elif [ $((BASH_REMATCH[1] / 10)) -gt $tenth ]; then
            tenth=$((BASH_REMATCH[1] / 10))
            say "${tenth}0%"
        fi
    done
    [ ! -t 2 ] || printf '\r    \r' >&2
}

# run_tests CTEST...: as many at once as there are processors. Leaving nothing behind is part of
# passing.
run_tests() {
    local temporary result=0 left
    temporary=$(mktemp -d)
    chmod 1777 "$temporary" # some tests become another user
    TMPDIR=$temporary "$@" -j "$(getconf _NPROCESSORS_ONLN)" || result=$?
    left=$(ls -A "$temporary")
    rm -rf "$temporary"
    [ -z "$left" ] || fail "The tests left behind: $left"
    return $result
}
