# The server of many stations: a real one, in a folder of its own. Sourced by script/check.

# What is typed as the user that a server may run as: never root.
as_server_user() {
  if [ "$(id -u)" = 0 ]; then setpriv --reuid=postgres --regid=postgres --clear-groups "$@"; else "$@"; fi
}

start_server() {
  as_server_user "$server_bin/pg_ctl" -D "$server_folder/data" -l "$server_folder/log" -w \
    -o "-k $server_folder -c listen_addresses=''" start >/dev/null || die "no server: $(cat "$server_folder/log")"
}

stop_server() {
  as_server_user "$server_bin/pg_ctl" -D "$server_folder/data" -m immediate stop >/dev/null 2>&1 || true
  rm -rf "$server_folder"
}

psql_here() {
  (cd "$server_folder" && as_server_user psql -h "$server_folder" -d postgres -qX -v ON_ERROR_STOP=1 "$@")
}

query() {
  psql_here -At -F ' ' -c "$1"
}

# Loads the rows of a file until the server has taken them: it may be killed in between.
load_rows() {
  local tries
  for tries in 1 2 3 4 5 6 7 8 9 10; do
    psql_here -f "$server_folder/postgresql_load.sql" <"$1" >/dev/null 2>&1 && return
    sleep 1
  done
  die "rows are not taken after $tries tries: $1"
}

# A view's lines, each of which the summary has to have.
compare_with_summary() {
  local line count=0
  while IFS= read -r line; do
    grep -Fxq -- "$line" "$server_folder/summary" || die "the server says '$line', and awbcal fleet does not"
    count=$((count + 1))
  done < <(query "$1" | sed 's/  */ /g')
  [ $count -ge "$2" ] || die "the server says hardly anything: $1"
}

PLACE="CASE coalesce(camera, '') WHEN '' THEN '' ELSE camera || ' camera, ' END || CASE kind WHEN 'awb' THEN 'AWB record'
  WHEN 'a_light_awb' THEN 'A-light AWB record' WHEN 'aec' THEN 'AEC record' WHEN 'gyro' THEN 'gyro record' END"

compare_views() {
  "$awbcal" fleet "$server_folder/line/units" --limits "$server_folder/line/limits.csv" |
    sed 's/^ *//; s/  */ /g' >"$server_folder/summary" || true
  compare_with_summary "SELECT day, units, to_char(100.0 * passed / judged, 'FM990.0') || ' %' FROM awbcal.yield_per_day" 30
  compare_with_summary "SELECT $PLACE, units, good, to_char(100.0 * good / units, 'FM990.0') || ' %'
    FROM awbcal.yield_per_kind" 6
  compare_with_summary "SELECT units, to_char(100.0 * units / sum(units) OVER (), 'FM990.0') || ' %',
    to_char(100.0 * sum(units) OVER (ORDER BY units DESC, $PLACE, rule) / sum(units) OVER (), 'FM990.0') || ' %',
    $PLACE || ': ' || rule FROM awbcal.pareto ORDER BY units DESC" 2
  compare_with_summary "SELECT $PLACE, units, to_char(ceil(median * 10) / 10, 'FM990.0'),
    to_char(ceil(p95 * 10) / 10, 'FM990.0'), to_char(ceil(p99 * 10) / 10, 'FM990.0'),
    to_char(worst, 'FM990.0'), to_char(ppk, 'FM990.00') FROM awbcal.margins" 4
  compare_with_summary "SELECT $PLACE, to_char(rg, 'FM0.0000'), to_char(rg_a_day, 'FMSG0.00000'),
    to_char(bg, 'FM0.0000'), to_char(bg_a_day, 'FMSG0.00000') FROM awbcal.drift" 4
}

# Eight stations load a fleet in parts that overlap, and the server is killed while they do. In a shell of its own,
# whose end, however it comes, is the server's.
check_database() (
  need_packages postgresql postgresql-client
  build release awbcal
  awbcal=$PWD/build/release/awbcal
  server_bin=$(ls -d /usr/lib/postgresql/*/bin | tail -n 1)
  server_folder=$(mktemp -d)
  trap stop_server EXIT
  "$awbcal" demo --units 4000 --bad 10 --spread 4 --drift 0.3 --dir "$server_folder/line" >/dev/null
  for part in 0 1 2 3 4 5 6 7; do
    find "$server_folder/line/units" -name "*[$part$(((part + 1) % 8))89].img" |
      "$awbcal" fleet - --csv --limits "$server_folder/line/limits.csv" >"$server_folder/rows$part" || true
  done
  cp sql/*.sql "$server_folder"
  [ "$(id -u)" != 0 ] || chown -R postgres: "$server_folder"
  as_server_user "$server_bin/initdb" -D "$server_folder/data" -A trust --no-sync >/dev/null
  start_server
  psql_here -f "$server_folder/postgresql.sql"
  for part in 0 1 2 3 4 5 6 7; do load_rows "$server_folder/rows$part" & done
  sleep 0.3
  as_server_user "$server_bin/pg_ctl" -D "$server_folder/data" -m immediate stop >/dev/null
  start_server
  wait
  load_rows "$server_folder/rows0"
  psql_here -f "$server_folder/postgresql.sql" 2>/dev/null
  [ "$(query 'SELECT count(*) FROM awbcal.unit')" = 4000 ] || die "units were lost or counted twice"
  compare_views
  say "database: eight stations and a killed server later, the views are what awbcal fleet sums up"
)
