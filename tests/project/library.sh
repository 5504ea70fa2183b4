# The library file itself.
. "$(dirname "$0")/support.sh"

soname() {
  contains "$(readelf -d "$KXPAL_LIBRARY")" "Library soname: [libkxPAL_impl.so]"
  same "the file's name" libkxPAL_impl.so "$(basename "$KXPAL_LIBRARY")"
}

symbols() {
  skip_under_sanitizers "the sanitizers export symbols of their own"
  "$KXPAL_SOURCE/scripts/update-symbols" --check "$KXPAL_LIBRARY"
}

# Each call that can fail has a test in which it does, and the guide says what comes of it.
faults() {
  skip_under_sanitizers "the sanitizers' own calls are among those of the library"
  "$KXPAL_SOURCE/scripts/update-faults" --check "$KXPAL_BUILD"
}

# What the library prints of its sources reads the same on every machine. Debug information, which does name the
# folders of the build, is not part of the comparison.
paths() {
  skip_under_sanitizers "the sanitizers keep source paths of their own"
  "$KXPAL_CMAKE" --install "$KXPAL_BUILD" --prefix "$scratch/prefix" --strip >/dev/null
  strings -n 8 prefix/lib/libkxPAL_impl.so >strings.txt
  local place
  place=$(grep -F "$KXPAL_SOURCE" strings.txt || true)
  same "strings with the folder of the sources" "" "$place"
  grep -qF ' File: src/core/Object.cpp line ' strings.txt || fail "no fatal check names src/core/Object.cpp"
}

# A compiler cache that is shared between checkouts calls sources by relative paths.
paths_through_a_cache() {
  skip_under_sanitizers "an object of its own is compiled, as in every other build"
  [ -n "$KXPAL_CCACHE" ] || skip "there is no compiler cache"
  export CCACHE_DIR=$scratch/cache CCACHE_BASEDIR=/
  use_host_settings
  "$KXPAL_CMAKE" -S "$KXPAL_SOURCE" -B build -DBUILD_TESTING=OFF >/dev/null
  local object=src/CMakeFiles/kxPAL_objects.dir/core/Object.cpp.o
  "$KXPAL_CMAKE" --build build --target "$object" >/dev/null
  contains "$(strings "build/$object" | grep ' File: ')" " File: src/core/Object.cpp line "
}

# replaceable OBJECT... - the functions that tests replace are found under the names that the library calls them by:
# headers call them otherwise for large files (fopen64) and for checked buffers (__recv_chk).
replaceable() {
  skip_under_sanitizers "the sanitizers have names of their own"
  local functions called name missing=
  functions=$(nm --defined-only "$@" | sed -nE 's/^[0-9a-f]+ T ([a-z]\w*)$/\1/p' | sort -u)
  called=$(nm -D --undefined-only "$KXPAL_LIBRARY" | sed -E 's/^ *U //; s/@.*//')
  contains "$functions" setsockopt
  contains "$called" setsockopt
  for name in $called; do
    local plain=${name%64}
    plain=${plain#__}
    plain=${plain%_chk}
    if [ "$plain" != "$name" ] && ! grep -qx "$name" <<<"$functions" && grep -qxE "$plain(64)?" <<<"$functions"; then
      missing+=" $name"
    fi
  done
  same "calls that no test can replace" "" "$missing"
}

# A fatal check ends the process while other threads still use what a destructor at its end would take from them. The
# C library's own start-up code has the one destructor that every library has, which calls those registered.
at_exit() {
  skip_under_sanitizers "the sanitizers have destructors of their own"
  local registering destructors
  registering=$(nm -D --undefined-only "$KXPAL_LIBRARY" |
    grep -oE '(__cxa_atexit|__cxa_thread_atexit(_impl)?|atexit|on_exit)\b' || true)
  same "what the library calls for the end of the process or of a thread" "" "$registering"
  destructors=$(readelf -SW "$KXPAL_LIBRARY" | sed -nE 's/.* \.fini_array +FINI_ARRAY +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) .*/\1/p')
  same "the size of its table of destructors" 000008 "$destructors"
}

run_case "$@"
