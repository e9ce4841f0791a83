# Sourced by the scripts at the top: what the machine needs, and how a preset is built.

build_packages=(cmake ninja-build g++ dpkg-dev file help2man python3 nlohmann-json3-dev libcli11-dev
                libgtest-dev libgmock-dev libbenchmark-dev)
sanitizer_packages=(clang-14 clang libclang-rt-14-dev)
device_packages=(clang libc++-14-dev libc++abi-14-dev hidl-gen android-libutils-dev android-libcutils-dev blueprint-tools
                 libxml2-utils m4 checkpolicy secilc)
check_packages=(clang-format-14 clang-tidy-14)
count_packages=(valgrind binutils)

# install_packages NAME...: installs those of the Debian packages that are missing.
install_packages() {
    local name missing=()
    for name in "$@"; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null) == installed ]] ||
            missing+=("$name")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        echo "These packages are missing; install them as root:" >&2
        echo "    apt-get install ${missing[*]}" >&2
        return 1
    fi
    echo "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq && apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures and builds in build/PRESET below the current folder.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! cmake --preset "$preset" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
    cmake --build --preset "$preset" -j "$(nproc)" ${1:+--target "$@"}
}
