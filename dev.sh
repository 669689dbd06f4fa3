#!/usr/bin/env bash
# Developer entry point: sets the machine up (Debian packages), builds, and runs things.
#
#   ./dev.sh demo [--keep]     build the vantor program and run `vantor demo` (a portal session against a
#                              local reference gateway)
#   ./dev.sh portal [--host H] [--port P]
#                              build, start the reference gateway on a copy of the sample archive and serve
#                              the sample portal on it (default http://127.0.0.1:8080/); Ctrl-C stops it
#   ./dev.sh test              build and run the whole test suite
#   ./dev.sh test --sanitize   the same, built with AddressSanitizer and UndefinedBehaviorSanitizer
#   ./dev.sh build             build only (build/)
#   ./dev.sh bench             build and run the benchmarks (figures as ratios against a baseline)
#   ./dev.sh deps              install the Debian packages the project needs
set -euo pipefail
cd "$(dirname "$0")"

PACKAGES=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev libsqlite3-dev sqlite3
          unixodbc-dev odbc-postgresql postgresql libcli11-dev nlohmann-json3-dev libasio-dev
          python3-dev pybind11-dev python3-pytest
          python3-flask python3-waitress gunicorn python3-selenium chromium chromium-driver
          libsodium-dev pkg-config)

say() { printf '\033[1m==> %s\033[0m\n' "$*" >&2; }

deps() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  say "installing Debian packages: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

build() {  # build DIR [cmake options...]; only the target $BUILD_TARGET when that is set
  local dir=$1; shift
  deps
  if [ ! -f "$dir/build.ninja" ]; then
    say "configuring $dir"
    local launcher=()
    # ccache, when present, shares compiled objects between build folders and checkouts of this tree.
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
    cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
  fi
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
  say "building $dir"
  # BUILD_TARGET may name several targets, separated by blanks.
  # shellcheck disable=SC2086
  cmake --build "$dir" ${BUILD_TARGET:+--target $BUILD_TARGET} -- -j"$(nproc)"
}

cmd=${1:-test}
shift || true
case "$cmd" in
  deps) deps ;;
  build) build build ;;
  demo)
    BUILD_TARGET=vantor build build
    say "running vantor demo"
    exec build/tools/vantor/vantor demo "$@"
    ;;
  portal)
    BUILD_TARGET="vantor vantor-gateway halqvantor_python" build build
    say "serving the sample portal"
    exec /usr/bin/python3 portal/sample_site.py --build build "$@"
    ;;
  test)
    dir=build
    opts=()
    if [ "${1:-}" = "--sanitize" ]; then
      dir=build-sanitize
      # The Python module stays out: an interpreter without the sanitizers cannot load it.
      opts=(-DHALQVANTOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DHALQVANTOR_BUILD_PYTHON=OFF)
      export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
      export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
    fi
    build "$dir" "${opts[@]}"
    say "running the tests ($dir)"
    ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
    ;;
  bench)
    build build
    for b in build/bench/*_bench; do
      [ -x "$b" ] || continue
      say "$(basename "$b")"
      "$b"
    done
    if [ -d build/python/halqvantor ]; then
      say "python_bench"
      PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py build/tools/gateway/vantor-gateway
    fi
    ;;
  *)
    echo "usage: ./dev.sh {demo [--keep]|portal [--host H] [--port P]|test [--sanitize]|build|bench|deps}" >&2
    exit 2
    ;;
esac
