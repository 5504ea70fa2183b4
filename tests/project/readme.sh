# The README's host and the lines that link it, as printed: what a newcomer copies must work.
. "$(dirname "$0")/support.sh"

# block LABEL - prints the fenced block that follows the comment <!-- LABEL -->.
block() {
  local text
  text=$(awk -v label="<!-- $1 -->" '
    $0 == label { found = 1; next }
    found && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }' "$KXPAL_SOURCE/README.md")
  [ -n "$text" ] || fail "README.md has no block \"$1\""
  printf '%s\n' "$text"
}

# run LABEL - runs a block of shell lines, the first that fails ending it, and keeps what it prints.
run() {
  block "$1" >lines.sh
  bash -euo pipefail lines.sh >output.txt 2>messages.txt ||
    fail "these lines ended with $?: $(cat lines.sh messages.txt output.txt)"
}

# A newcomer's machine: a home, the built tree where the README says, and a g++ that is the library's own compiler.
newcomer() {
  export HOME=$scratch/home
  mkdir -p "$HOME" project/build bin
  ln -s "$KXPAL_BUILD" project/build/release
  cd project
  printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$KXPAL_CXX" "${host_flags[*]}" >../bin/g++
  chmod +x ../bin/g++
  export PATH=$scratch/bin:$PATH
  use_host_settings
}

expect_hello() {
  same "the host's output" "Hello, main thread!" "$(tail -n 1 output.txt)"
}

pkg_config() {
  newcomer
  run "run: install"
  block "file: hello.cpp" >hello.cpp
  run "run: pkg-config"
  expect_hello
}

find_package() {
  newcomer
  run "run: install"
  mkdir host && cd host
  block "file: hello.cpp" >hello.cpp
  block "file: find_package/CMakeLists.txt" >CMakeLists.txt
  run "run: find_package"
  expect_hello
}

add_subdirectory() {
  skip_under_sanitizers "a project of its own is built, without sanitizers, as in every other build"
  newcomer
  mkdir host && cd host
  ln -s "$KXPAL_SOURCE" kxPAL
  block "file: hello.cpp" >hello.cpp
  block "file: add_subdirectory/CMakeLists.txt" >CMakeLists.txt
  run "run: find_package"
  expect_hello
}

run_case "$@"
