# Hosts whose names meet the library's exported data, in each of the ways in which a host is linked. Hosts of some of
# them have the data copied into themselves when they start, and the library has to follow there.
. "$(dirname "$0")/support.sh"
tests=$(cd "$(dirname "$0")" && pwd)

# What is compiled and linked, by name: position-dependent, a program at any address, and code as for a shared object.
models=("-fno-pie -no-pie" "-fPIE -pie" "-fPIC -pie" "-fPIE -pie -rdynamic" "-fno-pie -no-pie -Wl,-z,now")
optimisations=(-O0 -O2 "-O2 -flto")

# links_with_lld CLANG - whether there is the linker that this compiler's link-time optimisation needs.
links_with_lld() {
  echo 'int main() {}' | "$1" -x c++ -flto -fuse-ld=lld - -o empty 2>/dev/null
}

# expect_from_each COMPILER SOURCE OUTPUT - the host says this, however it is linked.
expect_from_each() {
  [ -x "$1" ] || skip "this compiler is not installed"
  skip_under_sanitizers "the sanitizers have a way of their own with globals"
  local model optimisation flags output
  for model in "${models[@]}"; do
    for optimisation in "${optimisations[@]}"; do
      flags="$optimisation $model"
      if [[ $1 == *clang* && $flags == *-flto* ]]; then
        links_with_lld "$1" || continue
        flags+=" -fuse-ld=lld"
      fi
      # shellcheck disable=SC2086 # the flags are words
      "$1" -std=c++11 -Wall -Wextra -Wpedantic -Werror $flags "-I$KXPAL_BUILD/include" \
        "$tests/names/$2" -o host "$KXPAL_LIBRARY" -pthread -ldl "-Wl,-rpath,$(dirname "$KXPAL_LIBRARY")" ||
        fail "$2 does not build with $flags"
      output=$(./host) || fail "$2 with $flags ended with $?: $output"
      same "what $2 says with $flags" "$3" "$output"
    done
  done
}

own_funcs() {
  expect_from_each "$1" own_funcs.cpp "accepted 1, changed 0"
}

librarys_funcs() {
  expect_from_each "$1" librarys_funcs.cpp 111000
}

level_mask() {
  expect_from_each "$1" level_mask.cpp "$(
    printf '%s\n' "at first 63" "heard 1" "heard 1" "heard 2" "at last 7, 7"
  )"
}

# The data is really copied where the cases above rely on it.
copies() {
  skip_under_sanitizers "which data is copied is the same in every other build"
  "$KXPAL_CXX" -std=c++11 -fno-pie -no-pie "-I$KXPAL_BUILD/include" "$tests/names/level_mask.cpp" -o host \
    "$KXPAL_LIBRARY"
  contains "$(readelf -rW host)" "R_X86_64_COPY"
  readelf -rW host | grep -q "R_X86_64_COPY.*_ZN4Murn6Logger14__logLevelMaskE" || fail "the mask is not copied"
}

run_case "$@"
