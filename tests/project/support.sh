# What the project's test scripts share. Each of them defines its cases as functions and ends with: run_case "$@"
#
# From CMake: KXPAL_SOURCE and KXPAL_BUILD, the two trees; KXPAL_LIBRARY, the built library; KXPAL_CXX and KXPAL_CC, the
# compilers; KXPAL_CMAKE; KXPAL_CCACHE, a compiler cache or nothing; KXPAL_SANITIZE, the sanitizers of the build or
# nothing.
set -euo pipefail

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

skip() {
  printf 'SKIPPED: %s\n' "$*"
  exit 77
}

# same WHAT EXPECTED ACTUAL - two texts must be equal; shows what is missing (-) and what is too much (+).
same() {
  diff -u --label expected <(printf '%s\n' "$2") --label actual <(printf '%s\n' "$3") || fail "$1"
}

# contains TEXT PART
contains() {
  case $1 in
    *"$2"*) ;;
    *) fail "\"$2\" is not in: $1" ;;
  esac
}

skip_under_sanitizers() {
  [ -z "$KXPAL_SANITIZE" ] || skip "$1"
}

# For hosts outside the tree: with a sanitized library they must be sanitized too.
host_flags=()
[ -z "$KXPAL_SANITIZE" ] || host_flags=("-fsanitize=$KXPAL_SANITIZE" -fno-sanitize-recover=all)

# The settings that cmake takes from its environment for a new build tree.
use_host_settings() {
  export CXX=$KXPAL_CXX CXXFLAGS="${host_flags[*]}" CMAKE_GENERATOR=Ninja
  [ -z "$KXPAL_CCACHE" ] || export CMAKE_CXX_COMPILER_LAUNCHER=$KXPAL_CCACHE
}

# install_tree - installs the built tree and sets $prefix. The tree is moved after that, since both packages promise
# to go by where they are found.
install_tree() {
  prefix=$scratch/prefix
  "$KXPAL_CMAKE" --install "$KXPAL_BUILD" --prefix "$scratch/first" >/dev/null
  mv "$scratch/first" "$prefix"
}

run_case() {
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  cd "$scratch"
  "$@"
}
