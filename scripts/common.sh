# What every scripts/dev command shares: where things are, the packages the
# build needs and how they are installed, configuring, building and running
# the suite, the firmware's size budget, and apt for armhf, which the two ARM
# targets fetch their sysroots with. Sourced by scripts/dev.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${LINKWARD_BUILD_DIR:-$root/build}
jobs=$(nproc)

packages=(
  cmake ninja-build g++ pkg-config python3
  protobuf-compiler libprotobuf-dev
  libgtest-dev libgmock-dev
  libcli11-dev nlohmann-json3-dev
  groff-base
)

# Installs the named Debian packages that are missing. An index that fails to
# refresh while a mirror syncs is tolerated; a package that cannot be
# installed is not.
apt_install() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  # Another install on this machine holds the lock for a while: wait for it.
  local wait=-oDPkg::Lock::Timeout=900
  $sudo apt-get "$wait" update || echo "apt-get update reported a failure; going on with the indexes we have" >&2
  DEBIAN_FRONTEND=noninteractive $sudo apt-get "$wait" install -y --no-install-recommends "${missing[@]}"
}

# Says which step of a long command starts.
step() { echo "== $*"; }

configure() {  # cmake arguments...
  cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@"
}

cmd_build() {
  configure "$@"
  cmake --build "$build_dir" -j "$jobs"
}

# The switches go on every configure that wants the tests (and the tool,
# where it is tested): a build folder once configured without them keeps
# them off in its cache otherwise.
with_tests=(-DBUILD_TESTING=ON -DLINKWARD_TESTS=ON)
with_tool=(-DLINKWARD_TOOLS=ON)

# The whole suite; a run where no test ran fails.
run_tests() {  # build folder, ctest arguments...
  ctest --test-dir "$1" --output-on-failure --no-tests=error -j "$jobs" "${@:2}"
}

# Runs one step of a long command and says how long it took.
timed() {  # label, command...
  local label=$1 started=$SECONDS
  shift
  "$@"
  echo "== $label: $((SECONDS - started)) s" >&2
}

# Built, with the library alone, and run by the build, through a cross
# build's emulator; a folder configured with the tests offers it.
footprint() {  # build folder
  cmake --build "$1" --target footprint
}

# Firmware's budget for the stripped library, in bytes, on both ARM targets
# (docs/performance.md says how it was set).
firmware_size_limit=106496

# apt-get for armhf with an apt state of its own in the folder given, so that
# the machine's apt setup stays as it is. A sources/ folder in the state, where
# there is one, stands in for the machine's sources.
armhf_apt() {  # apt state folder, apt-get arguments...
  local apt=$1
  shift
  local o=(-oAPT::Architecture=armhf -oAPT::Architectures=armhf
    -oDir::State::Lists="$apt/lists" -oDir::Cache="$apt/cache"
    -oAPT::Sandbox::User=root)
  [ -d "$apt/sources" ] &&
    o+=(-oDir::Etc::SourceList=/dev/null -oDir::Etc::SourceParts="$apt/sources")
  apt-get "${o[@]}" "$@"
}

# An index that fails to refresh while a mirror syncs is tolerated.
armhf_update() {  # apt state folder
  mkdir -p "$1/lists/partial" "$1/cache/archives/partial"
  armhf_apt "$1" update || echo "apt-get update (armhf) reported a failure; going on with the indexes we have" >&2
}

# Fetches the named armhf packages into the apt state's debs/ folder.
armhf_download() {  # apt state folder, packages...
  local apt=$1
  shift
  armhf_update "$apt"
  rm -rf "$apt/debs"
  mkdir -p "$apt/debs"
  (cd "$apt/debs" && armhf_apt "$apt" download "$@")
}

# A sysroot is unpacked once, until its list of packages changes.
sysroot_holds() {  # sysroot, packages...
  [ "$(cat "$1/.packages" 2>/dev/null)" = "${*:2}" ]
}

unpack_sysroot() {  # apt state folder, sysroot, packages...
  for deb in "$1"/debs/*.deb; do dpkg -x "$deb" "$2"; done
  echo "${*:3}" >"$2/.packages"
}
