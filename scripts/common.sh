# shellcheck shell=bash
# Sourced by the project's commands. A step that fails stops the command with its cause.
[ -n "${BASH_VERSION-}" ] || { echo "$0 needs bash: start it by its path" >&2; exit 2; }
set -euo pipefail
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
export HOME=${HOME-~}

say() { printf '== %s\n' "$*" >&2; }
fail() { say "failed: $*"; exit 1; }
# What CMake, Ninja's list of dependencies or a library path cannot hold.
unusable=$';#"\'&$`\\|<>*^:\n\t'
[[ $root != *["$unusable"]* ]] || fail "no folder name may hold a line end, a tab or one of ${unusable::-2}: $root"

# Debian's packages, by what they are for.
declare -A packages=(
    [build]='cmake ninja-build g++ qtbase5-dev'
    [run]='jq'
    [package]='g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32 dpkg-dev make perl python3 ca-certificates libz-mingw-w64-dev zip git'
    [wine]='wine64 unzip jq binutils-mingw-w64-x86-64'
    [lint]='clang-format clang-tidy shellcheck jq git'
)

# alone COMMAND...: runs it while no other command prepares or builds this checkout.
alone() {
    mkdir -p "$root/build" 2>/dev/null || true
    [[ -w $root/build ]] || fail "$(id -un) cannot write in $root/build"
    { flock -n 9 || { say "waiting for another command"; flock 9; }; "$@"; } 9>"$root/build/lock"
}

# quietly WHAT COMMAND...: says what is done and how long it took; shows the command's output only when it fails.
# The lock is held for the whole step, but not by what the command leaves in the background.
quietly() (
    what=$1 start=$SECONDS output=$(mktemp)
    shift
    trap 'rm -f "$output"' EXIT
    trap 'exit 130' HUP INT TERM
    say "$what"
    "$@" >"$output" 2>&1 </dev/null 9>&- ||
        { trap - EXIT; tail -n 40 "$output" >&2; fail "$what (whole output: $output)"; }
    say "$what: done in $((SECONDS - start)) s"
)

# need PURPOSE...: installs those of the packages that are missing. New package lists are asked for only when it does
# not work without; one that fails may not matter.
need() {
    local missing apt=(env DEBIAN_FRONTEND=noninteractive apt-get -y --no-remove --no-install-recommends \
        -o DPkg::Lock::Timeout=-1)
    mapfile -t missing < <(comm -23 \
        <(for purpose; do echo "${packages[$purpose]-$purpose}"; done | tr ' ' '\n' | sort -u) \
        <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u))
    [[ ${#missing[@]} -gt 0 ]] || return 0
    [[ $EUID -eq 0 ]] || apt=(sudo -n "${apt[@]}")
    [[ $EUID -eq 0 ]] || sudo -n true 2>/dev/null || fail "missing packages; type: sudo apt-get install ${missing[*]}"
    alone quietly "installing ${missing[*]}" apt_install "${missing[@]}"
}
apt_install() { "${apt[@]}" install "$@" || { "${apt[@]}" update; "${apt[@]}" install "$@"; }; }

# build PRESET [ARGUMENT...]: configures the preset with these arguments if that has not been done, and builds it.
build() { alone build_preset "$@"; }
build_preset() {
    local folder=$root/build/$1
    cd "$root"
    # A checkout that was moved is built anew.
    grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt" || rm -rf "$folder"
    [[ -f $folder/build.ninja ]] || quietly "configuring $1" cmake --preset "$@"
    # Ninja answers -n within moments, so nothing is said when there is nothing to do.
    [[ $(ninja -C "$folder" -n) == *"no work to do"* ]] || quietly "building $1" cmake --build --preset "$1"
}
