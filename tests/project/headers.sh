# The public headers, each as the only include of a source, without GLib's folders.
. "$(dirname "$0")/support.sh"

# alone COMPILER STANDARD
alone() {
  skip_under_sanitizers "headers are compiled and not run, as in every other build"
  [ -x "$1" ] || skip "this compiler is not installed"
  install_tree
  local header count=0
  for header in "$prefix"/include/kxPAL/*.h; do
    header=kxPAL/$(basename "$header")
    printf '#include <%s>\n' "$header" >"alone.cpp"
    "$1" "-std=c++$2" -Wall -Wextra -Wpedantic -Werror -fsyntax-only "-I$prefix/include" alone.cpp ||
      fail "$header as C++$2"
    count=$((count + 1))
  done
  [ "$count" -gt 0 ] || fail "there are no headers"
}

# alone_in_c COMPILER - the header for C, in strict mode.
alone_in_c() {
  skip_under_sanitizers "headers are compiled and not run, as in every other build"
  [ -x "$1" ] || skip "this compiler is not installed"
  install_tree
  printf '#include <kxPAL/Murn_c.h>\n' >alone.c
  "$1" -std=c11 -Wall -Wextra -pedantic -Wstrict-prototypes -Werror -fsyntax-only "-I$prefix/include" alone.c ||
    fail "Murn_c.h as C11"
}

# formats COMPILER - each logging operation has its format compared with its values, in hosts as in the library.
formats() {
  [ -x "$1" ] || skip "this compiler is not installed"
  local call value status
  for call in 'Log("d", 4, "%d", ' 'Critical("d", "%d", ' 'Error("d", "%d", ' 'Warning("d", "%d", ' \
    'Message("d", "%d", ' 'Info("d", "%d", ' 'Debug("d", "%d", '; do
    for value in 1 '"one"'; do
      printf '#include <Logger.h>\nvoid f() { Murn::Logger::%s%s); }\n' "$call" "$value" >call.cpp
      status=0
      "$1" -Werror=format -fsyntax-only "-I$KXPAL_SOURCE/inc" call.cpp 2>messages || status=$?
      same "whether $call$value) compiles: $(cat messages)" "$([ "$value" = 1 ] && echo yes || echo no)" \
        "$([ "$status" -eq 0 ] && echo yes || echo no)"
    done
  done
}

run_case "$@"
