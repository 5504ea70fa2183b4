# The script that plants faults: which it plants, and that a faulty library can do no harm.
. "$(dirname "$0")/support.sh"

command -v python3 >/dev/null || skip "python3 is not installed"
export PYTHONPATH=$KXPAL_SOURCE/tests/mutants PYTHONDONTWRITEBYTECODE=1

# faults - the faults of the source in standard input, each as the line that it makes.
faults() {
  python3 -c '
import sys, plant
source = sys.stdin.read()
for mutant in plant.mutants_of(source):
    print(mutant.lines(source)[1])'
}

# body LINE... - what becomes of these lines of a function.
body() {
  { echo 'void f()' && echo '{' && printf '    %s\n' "$@" && echo '}'; } | faults
}

kinds() {
  same "a comparison" "$(printf '%s\n' 'x = a <= b;' 'x = a >= b;' '{}' | sort)" "$(body 'x = a < b;' | sort)"
  same "a sum" "$(printf '%s\n' 'x = a - 2;' 'x = a + 3;' '{}' | sort)" "$(body 'x = a + 2;' | sort)"
  same "a condition" "$(printf '%s\n' 'if (!(a))' 'if ((a) || true)' 'if ((a) && false)' '{}' | sort)" \
    "$(body 'if (a)' '    b();' | sort)"
  same "arguments" "$(printf '%s\n' 'f(b, a);' '{}' | sort)" "$(body 'f(a, b);' | sort)"
  same "a choice" "$(printf '%s\n' 'return a ? c : b;' 'return {};' | sort)" "$(body 'return a ? b : c;' | sort)"
  same "flags" "$(printf '%s\n' 'f(A & B);' 'f(A );' 'f( B);' '{}' | sort)" "$(body 'f(A | B);' | sort)"
  same "a text" "$(printf '%s\n' 'f("a~");' '{}' | sort)" "$(body 'f("a");' | sort)"
  same "a fatal check" "$(printf '%s\n' 'MURN_CHECK((a));' '{}' | sort)" "$(body 'MURN_CHECK(a);' | sort)"
  same "no code" "" "$(faults <<<'#include <a/b.h>
// a < b
static_assert(1 < 2);
template <typename T> class C;
class D { virtual void f() = 0; };')"
}

# A program that does its worst in the place of a test.
harm() {
  unshare --user --map-root-user true 2>/dev/null || skip "this machine gives no user namespace"
  local visible=(bash "$KXPAL_SOURCE/tests/mutants/visible.sh" "$KXPAL_SOURCE")
  "${visible[@]}" true || skip "other users do not reach this checkout, and nothing can be mounted"
  chmod 755 "$scratch"
  mkdir library
  cp "$KXPAL_LIBRARY" library/faulty.so
  echo precious >library/precious
  chmod -R a+rwX library

  local status=0
  "${visible[@]}" python3 - "$scratch/library" >output 2>&1 <<'END' || status=$?
import os, sys, types
from pathlib import Path
from sandbox import Sandbox

worst = '''
cmp "$1/faulty.so" "$2" || exit 1
rm -rf "$1/precious"
echo more >"$1/more"
chmod 0700 "$1"
setsid sleep 4711.4711 &
exit 3
'''
library = os.environ["KXPAL_LIBRARY"]
sandbox = Sandbox(types.SimpleNamespace(library=Path(library)))
status, output = sandbox.run(Path(sys.argv[1], "faulty.so"), ["bash", "-c", worst, "worst", sys.argv[1], library], 60)
print(output)
sys.exit(status)
END
  same "the status of the program ($(tail -n 3 output))" 3 "$status"
  same "what is left" "$(printf '%s\n' faulty.so precious)" "$(ls library)"
  same "the mode of its folder" 777 "$(stat -c %a library)"
  same "what still runs" "" "$(grep -ls "[4]711.4711" /proc/[0-9]*/cmdline || true)"
}

run_case "$@"
