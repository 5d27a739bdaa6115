# Checks of what leaves the tree: the phone's build, the installed package, the interface, the reference.
# Sourced by script/check.

# ---- the phone's build ------------------------------------------------------------------------------------------

ARM64_TEXT_LIMIT=$((120 * 1024))

# The value of a dynamic tag, without brackets and quotes: dynamic FILE TAG
dynamic() {
  readelf -dW "$1" | awk -v tag="($2)" '$2 == tag { print $NF }' | tr -d '[]'
}

# segment FILE TYPE: the lines of a kind of program header
segment() {
  readelf -lW "$1" | awk -v type="$2" '$1 == type'
}

section_size() {
  size -A "$1" | awk -v name="$2" '$1 == name { print $2 }'
}

# The C library (on an arm64 host the stack protector's word is in its loader), its maths, and the platform's log and
# properties; nothing else is loaded with the library.
check_needed() {
  local other
  other=$(dynamic "$1" NEEDED | grep -vE '^(lib(c|m|log|cutils)|ld-linux-aarch64)\.so' || true)
  [ -z "$other" ] || die "$1 needs $other"
}

# Calls of the library's own functions go straight to them, past any other program's of the same name.
check_own_calls() {
  local own bound
  own=$(nm -D --defined-only "$1" | awk '$2 == "T" { print $3 }')
  [ "$(wc -w <<<"$own")" -gt 50 ] || die "$1 exports hardly anything"
  bound=$(readelf -rW "$1" | awk '$1 ~ /^[0-9a-f]+$/ { print $5 }' | sed 's/@.*//' | grep -Fx "$own" || true)
  [ -z "$bound" ] || die "a program can put its own function in the way: $(xargs <<<"$bound")"
}

# What the compiler adds shows in what is imported, and on arm64 in a note.
check_compiler_hardening() {
  local library=$1 imports
  imports=$(nm -D --undefined-only "$library" | awk '{ print $2 }' | sed 's/@.*//')
  grep -qx __stack_chk_fail <<<"$imports" || die "no stack protector"
  grep -vx __stack_chk_fail <<<"$imports" | grep -q '_chk$' || die "no fortified call"
  if readelf -hW "$library" | grep -q 'Machine: *AArch64'; then
    readelf -nW "$library" | grep -q 'AArch64 feature: BTI, PAC' || die "no BTI and PAC"
  fi
}

# What check_hardening asserts, as seen in the file.
properties() {
  local fortified
  fortified=$(nm -D --undefined-only "$1" | grep -v __stack_chk_fail | grep -c '_chk\(@\|$\)')
  echo "$(readelf -hW "$1" | awk '$1 == "Class:" { print $2 }'), own functions bound inside, stack protector," \
    "$fortified fortified functions$(readelf -nW "$1" | sed -n 's/.*feature: \(.*\)/, \1/p')," \
    "full RELRO, no executable stack, segments on 16 KiB," \
    "$(readelf -rW "$1" | grep -c '_RELATIVE') relative relocations"
}

# check_hardening LIBRARY [BYTES]: those of .init_array, which a host's start files bring along
check_hardening() {
  local library=$1 alignment started
  check_needed "$library"
  readelf -hW "$library" | grep -q 'Class: *ELF64' || die "not 64 bit"
  [ -z "$(nm -D --undefined-only "$library" | awk '{ print $2 }' | sed 's/@.*//' |
    grep -E '^(_Z|__cxa_|__gxx|_Unwind)' | grep -vx __cxa_finalize || true)" ] || die "imports from the C++ runtime"
  alignment=$(segment "$library" LOAD | awk '{ print $NF }' | sort -u)
  [ "$alignment" = 0x4000 ] || die "load segments are aligned to $alignment, not 0x4000"
  [ -n "$(segment "$library" GNU_RELRO)" ] || die "no RELRO"
  readelf -dW "$library" | grep BIND_NOW >/dev/null || die "RELRO is not full: symbols are bound late"
  segment "$library" GNU_STACK | grep " RW " >/dev/null || die "the stack is executable"
  readelf -dW "$library" | { ! grep TEXTREL; } || die "text relocations"
  started=$(section_size "$library" .init_array)
  [ "${started:-0}" = "${2:-0}" ] || die "something of ours runs when the library is loaded"
  check_own_calls "$library"
  check_compiler_hardening "$library"
}

# What correction results and speed rest on: no fused multiply-add anywhere, and vector code in the mesh.
check_arm64_code() {
  local code=build/sizes/arm64.s
  aarch64-linux-gnu-objdump -d --no-show-raw-insn "$1" >"$code"
  ! grep -nE '\s(fn?m(add|sub)|fml[as])\s' "$code" || die "fused multiply-add in the arm64 library"
  grep -qE '\sfmul\sv[0-9]+\.4s' "$code" || die "the lens-shading mesh is not vector code"
}

check_sizes() {
  need_packages binutils $ARM64_PACKAGES
  build release awb_calibration
  build arm64 awb_calibration
  mkdir -p build/sizes
  local preset library text strip=strip started=8
  for preset in release arm64; do
    [ $preset = release ] || { strip=aarch64-linux-gnu-strip && started=0; }
    library=build/sizes/libawb_calibration-$preset.so
    $strip -o $library build/$preset/libawb_calibration.so
    check_hardening $library $started
    text=$(size $library | awk 'NR == 2 { print $1 }')
    say "sizes: $preset: text $text bytes (code $(section_size $library .text)," \
      "constants $(section_size $library .rodata)), file $(stat -c %s $library)," \
      "needs $(dynamic $library NEEDED | xargs)"
    say "sizes: $preset: $(properties $library)"
  done
  check_arm64_code $library
  [ "$text" -le $ARM64_TEXT_LIMIT ] || die "arm64: text of $text bytes exceeds $ARM64_TEXT_LIMIT"
  say "sizes: arm64: $((ARM64_TEXT_LIMIT - text)) bytes below the limit of $ARM64_TEXT_LIMIT"
}

# ---- the interface and its types --------------------------------------------------------------------------------

# The library with debugging information that names no folder of this machine.
build_for_abi() {
  cmake --preset release -B build/abi -DCMAKE_CXX_FLAGS="-g -ffile-prefix-map=$PWD/=" -DBUILD_TESTING=OFF \
    -DAWB_HOST_TOOLS=OFF >/dev/null
  cmake --build build/abi --target awb_calibration
}

# Every exported function with its arguments, every structure of the public headers with its layout.
check_abi() {
  need_packages abigail-tools
  build_for_abi
  local checked_in=abi/libawb_calibration.abi.xml now=build/abi/libawb_calibration.abi.xml
  abidw --headers-dir include/awb_calibration --drop-private-types --drop-undefined-syms --exported-interfaces-only \
    --no-architecture --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --type-id-style hash \
    build/abi/libawb_calibration.so >$now
  ! grep -nF "$PWD" $now || die "the description of the interface names a folder of this machine"
  abidiff $checked_in $now || die "the interface has changed; if it was meant to: cp $now $checked_in"
  say "abi: $(grep -c '<elf-symbol ' $now) symbols and their types are those of $checked_in"
}

# ---- the installed package --------------------------------------------------------------------------------------

# Release build without tests, as a distribution makes it, and its package.
build_package() {
  cmake --preset release -B build/package -DBUILD_TESTING=OFF -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
  cmake --build build/package
  rm -rf build/package/deb && mkdir build/package/deb
  (cd build/package && cpack --config CPackConfig.cmake -B deb >/dev/null)
}

# The example does on the virtual phone what docs/integrate.md shows: run_example PROGRAM
run_example() {
  local folder
  folder=$(mktemp -d)
  "$1" "$folder/phone" >"$folder/output"
  diff -u examples/camera_start.txt "$folder/output" || die "$1 printed something else"
  [ "$(stat -c %s "$folder/phone/data/misc/camera/awb_cal")" = 32 ] || die "$1 left no record in its phone"
  # The second time it meets the phone of the first.
  "$1" "$folder/phone" >"$folder/output"
  diff -u examples/camera_start.txt "$folder/output" || die "$1 printed something else the second time"
  # Where no phone can be had it says so, and nothing is let loose on the host.
  ! "$1" "$folder/output/phone" 2>"$folder/output" || die "$1 went on without a phone"
  grep '^virtual phone: ' "$folder/output" >/dev/null || die "$1 did not say why there is no phone"
  rm -r "$folder"
}

# From the tree of `cmake --install`, by find_package().
check_example_with_cmake() {
  rm -rf build/package/prefix build/package/example
  cmake --install build/package --prefix "$PWD/build/package/prefix" >/dev/null
  cmake -S examples -B build/package/example -DCMAKE_PREFIX_PATH="$PWD/build/package/prefix" >/dev/null
  cmake --build build/package/example
  run_example build/package/example/camera_start
}

# From the unpacked Debian package, by pkg-config.
check_example_with_pkg_config() {
  dpkg-deb -x build/package/deb/libawb-calibration-dev_*.deb build/package/deb/root
  local libraries flags
  libraries=$(dirname "$(find "$PWD/build/package/deb/root" -name libvirtual_phone.so)")
  flags=$(PKG_CONFIG_PATH=$libraries/pkgconfig \
    pkg-config --cflags --libs awb_calibration awb_calibration_virtual_phone)
  gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -o build/package/deb/camera_start examples/camera_start.c \
    $flags -Wl,-rpath,"$libraries"
  run_example build/package/deb/camera_start
}

# The pages read without a complaint, and every command of the tool has one.
check_manual() {
  local page command root=build/package/deb/root
  for page in $root/usr/share/man/man*/*; do
    [ -z "$(man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)" ] || die "$page has warnings"
  done
  $root/usr/bin/awbcal --help | sed -n '/^Subcommands:/,$p' | awk 'NR > 1 && NF && $1 != "help" { print $1 }' |
    while read -r command; do
      [ -e "$root/usr/share/man/man1/awbcal-$command.1" ] || die "no page for 'awbcal $command'"
    done
}

check_install() {
  need_packages pkgconf dpkg-dev file man-db groff
  build_package
  check_example_with_cmake
  check_example_with_pkg_config
  check_manual
  say "install: the example runs from the installed tree (CMake) and the Debian package (pkg-config)"
}

# What a user types on a machine that has nothing of ours: in_fresh ROOT COMMAND
in_fresh() {
  chroot "$1" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    /bin/bash -euc "$2"
}

# A new Debian in FOLDER, from where this one's packages come.
make_fresh_debian() {
  local from
  from=$(apt-get indextargets --format '$(REPO_URI)' 'Codename: bookworm' 'Component: main' | head -n 1)
  rm -rf "$1"
  debootstrap --variant=minbase bookworm "$1" "$from" >build/package/debootstrap.log ||
    die "no new Debian: see build/package/debootstrap.log"
}

# The package on a machine that has nothing else: its dependencies, the tool, a linked program, the pages.
check_package() {
  need_packages debootstrap dpkg-dev file
  [ "$(id -u)" = 0 ] || die "a new Debian can only be made by root"
  build_package
  local root=$PWD/build/package/debian
  make_fresh_debian "$root"
  cp build/package/deb/libawb-calibration-dev_*.deb "$root/root/"
  in_fresh "$root" 'apt-get -qq update && apt-get -qq install -y --no-install-recommends ./root/*.deb >/dev/null 2>&1
    cd /root && awbcal demo --seed 1 --dir phone >demo.txt && awbcal show phone >/dev/null
    test -s /usr/share/awbcal/awbcal.schema.json'
  grep -q '^  Verdict: FAIL' "$root/root/demo.txt" || die "the packaged tool's demo is not the demo"
  check_links "$root"/usr/share/doc/libawb-calibration-dev/docs/*.md
  in_fresh "$root" 'apt-get -qq install -y --no-install-recommends gcc libc6-dev pkgconf >/dev/null 2>&1
    cd /root && gcc /usr/share/doc/libawb-calibration-dev/examples/camera_start.c -o camera_start \
      $(pkg-config --cflags --libs awb_calibration awb_calibration_virtual_phone)
    ./camera_start example-phone >output && diff /usr/share/doc/libawb-calibration-dev/examples/camera_start.txt output'
  rm -rf "$root"
  say "package: installs on a new Debian, and a linked example, the demo and the pages' links work there"
}

# ---- the platform's own headers and log -------------------------------------------------------------------------

# Where Debian's packages put them: Android's own tree has <android/log.h> and <cutils/properties.h>.
PLATFORM_HEADERS=/usr/include/android

# The same questions to both sets of declarations; <sys/system_properties.h> is ours in either.
check_declarations() {
  local flags="-std=c++20 -Wall -Wextra -Werror -fsyntax-only -I."
  g++ $flags -Iphone/include tests/phone/platform_declarations.cpp
  g++ $flags -isystem $PLATFORM_HEADERS -idirafter phone/include tests/phone/platform_declarations.cpp
  g++ $flags -isystem $PLATFORM_HEADERS -idirafter phone/include -E tests/phone/platform_declarations.cpp |
    grep "\"$PLATFORM_HEADERS/cutils/properties.h\"" >/dev/null || die "the platform's headers were not used"
}

# The packaged log as the sink of the library's lines.
check_packaged_log() {
  rm -rf build/platform/prefix build/platform/log
  cmake --install build/platform --prefix "$PWD/build/platform/prefix" >/dev/null
  cmake -S tests/phone/packaged_log -B build/platform/log -DCMAKE_PREFIX_PATH="$PWD/build/platform/prefix" >/dev/null
  cmake --build build/platform/log
  build/platform/log/packaged_log build/platform/log/phone 2>build/platform/log/lines
  grep -E '^camera_calibration I .* awb_read_fuseid: ctrlfd = 4711$' build/platform/log/lines ||
    die "the line is not in the packaged log's output: $(cat build/platform/log/lines)"
}

check_platform() {
  need_packages android-liblog-dev android-libcutils-dev android-liblog
  check_declarations
  cmake --preset release -B build/platform -DCMAKE_CXX_FLAGS="-isystem $PLATFORM_HEADERS" -DBUILD_TESTING=OFF \
    -DAWB_HOST_TOOLS=OFF >/dev/null
  cmake --build build/platform
  check_packaged_log
  say "platform: our declarations are the platform's, and its packaged log takes the library's lines"
}

# ---- the platform tree's and the NDK's builds, as far as they can be tried here ---------------------------------

# Every test in a process of its own, as the platform tree's runner isolates them.
run_isolated() {
  local program=$1
  "$program" --gtest_list_tests | awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' |
    xargs -P 2 -I {} "$program" --gtest_filter={} --gtest_brief=1 >build/android/tests.log ||
    die "a test fails; see build/android/tests.log"
  [ "$(grep -c '^\[  PASSED  \] 1 test' build/android/tests.log)" -gt 100 ] || die "hardly any test was run"
}

check_android_bp() {
  local library program
  bpfmt -d Android.bp >build/android/bpfmt.diff
  [ ! -s build/android/bpfmt.diff ] || die "bpfmt would change Android.bp: $(cat build/android/bpfmt.diff)"
  library=$(script/soong_stand_in.py build/android android libawb_calibration)
  aarch64-linux-gnu-strip -o build/android/stripped.so "$library"
  check_hardening build/android/stripped.so
  check_arm64_code build/android/stripped.so
  say "android: arm64 by clang: text $(size build/android/stripped.so | awk 'NR == 2 { print $1 }') bytes"
  program=$(script/soong_stand_in.py build/android host libawb_calibration_test)
  run_isolated "$program"
}

# The NDK's way through CMake: its headers know the log but not the properties, its linker allows nothing undefined.
check_ndk() {
  local liblog
  liblog=$(dpkg -L android-liblog | grep '/liblog\.so$')
  rm -rf build/ndk && mkdir -p build/ndk/include/android build/ndk/include/sys
  ln -s $PLATFORM_HEADERS/android/log.h build/ndk/include/android/log.h
  ln -s "$liblog" build/ndk/liblog.so
  ln -s "$PWD/phone/include/sys/system_properties.h" build/ndk/include/sys/system_properties.h
  printf '%s\n' 'int __system_property_get(const char* name, char* value);' \
    'int __system_property_get(const char* name, char* value) { return name && value ? 0 : -1; }' |
    gcc -shared -fPIC -Wl,-soname,libproperties.so -x c - -o build/ndk/libproperties.so
  cmake --preset release -B build/ndk/build -DANDROID=TRUE -DCMAKE_CXX_FLAGS="-isystem $PWD/build/ndk/include" \
    -DCMAKE_SHARED_LINKER_FLAGS="-Wl,--no-undefined -L$PWD/build/ndk" \
    -DCMAKE_C_STANDARD_LIBRARIES="$PWD/build/ndk/libproperties.so" >/dev/null
  cmake --build build/ndk/build
  say "android: the NDK's path: needs $(dynamic build/ndk/build/libawb_calibration.so NEEDED | xargs)"
  dynamic build/ndk/build/libawb_calibration.so NEEDED | grep -x libcutils.so >/dev/null ||
    die "the phone's libcutils.so would not be loaded"
  [ -z "$(dynamic build/ndk/build/libawb_calibration.so RUNPATH)" ] || die "a folder of this machine is searched"
  cmake --install build/ndk/build --prefix "$PWD/build/ndk/prefix" >/dev/null
  [ -z "$(find build/ndk/prefix -name '*cutils*' -o -name '*virtual_phone*')" ] || die "stand-ins are installed"
}

check_android() {
  need_packages blueprint-tools clang ccache python3 android-liblog android-liblog-dev $ARM64_PACKAGES
  mkdir -p build/android build/sizes
  check_android_bp
  check_ndk
}

# ---- the reference ----------------------------------------------------------------------------------------------

check_reference() {
  need_packages doxygen
  rm -rf build/doxygen && mkdir -p build/doxygen
  doxygen docs/Doxyfile
  [ -f build/doxygen/html/correction_8h.html ] || die "doxygen made no page of correction.h"
  script/record-maps --check
  say "reference: no warning, and the maps are those of records/record_layouts.h"
}
