# Sourced by the scripts at the root: installs the Debian packages that are missing, and only those.
#   need_packages NAME...

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

need_packages() {
    local missing=() name
    for name in "$@"; do
        dpkg-query -W -f='${Status}' "$name" 2>/dev/null | grep -q 'install ok installed' || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}" >&2
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -qq >&2
    as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

build_packages=(g++ cmake ninja-build pkg-config ccache liburing-dev libmount-dev libcli11-dev
    nlohmann-json3-dev libxxhash-dev libavformat-dev libavcodec-dev libavutil-dev
    python3-dev pybind11-dev libcpp-httplib-dev)
# The charts of fsys serve; another packager's node brings an npm of its own.
command -v npm >/dev/null || build_packages+=(nodejs npm)
# What makes Debian packages; cpack asks file(1) for the kind of each file.
packaging_packages=(dpkg-dev file gzip binutils)
test_packages=(libgtest-dev libgmock-dev clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 python3
    xxhash e2fsprogs xfsprogs util-linux mount btrfs-progs nbdkit nbdkit-plugin-python libnbd-bin fuse3
    strace "${packaging_packages[@]}" lintian abigail-tools ffmpeg python3-numpy mypy chromium
    chromium-driver python3-selenium gnuplot-nox tmux)
# Who reads manual pages, completions and the headers' comments.
reader_packages=(man-db groff bash-completion zsh fish doxygen)
bench_packages=(libuv1-dev libboost1.81-dev libavformat-dev libavutil-dev fio fd-find findutils coreutils python3
    python3-matplotlib)
fuzz_packages=(clang-14 libclang-rt-14-dev libclang-common-14-dev)
guard_packages=(python3 valgrind)
docs_packages=(mkdocs mkdocs-material python3)
# Real servers for tests/network.
network_packages=(glusterfs-server glusterfs-client sshfs openssh-server samba samba-common-bin smbclient
    libfuse3-dev fuse3 iproute2)

# Compiler launcher for cmake; objects that did not change are not compiled again, whatever the folder.
ccache_options=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
