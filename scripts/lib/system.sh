# Sourced by the scripts: the project's folder, and installing what is missing.

set -euo pipefail
unset CDPATH
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$project"

say() { printf '%s\n' "$*" >&2; }
fail() { say "$@"; exit 1; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "These packages are missing and need an administrator to install them: $*"
    fi
}

# install_debian PACKAGE...: installs those of the packages that are missing.
install_debian() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing ${missing[*]}"
    # The lists may be missing or old: first try without them, then with.
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null 2>&1 && return 0
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
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
