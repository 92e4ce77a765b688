# Sourced by run.sh and guard.sh, after scripts/packages.sh: builds fsys_bench as people run it.
bench_build=${FSYS_BENCH_BUILD:-$root/build/bench}
bench_program=$bench_build/bench/fsys_bench

build_bench() {
    need_packages "${build_packages[@]}" "${bench_packages[@]}"
    mkdir -p "$bench_build"
    local log=$bench_build/bench-build.log
    if ! { cmake -S "$root" -B "$bench_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ \
            -DFSYS_TESTS=OFF -DFSYS_BENCH=ON "${ccache_options[@]}" &&
            cmake --build "$bench_build" --target fsys_bench; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "the build failed; all of its output is in $log" >&2
        return 3
    fi
}
