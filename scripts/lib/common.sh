# shellcheck shell=bash
# Helpers shared by scripts/test.sh and scripts/demo.sh: Debian package
# installation and small output helpers. Source it: it defines package lists
# and functions and runs nothing.

# shellcheck disable=SC2034  # used by the scripts that source this file
# Packages for building and testing every configuration.
PB_TEST_PACKAGES=(
  cmake ninja-build g++ pkg-config
  libgtest-dev googletest libgmock-dev libbenchmark-dev libsimde-dev
  g++-aarch64-linux-gnu qemu-user
  libcli11-dev libpng-dev libjpeg62-turbo-dev libyuv-dev nlohmann-json3-dev
  clang libclang-rt-14-dev binutils
  git python3 python3-pil
  libcpp-httplib-dev chromium chromium-driver python3-selenium
)

# shellcheck disable=SC2034
# Packages for a host Release build of the library and the command-line tool.
PB_DEMO_PACKAGES=(
  cmake ninja-build g++ pkg-config libsimde-dev
  libcli11-dev libpng-dev libjpeg62-turbo-dev libyuv-dev
  libcpp-httplib-dev nlohmann-json3-dev
)

pb_note() { printf '== %s\n' "$*"; }
pb_error() { printf 'error: %s\n' "$*" >&2; }

# Prints the packages of "$@" that dpkg does not report as installed.
pb_missing_packages() {
  local pkg status
  for pkg in "$@"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || printf '%s\n' "$pkg"
  done
}

# Installs the missing packages of "$@" with apt-get (as root, or through sudo).
# Runs 'apt-get update' only when something is missing. Returns non-zero when
# the packages cannot be installed.
pb_install_packages() {
  if ! command -v dpkg-query >/dev/null 2>&1; then
    pb_note "not a Debian system: not checking packages (${*})"
    return 0
  fi
  local missing
  mapfile -t missing < <(pb_missing_packages "$@")
  if [[ ${#missing[@]} -eq 0 ]]; then
    return 0
  fi
  pb_note "installing: ${missing[*]}"
  local -a as_root=()
  if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null 2>&1; then
      pb_error "missing packages ${missing[*]}; run as root or install sudo"
      return 1
    fi
    as_root=(sudo)
  fi
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y
             -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold)
  local attempt
  for attempt in 1 2; do
    if "${apt[@]}" update && "${apt[@]}" install --no-install-recommends "${missing[@]}"; then
      return 0
    fi
    pb_note "package installation failed (attempt ${attempt})"
    sleep 5
  done
  pb_error "could not install: ${missing[*]}"
  return 1
}

# True when the Debian packages "$@" are installed for arm64 (multiarch).
pb_have_arm64_packages() {
  local pkg
  for pkg in "$@"; do
    [[ $(dpkg-query -W -f='${Status}' "${pkg}:arm64" 2>/dev/null || true) == "install ok installed" ]] ||
      return 1
  done
}
