# Sourced by run.sh and guard.sh, after scripts/packages.sh: builds fsys_bench as people run it.
#   build_bench FOLDER OPTION...    the program is FOLDER/bench/fsys_bench
build_bench() {
    local folder=$1
    mkdir -p "$folder"
    local log=$folder/bench-build.log
    if ! { cmake -S "$root" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ \
            -DFSYS_TESTS=OFF -DFSYS_BENCH=ON "${@:2}" "${ccache_options[@]}" &&
            cmake --build "$folder" --target fsys_bench; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "the build failed; all of its output is in $log" >&2
        return 3
    fi
}
