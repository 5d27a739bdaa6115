# A phone on a cable, with the programs that a phone's build has. Sourced by script/check.

# The suite's test of pull with toybox in the place of this host's programs, with the real nanddump, and with the cable
# pulled out at many more places.
check_pull() {
  need_packages toybox mtd-utils
  build debug awbcal awbcal_pull_test virtual_phone stand_in_nanddump
  local folder program cuts=${PULL_CUTS:-$((100 / ${SHARE:-1}))}
  folder=$(mktemp -d)
  mkdir "$folder/programs" "$folder/mtd"
  for program in $(toybox); do ln -s "$(command -v toybox)" "$folder/programs/$program"; done
  ln -sf /bin/sh "$folder/programs/sh"
  ln -s "$(PATH=$PATH:/usr/sbin command -v nanddump)" "$folder/mtd/nanddump"
  PULL_TEST_PROGRAMS=$folder/programs PULL_TEST_NANDDUMP=$folder/mtd PULL_TEST_CUTS=$cuts \
    build/debug/awbcal_pull_test --gtest_brief=1 || die "pull fails with the programs of a phone's build"
  rm -rf "$folder"
  say "pull: a phone with toybox and nanddump, cut off at $cuts places"
}
