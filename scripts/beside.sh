# Sourced by test.sh: steps that compute, beside tests that wait.
#   beside FOLDER NAME COMMAND [NAME COMMAND...]   starts them, one after the other, at the lowest priority; what each
#                                                  says and its exit status go to files in FOLDER. A step that fails
#                                                  does not keep the next ones from running
#   finished NAME                                  waits for one of them, prints what it said and how long it took,
#                                                  and has its exit status
# A COMMAND is split at its blanks; it may be a function of the script. Nothing of it outlives the script.

beside() {
    beside_folder=$1 && shift
    mkdir -p "$beside_folder"
    # A process group of its own, which can be ended as a whole; not a session, whose processor time would be shared
    # out by the group and not by priority.
    set -m
    run_beside "$@" </dev/null >"$beside_folder/log" 2>&1 &
    beside_group=$!
    set +m
    trap 'kill -- -$beside_group 2>/dev/null || true' EXIT
}

run_beside() {
    renice -n 19 -p "$BASHPID" >/dev/null
    local name command status from
    while [ $# -gt 0 ]; do
        name=$1 command=$2 status=0 from=$SECONDS
        shift 2
        # A shell of its own that stops at the first error, as the script does: left of || nothing would stop it.
        set +e
        # shellcheck disable=SC2086
        (set -e; $command) >"$beside_folder/$name.said" 2>&1
        status=$?
        set -e
        echo "$((SECONDS - from)) $status" >"$beside_folder/$name.part"
        mv "$beside_folder/$name.part" "$beside_folder/$name.ended"  # there as a whole, or not yet
    done
}

finished() {
    local said=$beside_folder/$1.said ended=$beside_folder/$1.ended seconds status
    while [ ! -e "$ended" ]; do
        if ! kill -0 "$beside_group" 2>/dev/null && [ ! -e "$ended" ]; then
            echo "$1 did not come to its end"
            cat "$beside_folder/log" "$said" 2>/dev/null || true
            return 1
        fi
        sleep 1
    done
    cat "$said"
    read -r seconds status <"$ended"
    echo "took $((seconds / 60)):$(printf %02d $((seconds % 60))) beside the tests"
    return "$status"
}
