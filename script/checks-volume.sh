# Proofs at volume: each is a tenth of itself with SHARE=10, as CI runs it. Sourced by script/check.

# Every power cut of a factory's work, on eMMC and on NAND. One part for each of two cores.
check_powercuts() {
  build release powercuts
  local powercuts="build/release/powercuts --share ${SHARE:-1}" others
  $powercuts emmc utility >build/powercuts.txt &
  others=$!
  $powercuts nand || die "a power cut does what it must not"
  wait $others || die "a power cut does what it must not: build/powercuts.txt"
  cat build/powercuts.txt
}
