# Shared by the scripts in this folder: where things are, and configuring a
# build folder. Sourced, not run.
ORVO_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
ORVO_JOBS=${ORVO_JOBS:-$(nproc)}
# Let ccache share objects between checkouts of the tree (CI builds a fresh
# clone each time): paths relative to the tree, the build folder not hashed.
export CCACHE_BASEDIR="$ORVO_ROOT"
export CCACHE_NOHASHDIR=true

# orvo_configure BUILD_DIR [cmake args...]: configure once with Ninja; later
# calls only re-run cmake when the arguments change.
orvo_configure() {
  local dir="$1"; shift
  local stamp="$dir/.orvo-configure-args"
  local args="$*"
  if [ ! -f "$dir/build.ninja" ] || [ "$(cat "$stamp" 2>/dev/null)" != "$args" ]; then
    cmake -S "$ORVO_ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    printf '%s' "$args" > "$stamp"
  fi
}

orvo_build() {
  local dir="$1"; shift
  cmake --build "$dir" -j "$ORVO_JOBS" "$@"
}
