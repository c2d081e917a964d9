# Sourced by the other scripts: installs what is missing on a Debian 12 or 13 machine, and builds.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(g++ cmake ninja-build pkg-config libjsoncpp-dev libcurl4-openssl-dev libgtest-dev
                libgmock-dev python3)
test_packages=(python3 openssl procps)
check_packages=(clang clang-format clang-tidy binutils git)
browser_packages=(qtwebengine5-dev libqt5webenginewidgets5 xvfb xauth libgl1-mesa-dri
                  fonts-dejavu-core python3)
browsers_packages=(chromium firefox-esr imagemagick libnss3-tools node-typescript openssl python3)
bench_packages=(libwebsockets-dev)
picture_packages=(xvfb xauth imagemagick fonts-dejavu-core)
fuzz_packages=(clang libclang-rt-dev)
# Debian 12 has a second engine that takes modules; that of Debian 13 does no more.
if grep -qx 'VERSION_ID="12"' /etc/os-release; then browser_packages+=(qt6-webengine-dev); fi

# install PACKAGE...: those that are not there yet, as root or with sudo.
install() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  echo "Installing: ${missing[*]}" >&2
  "${as_root[@]}" apt-get update -qq >&2
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# build PRESET: configures and builds what the preset of that name in CMakePresets.json says.
build() {
  local log status=0
  log=$(mktemp)
  (cd "$top" && cmake --preset "$1") >"$log" 2>&1 || { status=$?; cat "$log" >&2; }
  rm -f "$log"
  [ "$status" -eq 0 ] && (cd "$top" && cmake --build --preset "$1")
}
