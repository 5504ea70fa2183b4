# The installed tree, and hosts outside the project that are built against it.
. "$(dirname "$0")/support.sh"
tests=$(cd "$(dirname "$0")" && pwd)

public_headers() {
  (cd "$KXPAL_SOURCE/inc" && ls -- *.h | grep -vx Stream_glib.h)
}

files() {
  install_tree
  local expected actual
  expected=$(
    public_headers | sed 's|^|include/kxPAL/|'
    echo lib/libkxPAL_impl.so
    echo lib/pkgconfig/kxPAL.pc
    printf 'lib/cmake/kxPAL/%s.cmake\n' kxPALConfig kxPALConfigVersion kxPALPlugin kxPALTargets kxPALTargets-CONFIG
  )
  actual=$(cd "$prefix" && find . ! -type d | sed -E 's|^\./||; s|kxPALTargets-[a-z]+|kxPALTargets-CONFIG|')
  same "what is installed" "$(sort <<<"$expected")" "$(sort <<<"$actual")"

  if grep -rIlF -e "$scratch" -e "$KXPAL_BUILD" -e "$KXPAL_SOURCE" "$prefix"; then
    fail "these installed files name a folder of this machine"
  fi
  if grep -ihv '^#' "$prefix"/lib/cmake/kxPAL/* | grep -i glib; then
    fail "the CMake package asks hosts for GLib"
  fi
}

# What packagers choose for other systems.
places() {
  skip_under_sanitizers "a build tree of its own is configured, as in every other build"
  use_host_settings
  configure() { "$KXPAL_CMAKE" -S "$KXPAL_SOURCE" -B build -DBUILD_TESTING=OFF "$@"; }
  configure -DCMAKE_INSTALL_LIBDIR=lib/of/another -DCMAKE_INSTALL_INCLUDEDIR=headers >/dev/null
  export PKG_CONFIG_LIBDIR=$scratch/prefix/lib/of/another/pkgconfig
  mkdir -p "$PKG_CONFIG_LIBDIR" prefix/headers
  cp build/kxPAL.pc "$PKG_CONFIG_LIBDIR"
  same "the library's folder" "$scratch/prefix/lib/of/another" "$(realpath "$(pkg-config --variable=libdir kxPAL)")"
  same "the headers' folder" "$scratch/prefix/headers" "$(realpath "$(pkg-config --variable=includedir kxPAL)")"

  local output
  output=$(configure -DCMAKE_INSTALL_LIBDIR="$scratch/elsewhere" 2>&1) && fail "a folder outside of the prefix was taken"
  contains "$(tr -s "[:space:]" " " <<<"$output")" "CMAKE_INSTALL_LIBDIR is $scratch/elsewhere: name a folder below the prefix"
}

classes() {
  install_tree
  cd "$prefix/include/kxPAL"
  local headers classes included
  headers=$(ls -- *.h | grep -vxE 'Check\.h|Export\.h|Murn\.h|Murn_c\.h|PluginEntry\.h')
  classes=$(sed -nE 's/^(class|struct) MURN_API ([A-Za-z]+)( .*)?$/\2.h/p' -- *.h | sort)
  same "a header for each class, and no other" "$(sort <<<"$headers")" "$classes"
  included=$(sed -nE 's/^#include "(.*)"$/\1/p' Murn.h)
  same "Murn.h includes all others" "$(ls -- *.h | grep -vx Murn.h | sort)" "$(sort <<<"$included")"
}

# expect_greeting HOST [GREETING] - runs a host that was linked, without a path, against the library in the prefix.
expect_greeting() {
  local output
  output=$(LD_LIBRARY_PATH=$prefix/lib "$1") || fail "the host ended with $?: $output"
  same "the host's output" "${2-Delivered on the main thread.}" "$output"
}

# Without a package but this one: hosts need none of GLib's.
pkg_config() {
  install_tree
  export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
  local flags
  flags=$(pkg-config --cflags --libs kxPAL)
  contains "$flags" -lkxPAL_impl
  # shellcheck disable=SC2086 # the flags are words
  "$KXPAL_CXX" -std=c++11 -Wall -Wextra -Wpedantic -Werror "${host_flags[@]}" "$tests/host/main.cpp" -o host $flags
  expect_greeting ./host
}

# A host in C needs a compiler and a linker of C alone.
pkg_config_for_c() {
  skip_under_sanitizers "the sanitizers want the linker of C++"
  install_tree
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  local flags
  flags=$(pkg-config --cflags --libs kxPAL)
  # shellcheck disable=SC2086 # the flags are words
  "$KXPAL_CC" -std=c11 -Wall -Wextra -pedantic -Wstrict-prototypes -Werror "$tests/host/main.c" -o host $flags
  expect_greeting ./host "An event of type 100."
}

find_package() {
  install_tree
  cp -r "$tests/host" source
  use_host_settings
  "$KXPAL_CMAKE" -S source -B build -DCMAKE_PREFIX_PATH="$prefix"
  "$KXPAL_CMAKE" --build build
  expect_greeting build/host
}

# A plug-in and its host, in a project of their own.
plugins() {
  install_tree
  cp -r "$tests/plugins" source
  use_host_settings
  "$KXPAL_CMAKE" -S source -B build -DCMAKE_PREFIX_PATH="$prefix"
  "$KXPAL_CMAKE" --build build
  local output
  output=$(LD_LIBRARY_PATH=$prefix/lib build/host build/greeter.so) || fail "the host ended with $?: $output"
  same "the host's output" "$(printf '%s\n' "Loaded: greeter" "Hello from a plug-in." "Good-bye." "The greeter is gone.")" \
    "$output"
  same "what of its own leaves the plug-in" __Ormet_PAL_PluginLoad \
    "$(nm -D --defined-only build/greeter.so | sed -n 's/.* [BDRT] //p')"
}

# One without CMake, from the flags that pkg-config tells.
plugin_by_hand() {
  install_tree
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  local flags output
  flags=$(pkg-config --cflags --libs kxPAL)
  # shellcheck disable=SC2086 # the flags are words
  "$KXPAL_CXX" -std=c++11 -fPIC -shared "${host_flags[@]}" "$tests/plugins/greeter.cpp" -o greeter.so $flags
  # shellcheck disable=SC2086 # the flags are words
  "$KXPAL_CXX" -std=c++11 "${host_flags[@]}" "$tests/plugins/host.cpp" -o host $flags
  output=$(LD_LIBRARY_PATH=$prefix/lib ./host ./greeter.so) || fail "the host ended with $?: $output"
  contains "$output" "Loaded: greeter"
}

run_case "$@"
