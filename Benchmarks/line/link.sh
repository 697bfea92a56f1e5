# shellcheck shell=bash
# The line of script/bench line, for a `run` that has sourced Benchmarks/common.sh.

server_end=10.77.0.2

# Starts the line. Then in_client and in_server are what a command in the namespace of one end starts
# with.
start_link() {
  local client server
  coproc LINK { exec "$programs/line/kivresource-line-link"; }
  link=$LINK_PID link_input=${LINK[1]} link_output=${LINK[0]}
  undo+=(stop_link)
  if ! read -r client server <&"$link_output"; then
    printf 'No line between two network namespaces can be made here.\n' >&2
    exit 1
  fi
  # shellcheck disable=SC2034 # the caller uses it
  in_client=(nsenter --net="/proc/$link/fd/$client") in_server=(nsenter --net="/proc/$link/fd/$server")
}

# shellcheck disable=SC2317 # run_undo calls it
stop_link() { kill "$link" 2>/dev/null || true; }

# set_link ROUND-TRIP-MS MEGABITS
set_link() {
  local answer
  printf '%s %s\n' "$1" "$2" >&"$link_input"
  read -r answer <&"$link_output" && [[ $answer == set ]]
}
