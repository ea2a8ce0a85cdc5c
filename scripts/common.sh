# Sourced by the other scripts, which set $root (the top of the tree) first.
set -eu
: "${root:?has to be set before}"

say() {
  printf '%s\n' "$*" >&2
}

die() {
  say "$@"
  exit 1
}

# A relative folder would mean another place to every program that is called from elsewhere.
case ${ONNXRUNTIME_ROOT-} in
  '' | /*) ;;
  *) export ONNXRUNTIME_ROOT="$PWD/$ONNXRUNTIME_ROOT" ;;
esac

# Whether a build folder was configured for this tree and for the ONNX Runtime that is asked for.
is_configured() {
  [ -f "$1/build.ninja" ] &&
    grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$1/CMakeCache.txt" &&
    grep -qxF "ONNXRUNTIME_ROOT:PATH=${ONNXRUNTIME_ROOT-}" "$1/CMakeCache.txt"
}

# Configures the CMake preset $1 unless that is done; CMake is called again by the build itself
# when one of its files changes.
configure_preset() {
  if ! is_configured "$root/build/$1"; then
    say "Configuring build/$1"
    (cd "$root" && cmake --fresh --preset "$1") >&2
  fi
}

# Brings the build of the CMake preset $1, or of its targets that follow, up to date; says nothing
# when it is.
build_preset() {
  preset=$1
  shift
  configure_preset "$preset"
  if [ "$(ninja -C "$root/build/$preset" -n "$@" | tail -n 1)" != 'ninja: no work to do.' ]; then
    say "Building build/$preset"
    ninja -C "$root/build/$preset" "$@" >&2
  fi
}
