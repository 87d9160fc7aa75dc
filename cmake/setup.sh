# Sourced by ./run, ./test and bench/run: installs what is missing of cmake/packages.txt, and says so.

# need PURPOSE...: makes sure that the packages of those purposes are there.
need() {
    local purpose package missing=()
    for purpose in "$@"; do
        for package in $(sed -n "s/^$purpose //p" cmake/packages.txt); do
            [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
        done
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}" >&2
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq >&2
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# build PRESET [TARGET...]: configures and builds, quietly unless something goes wrong.
build() {
    local preset=$1 log=build/$1.log
    shift
    mkdir -p build
    local targets=()
    [ $# -eq 0 ] || targets=(--target "$@")
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "${targets[@]}"; } >"$log" 2>&1; then
        cat "$log" >&2
        return 1
    fi
}
