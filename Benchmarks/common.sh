# shellcheck shell=bash
# The server, the workload and the tables of the benchmarks that fetch files. Sourced by their `run`,
# which sets
#   work       a directory, in memory if possible, for the server and its files
#   programs   the directory of the built benchmark programs

failed=0

# --- Leaving nothing behind ----------------------------------------------------------------------

# Names of functions that undo something. They run in the reverse order when the script ends.
undo=()
run_undo() {
  local index
  for ((index = ${#undo[@]} - 1; index >= 0; --index)); do "${undo[index]}" || true; done
  undo=()
}
trap run_undo EXIT
trap 'exit 130' INT TERM HUP

# --- The server ----------------------------------------------------------------------------------

server_scheme=http server_address=127.0.0.1
# Options of nginx's "listen", and other lines for its server.
listen_options='' server_lines=''
# What starts the server in another network namespace.
server_prefix=()

start_server() {
  mkdir -p "$work/server/temporary" "$work/served"
  local attempt
  # Each time at another port: one may be in use.
  for attempt in {1..20}; do
    port=$((20000 + RANDOM % 40000))
    write_server_configuration
    if run_server; then
      undo+=(stop_server)
      server="$server_scheme://$server_address:$port"
      return
    fi
  done
  cat "$work/server/start.log" >&2
  exit 1
}

# Succeeds when the server listens. It ends with this script, even if that is killed.
run_server() {
  local with_parent=()
  if command -v setpriv >/dev/null; then with_parent=(setpriv --pdeathsig TERM); fi
  PATH="$PATH:/usr/sbin" "${with_parent[@]}" "${server_prefix[@]}" nginx -p "$work/server" \
    -c "$work/server/nginx.conf" -g 'daemon off;' 2>"$work/server/start.log" &
  server_process=$!
  # It writes the file when it has its port.
  while [[ ! -s $work/server/pid ]]; do
    kill -0 "$server_process" 2>/dev/null || return 1
    sleep 0.02
  done
}

write_server_configuration() {
  cat >"$work/server/nginx.conf" <<CONFIGURATION
user root; worker_processes 1; pid pid; error_log error.log;
events { worker_connections 1024; }
http {
  access_log off; sendfile on; tcp_nopush on; keepalive_requests 100000;
  client_body_temp_path temporary/a; proxy_temp_path temporary/b; fastcgi_temp_path temporary/c;
  uwsgi_temp_path temporary/d; scgi_temp_path temporary/e;
  server { listen $server_address:$port $listen_options; root $work/served; $server_lines }
}
CONFIGURATION
}

stop_server() {
  kill "$server_process" 2>/dev/null || return 0
  wait "$server_process" || true
}

# --- The workload --------------------------------------------------------------------------------

# Files 1.png, 2.png ... of that many KiB, and for each program the list of them that it reads.
make_workload() {
  local count=$1 size=$2 number
  rm -rf "$work/served" && mkdir -p "$work/served"
  head -c "${size}K" /dev/urandom >"$work/served/1.png"
  for ((number = 2; number <= count; number++)); do
    cp "$work/served/1.png" "$work/served/$number.png"
  done
  for ((number = 1; number <= count; number++)); do
    printf 'url = "%s/%s.png"\noutput = "%s.png"\n' "$server" "$number" "$number"
  done >"$work/curl.list"
  for ((number = 1; number <= count; number++)); do
    printf '%s/%s.png\n' "$server" "$number"
  done >"$work/url.list"
  {
    printf '{"items": ['
    for ((number = 1; number <= count; number++)); do
      ((number == 1)) || printf ','
      printf '{"engine":"eco_standard","name":"n","type":"t","banner_id":"%s","priority":1,' "$number"
      printf '"updated":1,"market_url":"http://m","image_728x90":"%s.png"}\n' "$number"
    done
    printf ']}'
  } >"$work/config.json"
}

# --- Results -------------------------------------------------------------------------------------

# The median of a column of a program's results.
median() {
  awk -v program="$1" -v column="$2" '$1 == program { print $column }' "$work/results" |
    sort -g | awk '{ all[NR] = $1 } END { print all[int((NR + 1) / 2)] }'
}

# Evaluates an expression of numbers.
calculate() { awk "BEGIN { print $* }"; }

# figure KEY VALUE: prints the row of the table that print_goals of the script describes:
#
#   KEY|GOAL|BOUND|what is measured, with its unit
#
# GOAL is what is aimed at; BOUND is what fails the script when it is exceeded. Either may be "-".
figure() {
  local key=$1 value=$2 goal bound what
  IFS='|' read -r _ goal bound what < <(print_goals | grep "^$key|") || {
    printf 'no row is called %s\n' "$key" >&2
    exit 1
  }
  awk -v value="$value" -v goal="$goal" -v bound="$bound" -v what="$what" 'BEGIN {
    number = value ~ /^[0-9.+e-]+$/
    if (value == "") value = "not measured"
    if (number) value = value + 0 >= 100 ? sprintf("%.0f", value) : sprintf("%.3g", value)
    verdict = bound == "-" ? "-" : bound ": " (number && value + 0 <= bound + 0 ? "holds" : "BROKEN")
    printf "| %s | %s | %s | %s |\n", what, value, goal, verdict
    exit verdict ~ /BROKEN/ }' || failed=1
}

figure_heading() { printf '| %s | measured | goal | bound |\n|---|---:|---:|---|\n' "$1"; }
