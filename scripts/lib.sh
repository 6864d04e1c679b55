# What the scripts share: messages, and the tools they need. Sourced, never run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }
fail() { printf 'ERROR: %s\n' "$*" >&2; exit 1; }

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

has_googletest() {
  compgen -G '/usr/lib/*/libgtest.*' || compgen -G '/usr/lib*/libgtest.*' || compgen -G '/usr/local/lib*/libgtest.*'
} > /dev/null

# The Debian or Ubuntu packages of what is not there yet, one a line.
missing_packages() {
  command -v cmake > /dev/null || echo cmake
  command -v g++ > /dev/null || echo g++
  command -v make > /dev/null || echo make
  command -v python3 > /dev/null || echo python3
  command -v unshare > /dev/null || echo util-linux
  command -v mount > /dev/null || echo mount
  has_googletest || echo libgtest-dev
}

# install_packages PACKAGE...: through apt-get, or fails with what is missing.
install_packages() {
  command -v apt-get > /dev/null || fail "missing: $* (and there is no apt-get to install them with)"
  [ "$(id -u)" -eq 0 ] || command -v sudo > /dev/null || fail "missing: $* (install them as root; there is no sudo)"
  say "Installing $*"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@"
}

# Installs what is missing; touches neither network nor package lists when everything is there.
ensure_tools() {
  local packages
  mapfile -t packages < <(missing_packages)
  if [ "${#packages[@]}" -gt 0 ]; then
    install_packages "${packages[@]}"
    mapfile -t packages < <(missing_packages)
    [ "${#packages[@]}" -eq 0 ] || fail "still missing after installing: ${packages[*]}"
  fi
}

# build PRESET [TARGET...]: configures and builds into build/PRESET.
build() {
  local preset=$1
  shift
  say "Building build/$preset"
  cmake --preset "$preset" > /dev/null
  cmake --build "build/$preset" -j "$(nproc)" ${1:+--target "$@"}
}
