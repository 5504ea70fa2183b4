# The comparison of binary interfaces, tried on a library of one class: scripts/check-abi says yes to what was
# described, and no to each change that a host built before would notice.
. "$(dirname "$0")/support.sh"

skip_under_sanitizers "a library of its own is compared, as in every other build"
command -v abidw >/dev/null || skip "abigail-tools are not installed"
command -v g++-12 >/dev/null || skip "the compiler that descriptions are made from, g++-12, is not installed"

sample() {
  mkdir inc
  cat >inc/Sample.h <<'END'
#include <string>

class Sample {
public:
  virtual ~Sample();
#ifdef MOVED_SLOT
  virtual void second();
  virtual void first();
#else
  virtual void first();
  virtual void second();
#endif
#ifdef CHANGED_ENUMERATOR
  enum Colour { Red = 2, Green = 1 };
#else
  enum Colour { Red = 1, Green = 2 };
#endif
  void paint(Colour colour);

private:
#ifdef MOVED_FIELD
  int _age = 0;
  std::string _name;
#else
  std::string _name;
#ifdef CHANGED_FIELD
  unsigned _age = 0;
#else
  int _age = 0;
#endif
#endif
#ifdef ADDED_FIELD
  int _height = 0;
#endif
};

#ifndef REMOVED_FUNCTION
void paintAll(long count);
#endif
#ifdef ADDED_FUNCTION
void paintNone();
#endif
END
  cat >Sample.cpp <<'END'
#include "Sample.h"

Sample::~Sample() = default;
void Sample::first() {}
void Sample::second() { _name.clear(); }
void Sample::paint(Colour colour) { _age = colour; }
#ifndef REMOVED_FUNCTION
void paintAll(long) {}
#endif
#ifdef ADDED_FUNCTION
void paintNone() {}
#endif
END
}

# library [MACRO] - builds libsample.so, changed as the macro says.
library() {
  g++-12 -std=c++17 -g -O1 -fPIC -shared -Iinc ${1:+"-D$1"} Sample.cpp -o libsample.so
}

# compare [OPTION] - runs the script; what it says is in the file `said`.
compare() {
  "$KXPAL_SOURCE/scripts/check-abi" "$@" --description "$scratch/sample.abi" --headers "$scratch/inc" \
    "$scratch/libsample.so" >said 2>&1
}

# finds MACRO TEXT - the change is refused, with this text among the reasons.
finds() {
  library "$1"
  if compare; then
    fail "$1 went unnoticed: $(cat said)"
  fi
  contains "$(cat said)" "$2"
}

describe() {
  sample
  library
  compare --update || fail "no description: $(cat said)"
}

accepts() {
  describe
  compare || fail "it differs from itself: $(cat said)"
  if grep -n "$scratch\|$KXPAL_SOURCE" sample.abi; then
    fail "the description names folders of this machine"
  fi
}

finds_changes() {
  describe
  finds MOVED_SLOT "Sample::first() changed from 2 to 3"
  finds MOVED_FIELD "'int _age' offset changed"
  finds CHANGED_FIELD "type of 'int _age' changed"
  finds ADDED_FIELD "_height"
  finds CHANGED_ENUMERATOR "Red"
  finds REMOVED_FUNCTION "paintAll"
  finds ADDED_FUNCTION "paintNone"
}

run_case "$@"
