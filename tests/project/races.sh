# What the thread sanitizer of the build notices.
. "$(dirname "$0")/support.sh"

# silent PROGRAM - threads that meet in the library are no race.
silent() {
  local status=0
  "$1" event >output 2>report || status=$?
  same "status" 0 "$status"
  same "output" "42 by event" "$(cat output)"
  same "report" "" "$(cat report)"
}

# reported PROGRAM - the same without the library is one.
reported() {
  local status=0
  "$1" memory >output 2>report || status=$?
  same "status" 66 "$status"
  same "output" "42 by memory" "$(cat output)"
  contains "$(cat report)" "WARNING: ThreadSanitizer: data race"
  contains "$(cat report)" "handOverByMemory"
}

# suppressions FILE - what the sanitizer is told not to report.
suppressions() {
  same "the lines of $1" "race:localtime" "$(grep -v '^#' "$1")"
}

run_case "$@"
