# The scripts that set up a machine, on a machine that is made up: stand-ins answer for the package tools.
. "$(dirname "$0")/support.sh"

# stand_in NAME - puts a command in front of all others; its body comes from standard input.
stand_in() {
  mkdir -p bin
  { echo '#!/usr/bin/env bash' && cat; } >"bin/$1"
  chmod +x "bin/$1"
}

# machine USER_ID PACKAGE... - a Debian with these packages, whose apt-get notes down what it is asked for.
machine() {
  local id=$1
  shift
  export PATH=$scratch/bin:$PATH SCRATCH=$scratch
  printf '%s\n' "$@" >installed
  : >asked
  stand_in id <<<"echo $id"
  stand_in sudo <<<'exit 1'
  stand_in dpkg-query <<<'grep -qxF "${@: -1}" "$SCRATCH/installed" && printf installed'
  stand_in apt-get <<'END'
while [[ $1 == -* ]]; do
  [ "$1" = -o ] && shift
  shift
done
echo "$*, $DEBIAN_FRONTEND" >>"$SCRATCH/asked"
if [ "$1" = update ]; then
  touch "$SCRATCH/fresh"
else
  [ ! -e "$SCRATCH/stale" ] || [ -e "$SCRATCH/fresh" ]
fi
END
}

# need PACKAGE... - what a script does that needs them.
need() {
  bash -c '. "$KXPAL_SOURCE/scripts/lib.sh" && need_packages "$@"' need "$@" </dev/null 2>messages
}

install_missing() {
  machine 0 one three
  need one two three four || fail "it ended with $?"
  same "what apt-get was asked for" "install --no-install-recommends two four, noninteractive" "$(cat asked)"

  machine 0 one two
  need one two || fail "it ended with $?"
  same "what apt-get was asked for" "" "$(cat asked)"
}

refresh_lists() {
  machine 0
  touch stale
  need one || fail "it ended with $?"
  same "what apt-get was asked for" "$(
    printf '%s, noninteractive\n' "install --no-install-recommends one" update "install --no-install-recommends one"
  )" "$(cat asked)"
}

# Every script gets its packages in the same way; the demo stands for all of them.
not_allowed() {
  machine 1000 cmake g++ ninja-build
  local status=0
  "$KXPAL_SOURCE/scripts/demo" </dev/null >output 2>messages || status=$?
  same "status" 1 "$status"
  same "output" "" "$(cat output)"
  same "messages" \
    "These packages are missing, and installing them takes root or sudo: libglib2.0-dev pkg-config libcli11-dev" \
    "$(cat messages)"
  same "what apt-get was asked for" "" "$(cat asked)"
}

installing_fails() {
  machine 0 one
  stand_in apt-get <<<'exit 100'
  local status=0
  need one two || status=$?
  same "status" 1 "$status"
  same "last message" "These packages are missing and could not be installed: two" "$(tail -n 1 messages)"
}

unknown_example() {
  local status=0
  "$KXPAL_SOURCE/scripts/demo" nothing_like_it >output 2>messages || status=$?
  same "status" 2 "$status"
  same "output" "" "$(cat output)"
  contains "$(cat messages)" 'There is no example "nothing_like_it".'
  contains "$(cat messages)" "  tour"
}

unknown_preset() {
  local status=0
  "$KXPAL_SOURCE/scripts/test" --preset nothing_like_it >output 2>messages || status=$?
  same "status" 2 "$status"
  contains "$(cat messages)" "usage: scripts/test"
}

unknown_soak() {
  local status=0
  "$KXPAL_SOURCE/scripts/soak" 1 --preset nothing_like_it >output 2>messages || status=$?
  same "status" 2 "$status"
  contains "$(cat messages)" "usage: scripts/soak"

  status=0
  "$KXPAL_SOURCE/scripts/soak" --preset release >output 2>messages || status=$?
  same "status without a time" 2 "$status"
  contains "$(cat messages)" "usage: scripts/soak"
}

no_number() {
  local arguments status
  for arguments in "" "x" "1 x" "1 2 3" "--preset nothing_like_it 1"; do
    status=0
    # shellcheck disable=SC2086 # the arguments are words
    "$KXPAL_SOURCE/scripts/perturb" $arguments >output 2>messages || status=$?
    same "status of scripts/perturb $arguments" 2 "$status"
    contains "$(cat messages)" "usage: scripts/perturb"
  done
}

# Nothing is installed, and no package list can be fetched: whoever calls may do without.
no_glib_source() {
  . "$KXPAL_SOURCE/scripts/lib.sh"
  machine 0 "${TSAN_PACKAGES[@]}" libglib2.0-0
  stand_in apt-get <<<'exit 100'
  stand_in dpkg-query <<<'case $* in *Version*) printf 2.99.9-1 ;; *) printf installed ;; esac'
  local status=0
  "$KXPAL_SOURCE/scripts/build-tsan-glib" "$scratch/glib" >output 2>messages || status=$?
  same "status" 77 "$status"
  same "output" "" "$(cat output)"
  same "last message" "The source of GLib 2.99.9-1 is not to be had." "$(tail -n 1 messages)"
}

# Seconds are a number, and a target one that has a corpus.
unknown_fuzz_target() {
  local status=0
  "$KXPAL_SOURCE/scripts/fuzz" 10 nothing_like_it >output 2>messages || status=$?
  same "status" 2 "$status"
  contains "$(cat messages)" 'There is no target "nothing_like_it".'
  contains "$(cat messages)" "  stream"

  status=0
  "$KXPAL_SOURCE/scripts/fuzz" stream >output 2>messages || status=$?
  same "status" 2 "$status"
  contains "$(cat messages)" "usage: scripts/fuzz"
}

run_case "$@"
