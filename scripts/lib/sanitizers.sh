# Sourced by scripts/test: the sanitizer builds and the short fuzz runs.

TAPWRIGHT_LSAN_SUPPRESSIONS=$TAPWRIGHT_ROOT/scripts/lib/lsan.supp
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$TAPWRIGHT_LSAN_SUPPRESSIONS
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

# ThreadSanitizer cannot map its shadow memory under the large address randomisation of recent
# kernels; without randomisation it can.
tapwright_no_aslr() {
    if setarch "$(uname -m)" -R true 2>/dev/null; then
        setarch "$(uname -m)" -R "$@"
    else
        "$@"
    fi
}

# tapwright_asan_suite <dir>: the whole suite with AddressSanitizer and UndefinedBehaviorSanitizer.
tapwright_asan_suite() {
    local dir=$1
    echo "== ASan+UBSan: build and run the suite in $dir"
    tapwright_build "$dir" -DTAPWRIGHT_SANITIZER=address -DTAPWRIGHT_BUILD_TESTS=ON -DTAPWRIGHT_BUILD_BENCH=OFF
    ctest --test-dir "$TAPWRIGHT_ROOT/$dir" --output-on-failure -j"$(nproc)"
}

# tapwright_tsan_suite <dir>: the pipeline, network and device tests with ThreadSanitizer.
tapwright_tsan_suite() {
    local dir=$1
    echo "== TSan: build and run the pipeline, network and device tests in $dir"
    tapwright_build "$dir" -DTAPWRIGHT_SANITIZER=thread -DTAPWRIGHT_BUILD_TESTS=ON -DTAPWRIGHT_BUILD_BENCH=OFF
    tapwright_no_aslr ctest --test-dir "$TAPWRIGHT_ROOT/$dir" -L 'pipeline|net|device' --output-on-failure -j"$(nproc)"
}

# tapwright_fuzz_runs <dir> <seconds>: each fuzzer for a while on a copy of its seeds (clang only).
tapwright_fuzz_runs() {
    local dir=$1 seconds=$2
    if ! command -v clang++ >/dev/null; then
        echo "== Fuzzing skipped: clang++ not found"
        return 0
    fi
    echo "== Fuzzing: build in $dir, ${seconds} s per target"
    CC=clang CXX=clang++ tapwright_build "$dir" -DTAPWRIGHT_BUILD_FUZZERS=ON \
        -DTAPWRIGHT_BUILD_TESTS=OFF -DTAPWRIGHT_BUILD_BENCH=OFF
    local work target status=0
    work=$(mktemp -d "${TMPDIR:-/tmp}/tapwright-fuzz.XXXXXX")
    for target in fuzz_stream; do
        mkdir -p "$work/$target"
        cp "$TAPWRIGHT_ROOT/fuzz/corpus/$target/"* "$work/$target/"
        local run=("$TAPWRIGHT_ROOT/$dir/fuzz/$target" -max_total_time="$seconds" -timeout=10
            -artifact_prefix="$work/$target-" "$work/$target")
        local result=0
        (cd "$work" && "${run[@]}") >"$work/$target.log" 2>&1 || result=$?
        if [ "$result" -eq 0 ]; then
            echo "$target: $(grep -o 'Done [0-9]* runs in [0-9]* second(s)' "$work/$target.log" | tail -n1)"
        else
            echo "$target: FAILED; log and finding in $work" >&2
            tail -n 30 "$work/$target.log" >&2
            status=1
        fi
    done
    [ "$status" -eq 0 ] && rm -rf "$work"
    return "$status"
}
