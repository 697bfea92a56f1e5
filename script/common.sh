# shellcheck shell=bash
# Shared by the scripts of this folder. Sourced, never run; leaves the caller in the root of the
# repository.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ -t 1 && -z ${NO_COLOR:-} ]]; then
  bold=$'\e[1m' red=$'\e[31m' plain=$'\e[0m'
else
  bold='' red='' plain=''
fi

# Prints what the script does now.
step() { printf '%s==> %s%s\n' "$bold" "$*" "$plain"; }

# Ends the script with a message.
die() {
  printf '%s%s: %s%s\n' "$red" "$(basename "$0")" "$*" "$plain" >&2
  exit 1
}

# Warns conspicuously of what is not checked.
loudly() {
  local rule
  rule=$(printf '#%.0s' {1..100})
  printf '%s%s\n' "$red$bold" "$rule" >&2
  printf '# %s\n' "$@" >&2
  printf '%s%s\n' "$rule" "$plain" >&2
}

# Prints the comment at the top of the script and ends it with the status.
usage() {
  sed -n '2,${/^#/!q; s/^# \{0,1\}//p}' "script/$(basename "$0")"
  exit "$1"
}

# The headers among the lines of a CMake list.
listed_headers() { sed -n -E 's/^ +((KivPlatform|KivResource)\/.*\.h)$/\1/p'; }
# The headers that a host may include.
public_headers() { sed '/^set(KIVRESOURCE_PRIVATE_HEADERS/,$d' cmake/KivResourceHeaders.cmake | listed_headers; }

processors() { getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2; }

# Background processes, which are ended with the script: `processes+=($!)`.
processes=()
end_processes() {
  local process
  for process in "${processes[@]}"; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  processes=()
}

# wait_for_line FILE: prints the first line, which a process writes when it is ready.
wait_for_line() {
  local attempt
  for ((attempt = 0; attempt < 600; ++attempt)); do
    [[ -s $1 ]] && break
    sleep 0.1
  done
  head -n 1 "$1"
}

# Runs a command, and prints its output only if it fails.
quietly() {
  local log
  log=$(mktemp)
  if "$@" >"$log" 2>&1; then
    rm -f "$log"
  else
    local status=$?
    cat "$log" >&2
    rm -f "$log"
    return "$status"
  fi
}

# check_hardening FILE...: checks that libraries and programs have the protections of
# cmake/KivResourceHardening.cmake, except for control-flow protection: Debian's start-up objects lack
# it, so no program as a whole has it.
check_hardening() {
  quietly hardening-check --nocfprotection "$@" || die "these are not hardened: $*"
}

# All clones share one cache: its keys do not depend on the path of the sources.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=true

# Configures a build by its preset, with the compiler cache if it is installed. Other arguments go to
# CMake.
configure() {
  local preset=$1
  shift
  if command -v ccache >/dev/null; then
    set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
  fi
  quietly cmake --preset "$preset" "$@"
}
