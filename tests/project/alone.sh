# Builds of the library alone: within another project, and without tests.
. "$(dirname "$0")/support.sh"
tests=$(cd "$(dirname "$0")" && pwd)

# What a whole build of ./build would do, line by line, and the files that it would link.
planned() {
  "$KXPAL_CMAKE" --build build -- -n
}
linked() {
  planned | sed -nE 's/^.*Linking .* ([^ ]+)$/\1/p' | sort
}

subproject() {
  skip_under_sanitizers "a project of its own is built, without sanitizers, as in every other build"
  use_host_settings
  # BUILD_TESTING is the outer project's: it must not bring in the library's tests.
  "$KXPAL_CMAKE" -S "$tests/outer" -B build -DKXPAL_SOURCE="$KXPAL_SOURCE" -DBUILD_TESTING=ON

  same "what is linked" "$(printf '%s\n' greeter.so host kxPAL/libkxPAL_impl.so)" "$(linked)"

  "$KXPAL_CMAKE" --build build
  (cd build && ctest --output-on-failure) >tests.txt || fail "the outer project's test: $(cat tests.txt)"
  contains "$(cat tests.txt)" "100% tests passed, 0 tests failed out of 1"

  "$KXPAL_CMAKE" --install build --prefix "$scratch/prefix" >/dev/null
  same "what is installed" ./bin/host "$(cd prefix && find . ! -type d)"
}

outer_testing() {
  skip_under_sanitizers "a project of its own is configured, as in every other build"
  use_host_settings
  "$KXPAL_CMAKE" -S "$tests/outer" -B build -DKXPAL_SOURCE="$KXPAL_SOURCE"
}

without_tests() {
  skip_under_sanitizers "a build tree of its own is configured, as in every other build"
  use_host_settings
  # In vain: what is there for working on the library goes with the tests.
  "$KXPAL_CMAKE" -S "$KXPAL_SOURCE" -B build -DBUILD_TESTING=OFF -DKXPAL_BUILD_BENCHMARKS=ON

  same "what is linked" libkxPAL_impl.so "$(linked)"
  local elsewhere
  elsewhere=$(planned | grep 'Building' | grep -v 'src/CMakeFiles/kxPAL_objects.dir/' || true)
  same "what is compiled besides the library" "" "$elsewhere"
}

run_case "$@"
