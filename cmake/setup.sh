# Shared by ./usb4lab and ./check: packages and builds. Sourced, with $root set. All its messages go to stderr.

# What the tool needs, and what the checks need beyond it.
tool_packages="g++ cmake ninja-build ccache libboost-context-dev libtomlplusplus-dev libcli11-dev libfmt-dev nlohmann-json3-dev"
check_packages="libgtest-dev g++-mingw-w64-x86-64 clang-format universal-ctags python3 binutils git patch tshark"

say() { printf '%s\n' "$*" >&2; }

# install_missing PACKAGE...: installs what is missing when that is allowed, else says which packages to install and ends.
install_missing() {
  local missing="" package state
  for package in "$@"; do
    state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) || state=""
    [ "$state" = installed ] || missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  local become=""
  if [ "$(id -u)" != 0 ]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then become="sudo -n"; else
      say "Missing Debian packages; please install them:"
      say "  apt-get install$missing"
      exit 5
    fi
  fi
  say "Installing$missing"
  # shellcheck disable=SC2086
  if ! { $become apt-get update -qq && DEBIAN_FRONTEND=noninteractive $become apt-get install -y -qq --no-install-recommends $missing; } >&2; then
    say "Installing failed; please install:$missing"
    exit 5
  fi
}

# build PRESET TARGET...: configures once and builds; silent when all is well. The log stays in build/PRESET.log.
# One build of a preset at a time, however many shells ask.
build() {
  mkdir -p "$root/build"
  (flock 9 && build_locked "$@" 9>&-) 9>"$root/build/$1.lock"
}

build_locked() {
  local preset=$1 log="$root/build/$1.log"
  shift
  : >"$log"
  if [ ! -f "$root/build/$preset/build.ninja" ]; then
    if ! (cd "$root" && cmake --preset "$preset") >>"$log" 2>&1; then
      tail -40 "$log" >&2
      return 1
    fi
  fi
  if ! ninja -C "$root/build/$preset" "$@" >>"$log" 2>&1; then
    grep -E -A12 'error|FAILED' "$log" | head -60 >&2
    return 1
  fi
}
