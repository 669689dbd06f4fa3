#!/usr/bin/env bash
# Developer entry point: sets the machine up (Debian packages), builds, and runs things.
#
#   ./dev.sh demo [--keep]     build the vantor program and run `vantor demo` (a portal session against a
#                              local reference gateway)
#   ./dev.sh portal [--host H] [--port P]
#                              build, start the reference gateway on a copy of the sample archive and serve
#                              the sample portal on it (default http://127.0.0.1:8080/); Ctrl-C stops it
#   ./dev.sh test              build and run the whole test suite
#   ./dev.sh test --no-postgres
#                              the same without the PostgreSQL server: the PostgreSQL cases are skipped
#   ./dev.sh test --sanitize   the same, built with AddressSanitizer and UndefinedBehaviorSanitizer
#   ./dev.sh test --tsan       the concurrency test (16 objects on 16 threads, 1,000 requests each against
#                              the reference gateway) under ThreadSanitizer
#   ./dev.sh fuzz [TARGET|all] [SECONDS]
#                              build the libFuzzer targets (build-fuzz, clang) and run one or all of them
#                              for SECONDS each (default 60) over a copy of their seed corpus
#   ./dev.sh build             build only (build/)
#   ./dev.sh package           build, then make the Debian packages (CPack) in build/packages
#   ./dev.sh bench             build and run the benchmarks (figures as ratios against a baseline)
#   ./dev.sh format [--check]  format every C++ source with clang-format (.clang-format); --check only reports
#                              the files that differ and fails
#   ./dev.sh deps              install the Debian packages the project needs
#
# `-j N` before the command (or JOBS=N) sets the parallel build and test jobs (default: all cores). A build
# folder is configured again when the options a command passes differ from those it was configured with.
set -euo pipefail
cd "$(dirname "$0")"

PACKAGES=(cmake ninja-build g++ libgtest-dev libgmock-dev libsqlite3-dev sqlite3
          unixodbc-dev odbc-postgresql postgresql libcli11-dev nlohmann-json3-dev libasio-dev
          python3-dev pybind11-dev python3-pytest
          python3-flask python3-waitress gunicorn python3-selenium chromium chromium-driver
          libsodium-dev pkg-config clang libfuzzer-14-dev clang-format
          help2man dpkg-dev file lintian man-db)

say() { printf '\033[1m==> %s\033[0m\n' "$*" >&2; }

deps() {
  local missing=()
  if ! command -v dpkg-query >/dev/null; then
    # Not Debian: the packages cannot be checked here, so say what the build needs and go on.
    say "no dpkg on this machine; install these (Debian names) with your package manager: ${PACKAGES[*]}"
    return 0
  fi
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

# True when DIR was configured with every -DNAME=VALUE of the remaining arguments.
configured_with() {
  local cache=$1/CMakeCache.txt; shift
  [ -f "$cache" ] || return 1
  local option name value
  for option in "$@"; do
    [[ $option == -D*=* ]] || continue
    name=${option#-D}; name=${name%%=*}; value=${option#*=}
    name=${name%%:*}
    grep -qxF -e "$name:BOOL=$value" -e "$name:STRING=$value" -e "$name:PATH=$value" -e "$name:FILEPATH=$value" \
      -e "$name:UNINITIALIZED=$value" -e "$name:INTERNAL=$value" "$cache" || return 1
  done
}

build() {  # build DIR [cmake options...]; only the target $BUILD_TARGET when that is set
  local dir=$1; shift
  set -- -DHALQVANTOR_WERROR=ON "$@"
  deps
  if [ ! -f "$dir/build.ninja" ] || ! configured_with "$dir" "$@"; then
    say "configuring $dir${*:+ ($*)}"
    local launcher=()
    # ccache, when present, shares compiled objects between build folders and checkouts of this tree.
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
    cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
  fi
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
  say "building $dir"
  # BUILD_TARGET may name several targets, separated by blanks.
  # shellcheck disable=SC2086
  cmake --build "$dir" ${BUILD_TARGET:+--target $BUILD_TARGET} -- -j"$JOBS"
}

# fuzz [TARGET|all] [SECONDS]: runs each target over a copy of tests/fuzz/corpus/TARGET in a temporary
# folder, so new inputs never land in the tree; prints the executions per target. A crash, leak or time-out
# makes it exit non-zero after the other targets ran, naming the reproducer (kept in that folder).
fuzz() {
  local only=${1:-all} seconds=${2:-60} failed=0
  only=${only%_fuzz}
  CC=clang CXX=clang++ BUILD_TARGET=halqvantor_fuzzers \
    build build-fuzz -DHALQVANTOR_FUZZ=ON -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
  local targets=()
  for source in tests/fuzz/*_fuzz.cpp; do
    local name
    name=$(basename "$source" .cpp)
    [ "$only" = all ] || [ "$only" = "${name%_fuzz}" ] && targets+=("$name")
  done
  if [ ${#targets[@]} -eq 0 ]; then
    echo "no fuzz target '$only' (tests/fuzz/*_fuzz.cpp)" >&2
    return 2
  fi
  for name in "${targets[@]}"; do
    local work
    work=$(mktemp -d "${TMPDIR:-/tmp}/halqvantor-fuzz-$name.XXXXXX")
    mkdir -p "$work/corpus"
    [ -d "tests/fuzz/corpus/$name" ] && cp -r "tests/fuzz/corpus/$name/." "$work/corpus/"
    say "fuzzing $name for ${seconds}s"
    local rc=0
    "build-fuzz/tests/fuzz/$name" "$work/corpus" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$work/" >"$work/log" 2>&1 || rc=$?
    local runs
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -1)
    local reproducer
    reproducer=$(find "$work" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' \
                 -o -name 'oom-*' -o -name 'slow-unit-*' \) | head -1)
    if [ $rc -ne 0 ] || [ -n "$reproducer" ]; then
      grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$work/log" | head -5 >&2 || true
      printf '%s: FAILED after %s executions; reproducer %s, log %s\n' "$name" "${runs:-?}" \
        "${reproducer:-(none)}" "$work/log"
      failed=1
    else
      printf '%s: %s executions in %ss, no failure\n' "$name" "${runs:-?}" "$seconds"
      rm -rf "$work"
    fi
  done
  return $failed
}

JOBS=${JOBS:-$(nproc)}
while [ $# -gt 0 ]; do
  case "$1" in
    -j) JOBS=${2:?-j needs a number}; shift 2 ;;
    -j*) JOBS=${1#-j}; shift ;;
    *) break ;;
  esac
done
[[ $JOBS =~ ^[1-9][0-9]*$ ]] || { echo "dev.sh: -j wants a positive number, not '$JOBS'" >&2; exit 2; }

cmd=${1:-test}
shift || true
case "$cmd" in
  deps) deps ;;
  build) build build ;;
  package)
    build build
    say "making the Debian packages (build/packages)"
    rm -f build/packages/*.deb
    (cd build && cpack -G DEB >cpack.log) || { cat build/cpack.log >&2; exit 1; }
    ls -1 build/packages/*.deb
    ;;
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
    postgres=ON
    mode=plain
    for arg in "$@"; do
      case "$arg" in
        --no-postgres) postgres=OFF ;;
        --sanitize) mode=sanitize ;;
        --tsan) mode=tsan ;;
        *) echo "dev.sh test: unknown option '$arg' (--no-postgres, --sanitize, --tsan)" >&2; exit 2 ;;
      esac
    done
    if [ "$mode" = sanitize ]; then
      dir=build-sanitize
      # The Python module stays out: an interpreter without the sanitizers cannot load it.
      opts=(-DHALQVANTOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DHALQVANTOR_BUILD_PYTHON=OFF)
      export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
      export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/support/lsan.supp}
      export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
    elif [ "$mode" = tsan ]; then
      # Only the concurrency test program, at its full count of requests.
      BUILD_TARGET=halqvantor_concurrency_tests build build-tsan -DHALQVANTOR_TSAN=ON
      say "running the concurrency test under ThreadSanitizer (build-tsan)"
      TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} HALQVANTOR_CONCURRENT_REQUESTS=1000 \
        exec build-tsan/tests/halqvantor_concurrency_tests
    fi
    build "$dir" "${opts[@]}" -DHALQVANTOR_TEST_POSTGRES=$postgres
    say "running the tests ($dir)"
    ctest --test-dir "$dir" --output-on-failure -j"$JOBS"
    ;;
  fuzz) fuzz "$@" ;;
  format)
    deps
    mapfile -t sources < <(git ls-files '*.cpp' '*.h')
    if [ "${1:-}" = --check ]; then
      clang-format --dry-run --Werror "${sources[@]}" || {
        echo "dev.sh format: the files above are not formatted; run ./dev.sh format" >&2
        exit 1
      }
    else
      clang-format -i "${sources[@]}"
    fi
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
      say "portal_bench"
      PYTHONPATH=build/python /usr/bin/python3 bench/portal_bench.py --build build
    fi
    ;;
  *)
    echo "usage: ./dev.sh [-j N] {demo [--keep]|format [--check]|portal [--host H] [--port P]|test [--no-postgres] [--sanitize|--tsan]|fuzz [TARGET|all] [SECONDS]|build|package|bench|deps}" >&2
    exit 2
    ;;
esac
