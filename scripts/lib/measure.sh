# Sourced by the measuring scripts: whole processes, in turn, medians and ratios.

tools=build/release/benchmarks

configure release
cmake --build --preset release >/dev/null

# median FILE COLUMN
median() { sort -n -k "$2,$2" "$1" | awk -v c="$2" '{ v[NR] = $c } END { print v[int((NR + 1) / 2)] }'; }

# rounds RUNS BEFORE COMMAND...: runs each command once a round, so that a machine that slows
# down slows all of them, and prints a row each with its ratio to the first. BEFORE is a command
# that runs before each run, or "true". A command is one string, split at blanks.
rounds() {
    local runs=$1 before=$2 results index command
    shift 2
    results=$(mktemp -d)
    for _ in $(seq 1 "$runs"); do
        index=0
        for command in "$@"; do
            $before
            # shellcheck disable=SC2086 # commands are split at blanks on purpose
            "$tools/Measure" $command >>"$results/$index" || true
            index=$((index + 1))
        done
    done
    local first
    first=$(median "$results/0" 1)
    printf '%10s %8s %8s %9s   %s\n' wall ratio cpu 'peak MB' command
    index=0
    for command in "$@"; do
        awk -v wall="$(median "$results/$index" 1)" -v user="$(median "$results/$index" 2)" \
            -v kernel="$(median "$results/$index" 3)" -v peak="$(median "$results/$index" 4)" \
            -v first="$first" -v command="$command" 'BEGIN {
                printf "%8.3f s %8.2f %6.2f s %9.1f   %s\n", wall, wall / first, user + kernel,
                    peak * 1024 / 1e6, command }'
        index=$((index + 1))
    done
    rm -r "$results"
}

# installed_only COMMAND...: those whose program is installed, one a line.
installed_only() {
    local command
    for command in "$@"; do
        command -v "${command%% *}" >/dev/null && printf '%s\n' "$command"
    done
    return 0
}

drop_caches() { sync; echo 3 >/proc/sys/vm/drop_caches; }
