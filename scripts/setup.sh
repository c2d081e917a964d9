# Sourced by the other scripts: installs what is missing on a Debian 12 or 13 machine, and builds.
# What goes on stands on standard error; standard output is the script's own.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(g++ cmake ninja-build pkg-config libjsoncpp-dev libcurl4-openssl-dev libgtest-dev
                libgmock-dev python3)
test_packages=(python3 openssl procps)
check_packages=(clang clang-format clang-tidy binutils git)
browser_packages=(qtwebengine5-dev libqt5webenginewidgets5 xvfb xauth libgl1-mesa-dri
                  fonts-dejavu-core python3)
browsers_packages=(chromium firefox-esr imagemagick libnss3-tools node-typescript openssl python3)
bench_packages=(libwebsockets-dev libuv1-dev libbenchmark-dev gnuplot-nox)
# For what tests murmelparl.js. A machine may have them from elsewhere than Debian.
pages_packages=()
command -v node >/dev/null || pages_packages+=(nodejs)
command -v npm >/dev/null || pages_packages+=(npm)
command -v tsc >/dev/null || pages_packages+=(node-typescript)
picture_packages=(xvfb xauth imagemagick fonts-dejavu-core)
fuzz_packages=(clang libclang-rt-dev)
# Debian 12 has a second engine that takes modules; that of Debian 13 does no more.
if grep -qx 'VERSION_ID="12"' /etc/os-release; then browser_packages+=(qt6-webengine-dev); fi

# say TEXT...: a line with the time of day. Without control characters, so that it suits a log too.
say() { printf '%(%H:%M:%S)T  %s\n' -1 "$*" >&2; }

# give_up WHAT REMEDY: ends the script with what failed and what to try.
give_up() {
  printf '\n%s: %s\nTry: %s\n' "$0" "$1" "$2" >&2
  exit 1
}

progress_every=20  # seconds

# follow LOG: writes what it reads to the file, and says a line of it from time to time.
follow() {
  local line last=$SECONDS
  while IFS= read -r line || [ -n "$line" ]; do
    printf '%s\n' "$line"
    if ((SECONDS - last >= progress_every)); then
      last=$SECONDS
      line=${line##*$'\r'}
      say "  ${line//[![:print:]]/}"
    fi
  done >"$1"
}

# line_of LOG PATTERN...: the first line that has the first pattern, or the next; else the last line.
line_of() {
  local log=$1 pattern
  shift
  for pattern in "$@"; do
    grep -m 1 -E -e "$pattern" "$log" && return 0
  done
  tail -n 1 "$log"
}

# install PACKAGE...: those that are not there yet, as root or with sudo.
install() {
  local missing=() package
  for package in "$@"; do
    [[ " ${missing[*]} " != *" $package "* ]] || continue
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  command -v apt-get >/dev/null || give_up "there is no apt-get to install ${missing[*]}" \
    "Debian 12 or 13, or install by other means what docs/building.md lists and build by hand"
  local as_root=() began=$SECONDS log
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      give_up "packages are missing, and there is neither root nor sudo to install them" \
        "as root: apt-get install --no-install-recommends ${missing[*]}"
    as_root=(sudo)
  fi
  say "Installing ${missing[*]}"
  log=$(mktemp)
  install_with "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -q -o DPkg::Lock::Timeout=60 2>&1 | follow "$log" || install_failed "$log"
  rm -f "$log"
  say "Installed, $((SECONDS - began)) s"
}

# install_with APT-GET...: installs `missing`. Lists that could not be fetched may still do.
install_with() {
  "$@" update || true
  "$@" install -y --no-install-recommends "${missing[@]}"
}

install_failed() {
  local what remedy
  local unreachable='Temporary failure|[Cc]ould not (connect|resolve)|unreachable|timed out'
  grep -E '^(W|E|Err|dpkg|sudo):' "$1" >&2 || cat "$1" >&2
  what=$(line_of "$1" "^[WE]: .*($unreachable)" '^E: ')
  remedy="as root: apt-get install --no-install-recommends ${missing[*]}"
  if grep -qE "$unreachable" "$1"; then
    remedy="see that apt-get update works (network, proxy, sources), then $0 again"
  fi
  rm -f "$1"
  give_up "apt-get failed: $what" "$remedy"
}

# build PRESET [TARGET...]: configures and builds what the preset of that name in CMakePresets.json
# says, or those targets of it alone.
build() {
  local began=$SECONDS log targets=("${@:2}")
  log=$(mktemp)
  say "Configuring, preset $1"
  (cd "$top" && cmake --preset "$1") 2>&1 | follow "$log" ||
    configure_failed "$1" "$log"
  say "Building, preset $1; the first time takes minutes"
  (cd "$top" && cmake --build --preset "$1" ${targets[0]:+--target "${targets[@]}"}) 2>&1 |
    follow "$log" || build_failed "$1" "$log"
  rm -f "$log"
  say "Built, $((SECONDS - began)) s"
}

configure_failed() {
  local what
  cat "$2" >&2
  # The text of an error stands on the line below its place.
  what=$(grep -m 1 -A 1 '^CMake Error' "$2" | tr -s '\n ' ' ' || tail -n 1 "$2")
  rm -f "$2"
  give_up "cmake failed: ${what% }" \
    "cmake --fresh --preset $1, which forgets what an earlier run found"
}

build_failed() {
  local what remedy="mend it, then: cmake --build --preset $1"
  # Without the steps that went well.
  grep -vE '^\[[0-9]+/[0-9]+\] ' "$2" >&2 || true
  what=$(line_of "$2" 'No space left on device' 'Killed signal' \
    'error:|undefined reference' '^FAILED')
  case $what in
    *"No space left on device"*) remedy="free some space and run $0 again" ;;
    *"Killed signal"*) remedy="CMAKE_BUILD_PARALLEL_LEVEL=1 $0, which needs less memory" ;;
  esac
  rm -f "$2"
  give_up "the build failed: ${what#../}" "$remedy"
}
