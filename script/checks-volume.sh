# Proofs at volume: each is a tenth of itself with SHARE=10, as CI runs it. Sourced by script/check.

# on_two_cores FIRST... : SECOND...: two commands at once. Both have to succeed; what the first says follows.
on_two_cores() {
  local first=() number
  while [ "$1" != : ]; do
    first+=("$1")
    shift
  done
  shift
  "${first[@]}" >build/first_core.txt &
  number=$!
  "$@" || die "failed: $*"
  wait $number || die "failed: ${first[*]}: $(cat build/first_core.txt)"
  cat build/first_core.txt
}

# Every power cut of a factory's work, on eMMC and on NAND.
check_powercuts() {
  build release powercuts
  local powercuts="build/release/powercuts --share ${SHARE:-1}"
  on_two_cores $powercuts emmc utility : $powercuts nand
}

# A million random schedules of faults on NAND chips, and a hundred thousand histories of phones. A failure names the
# seed that shows it again.
check_schedules() {
  build release nand_schedules phone_histories
  local share=${SHARE:-1} seed
  seed=$(od -An -N3 -tu4 /dev/urandom)
  local chips="build/release/nand_schedules --count $((500000 / share))" more=$((seed + 100000000))
  local phones="build/release/phone_histories --count $((50000 / share))"
  on_two_cores $chips --seed $((seed)) : $chips --seed $more
  on_two_cores $phones --seed $((seed)) : $phones --seed $more
}

# The faults of tests/mutants/, each of which a test has to catch; those that would leak under the sanitizers.
check_mutants() {
  build debug
  build asan
  script/mutants.py --share "${SHARE:-1}"
}
