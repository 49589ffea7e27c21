# Shared by the scripts, which source it: the Debian packages for each purpose, installation, builds.

# To build and run the host program.
build_packages="g++ cmake ninja-build pkg-config libsndfile1-dev libcli11-dev libfmt-dev nlohmann-json3-dev libxxhash-dev libebur128-dev nettle-dev libcairo2-dev"
# To build and run the tests: the test framework, and tools that check the outputs.
test_packages="$build_packages libgtest-dev libgmock-dev librapidcheck-dev fish groff-base make sox ffmpeg parallel patch python3 python3-jsonschema fuse3 libfuse3-dev python3-mutagen mediainfo libimage-exiftool-perl zsh"
# To make the Debian packages.
packaging_packages="$build_packages build-essential debhelper dpkg-dev fakeroot"
# To make the reference from the headers.
api_docs_packages="doxygen"
# For the checks of a change: a second compiler, and static analysis.
check_packages="$test_packages clang clang-format clang-tidy cppcheck libclang-rt-14-dev lintian llvm $api_docs_packages"
# To build many small changes of the sources quickly.
mutation_test_packages="$test_packages mold"
# To compare the core's binary interface with the accepted one.
abi_packages="$build_packages abigail-tools xz-utils"
# To run jobs on a Slurm cluster of this machine.
cluster_packages="slurm-wlm munge"

# The number of tests that run at once. Many tests wait, so it is one more than the processors.
test_jobs=$(($(nproc) + 1))

# install_packages PACKAGE...: reports and installs those that are missing.
install_packages() {
  local package missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "Installing Debian packages: ${missing[*]}" >&2
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      echo "Only root or sudo can install them. Install them, then try again." >&2
      return 1
    }
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  if ! {
    "${as_root[@]}" apt-get update &&
      "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
  } >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    rm -f "$log"
    echo "The packages cannot be installed; the lines above show the cause." >&2
    return 1
  fi
  rm -f "$log"
}

# show_progress: reads the output of a build, and shows on standard error how many of its steps are done:
# in one line on a terminal, and for each tenth elsewhere. Shows nothing unless show_build_progress is set.
show_progress() {
  [ -n "${show_build_progress-}" ] || {
    cat >/dev/null
    return
  }
  local line finished total tenth shown=0
  while IFS= read -r line; do
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\ [^R] ]] || continue # without "Re-running CMake"
    finished=${BASH_REMATCH[1]} total=${BASH_REMATCH[2]}
    tenth=$((finished * 10 / total))
    if [ -t 2 ]; then
      printf '\rBuilding: %d of %d steps\e[K' "$finished" "$total" >&2
      shown=1
    elif [ "$tenth" -ne "$shown" ]; then
      echo "Building: $finished of $total steps" >&2
      shown=$tenth
    fi
  done
  if [ -t 2 ] && [ "$shown" -ne 0 ]; then
    printf '\r\e[K' >&2
  fi
}

# build_preset PRESET TARGETS [CONFIGURE_ARGUMENT...]: configures a preset, if it is not configured or if
# there are arguments to add, and builds. Prints nothing unless something fails, or shows its progress
# where show_build_progress is set. TARGETS "all" is everything, and "" only configures.
build_preset() {
  local preset=$1 targets=$2
  shift 2
  local log
  log=$(mktemp)
  if ! {
    if [ ! -f "build/$preset/build.ninja" ] || [ $# -gt 0 ]; then
      cmake --preset "$preset" "$@"
    fi &&
      # shellcheck disable=SC2086
      { [ -z "$targets" ] || cmake --build --preset "$preset" --target $targets; }
  } 2>&1 | tee "$log" | show_progress; then
    cat "$log" >&2
    rm -f "$log"
    echo "The build of preset $preset failed; the lines above show the cause." >&2
    return 1
  fi
  rm -f "$log"
}
