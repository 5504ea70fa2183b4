# What the scripts share: the packages that they need, and how to get them. For sourcing, from the project's root.

# The packages of Debian 12, by what needs them. They are listed here and nowhere else.
LIBRARY_PACKAGES=(cmake g++ libglib2.0-dev ninja-build pkg-config)
EXAMPLE_PACKAGES=("${LIBRARY_PACKAGES[@]}" libcli11-dev)
TEST_PACKAGES=("${EXAMPLE_PACKAGES[@]}" binutils iproute2 libbenchmark-dev libgmock-dev libgtest-dev
  nlohmann-json3-dev)
COVERAGE_PACKAGES=("${TEST_PACKAGES[@]}" gcovr)
FORMAT_PACKAGES=(clang-format-14 git)
TSAN_PACKAGES=("${TEST_PACKAGES[@]}" clang-14 dpkg-dev libclang-rt-14-dev llvm-14 meson)
TIDY_PACKAGES=("${TEST_PACKAGES[@]}" clang-14 clang-tidy-14)
ABI_PACKAGES=("${LIBRARY_PACKAGES[@]}" abigail-tools g++-12)
MUTANT_PACKAGES=("${TEST_PACKAGES[@]}" python3 util-linux)
FUZZ_PACKAGES=("${LIBRARY_PACKAGES[@]}" clang-14 libclang-rt-14-dev llvm-14)

# say WORD... - tells the user what goes on, apart from the output of the programs that a script runs.
say() {
  printf '%s\n' "$*" >&2
}

# missing_packages PACKAGE... - prints those that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      printf '%s\n' "$package"
    fi
  done
}

# may_be_root - whether as_root can work. Asks for a password only where somebody can type one.
may_be_root() {
  [ "$(id -u)" -eq 0 ] && return
  command -v sudo >/dev/null || return
  sudo -n true 2>/dev/null || { [ -t 0 ] && sudo -v; }
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

# apt_get ARGUMENT... - waits for an apt that runs already, as a new machine's own upgrade does.
apt_get() {
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq -y -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@" >/dev/null
}

# install_packages PACKAGE... - with fresh package lists where those at hand know too little or are out of date.
install_packages() {
  apt_get install --no-install-recommends "$@" 2>/dev/null ||
    { apt_get update && apt_get install --no-install-recommends "$@"; }
}

# need_packages PACKAGE... - installs what is missing, or names it and ends the script.
need_packages() {
  if ! command -v dpkg-query >/dev/null; then
    say "This is no Debian; what Debian calls $* must be there."
    return
  fi

  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -eq 0 ] && return

  if ! may_be_root; then
    say "These packages are missing, and installing them takes root or sudo: ${missing[*]}"
    exit 1
  fi
  say "Installing what is missing, which can take some minutes: ${missing[*]}"
  if ! install_packages "${missing[@]}"; then
    say "These packages are missing and could not be installed: ${missing[*]}"
    exit 1
  fi
}
