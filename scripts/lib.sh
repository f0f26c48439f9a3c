# Shared by the scripts: the root of the tree, and one way to configure and build a preset.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

die() { echo "$(basename "$0"): $*" >&2; exit 1; }

# build_preset PRESET [TARGET...]: configures when needed and builds.
build_preset() {
  local preset=$1; shift
  cmake --preset "$preset" --log-level=WARNING
  if [ "$#" -gt 0 ]; then
    cmake --build --preset "$preset" --target "$@"
  else
    cmake --build --preset "$preset"
  fi
}
