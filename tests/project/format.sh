# The formatter's settings.
. "$(dirname "$0")/support.sh"

# The text of a fatal check is behaviour that callers see: no formatter may respace it.
fatal_checks() {
  command -v clang-format-14 >/dev/null || skip "clang-format-14 is not installed"
  cp "$KXPAL_SOURCE/.clang-format" .
  printf 'void f(int a)\n{\n    MURN_CHECK(a==1  &&  !(a<0));\n}\n' >odd.cpp
  same "the formatted source" "$(cat odd.cpp)" "$(clang-format-14 odd.cpp)"
}

run_case "$@"
