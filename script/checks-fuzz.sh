# The fuzzers: what they begin with and how they run. Sourced by script/check and script/fuzz.
#
# A corpus is tests/corpus/NAME.hex (an input a line) and tests/corpus/NAME/ (a file is an input), which the suite runs
# too; what is made below from the project's own files; and what earlier runs on this machine have found worth keeping.
# All of it lies in build/fuzz/corpus/NAME.

FUZZERS="loaders_fuzzer corrections_fuzzer checks_fuzzer nand_fuzzer
  inspect_fuzzer pack_fuzzer backup_fuzzer log_fuzzer
  phone_fuzzer frames_fuzzer"

# The library's inputs are small programs, and a chip's a few choices: long ones find nothing more and cost time.
longest_input() {
  case $1 in
    loaders_fuzzer | corrections_fuzzer | checks_fuzzer | phone_fuzzer) echo 512 ;;
    nand_fuzzer) echo 128 ;;
    backup_fuzzer) echo 1536 ;;
    log_fuzzer) echo 3072 ;;
    *) echo 4096 ;;
  esac
}

# The library's own lines: nobody finds "[LSC Calibration]" by chance.
log_seeds() {
  sed -nE "s|^X\(\"([a-z_]+)\", '(.)', \"(.*)\"\)$|\2/\1( 1): \3|p" tools/log/library_lines.inc |
    sed -E 's/\\n//g; s/%[0-9]*l*[duxfp]/3/g; s/%s/gyro_write_calibration/g' |
    split -l 8 - build/fuzz/corpus/log_fuzzer/lines.
}

# suite_seeds NAME: what the suite runs.
suite_seeds() {
  local line number=0 to=build/fuzz/corpus/$1
  if [ -d "tests/corpus/$1" ]; then cp "tests/corpus/$1"/* "$to/"; fi
  [ -f "tests/corpus/$1.hex" ] || return 0
  while IFS= read -r line; do
    number=$((number + 1))
    [ "${line#\#}" = "$line" ] || continue
    printf '%b' "$(sed 's/../\\x&/g' <<<"$line")" >"$to/suite.$number"
  done <"tests/corpus/$1.hex"
}

# prepare_fuzzers NAME...: built, each with the folders that it needs.
prepare_fuzzers() {
  need_packages clang
  build fuzz "$@"
  local name
  for name in "$@"; do
    mkdir -p "build/fuzz/corpus/$name" "build/fuzz/found/$name"
    suite_seeds "$name"
    [ "$name" != log_fuzzer ] || log_seeds
  done
}

# run_fuzzer NAME SECONDS [RUNS]: prints what it did and how much of the code it came to see, or says where the input lies that shows a fault.
run_fuzzer() {
  # Fast: every input as good as the next, blocks of memory without their stack and soon used again. What is found says
  # its stack when it runs again.
  local asan=malloc_context_size=0:quarantine_size_mb=1:max_malloc_fill_size=0
  local name=$1 log=build/fuzz/$1.log options=(-entropic=0 -runs="${3:--1}")
  # The virtual phone keeps its chip from run to run, which looks like a leak at every one.
  [ "$name" != nand_fuzzer ] || options+=(-detect_leaks=0)
  if ! ASAN_OPTIONS=$asan "build/fuzz/$name" "${options[@]}" \
    -max_total_time="$2" -max_len="$(longest_input "$name")" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="build/fuzz/found/$name/" "build/fuzz/corpus/$name" >"$log" 2>&1; then
    local found
    found=$(grep -aoE 'build/fuzz/found/[^ ]+$' "$log" | tail -n 1) || true
    [ -n "$found" ] || die "$name: ended early, by a signal or for want of something: $log"
    grep -aE '^not so|ERROR|runtime error|^    #[0-9]+ .*/(common|storage|records|factory|correction|verify|tools|phone)/' \
      "$log" | head -n 12 >&2 || true
    die "$name found something: $log. Again: build/fuzz/$name $found. Once mended, it belongs into
tests/corpus/$name.hex as a line: od -An -v -tx1 $found | tr -d ' \n'"
  fi
  say "$name: $(sed -nE 's/^stat::number_of_executed_units: *//p' "$log") runs, $(sed -nE \
    's/^stat::average_exec_per_sec: *//p' "$log") a second, $(sed -nE \
    's/.* cov: ([0-9]+) .*/\1/p' "$log" | tail -n 1) edges"
}

# Twenty seconds of each: enough to see that they run, and what is new and shallow.
check_fuzz() {
  local name seconds=$((20 / ${SHARE:-1}))
  prepare_fuzzers $FUZZERS
  for name in $FUZZERS; do
    run_fuzzer "$name" $((seconds > 0 ? seconds : 1))
  done
}
