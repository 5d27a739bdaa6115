# Many units: one process, a real server in a folder of its own, a real cluster on this machine, pages in a real
# browser. Sourced by script/check.

# Ten thousand units come to what they were made for, and a million need no more memory than there is.
check_fleet() {
  build release awbcal awb_benchmark
  local folder awbcal=$PWD/build/release/awbcal
  folder=$(mktemp -d)
  "$awbcal" demo --units 10000 --bad 10 --spread 4 --dir "$folder/line" >/dev/null
  "$awbcal" fleet "$folder/line/units" --csv >"$folder/rows" || true
  awk -F, '$1 == "unit" { print $2 "," $4 "," $8 }' "$folder/rows" >"$folder/found"
  tail -n +2 "$folder/line/truth.csv" | cut -d, -f1-3 | diff "$folder/found" - >"$folder/difference" ||
    die "units are not judged as they were made: $(head -n 5 "$folder/difference")"
  rm -rf "$folder"
  build/release/awb_benchmark --benchmark_filter='record_areas|judge_' --benchmark_format=json 2>/dev/null \
    >build/fleet.json
  python3 - build/fleet.json <<'END' || die "a fleet is judged too slowly, or needs too much memory"
import json, os, sys
runs = {run["name"].split("/iter")[0]: run for run in json.load(open(sys.argv[1]))["benchmarks"]}
least, most = 2000 * os.cpu_count(), 200
for name, run in runs.items():
    print(f"{name}: {run['units']:.0f} units a second", f"peak {run['peak_MB']:.0f} MB" if "peak_MB" in run else "")
judging = [run for name, run in runs.items() if name.startswith("judge_")]
sys.exit(len(judging) != 5 or any(run["units"] < least or run.get("peak_MB", 0) > most for run in judging))
END
  say "fleet: 10000 units come to what they were made for"
}

# ---- a server ---------------------------------------------------------------------------------------------------

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

# ---- a cluster ------------------------------------------------------------------------------------------------

# A scheduler and two workers of this machine come to what one process does.
check_cluster() (
  need_packages python3-distributed
  build release awbcal
  folder=$(mktemp -d)
  trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$folder"' EXIT
  awbcal=$PWD/build/release/awbcal
  "$awbcal" demo --units 3000 --bad 10 --spread 4 --dir "$folder/line" >/dev/null
  export DASK_DISTRIBUTED__LOGGING__DISTRIBUTED=error
  /usr/bin/python3 -m distributed.cli.dask_scheduler --host 127.0.0.1 --port 0 --no-dashboard \
    --scheduler-file "$folder/scheduler" 2>"$folder/log" &
  for _ in 1 2; do
    /usr/bin/python3 -m distributed.cli.dask_worker --scheduler-file "$folder/scheduler" --host 127.0.0.1 \
      --nthreads 1 --no-dashboard --local-directory "$folder" 2>>"$folder/log" &
  done
  for _ in $(seq 60); do
    [ -s "$folder/scheduler" ] && break
    sleep 0.5
  done
  scheduler=$(/usr/bin/python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))["address"])' "$folder/scheduler") ||
    die "no scheduler: $(cat "$folder/log")"
  find "$folder/line/units" -name '*.img' | timeout 120 examples/fleet_dask.py "$scheduler" --awbcal "$awbcal" --part 200 \
    --limits "$folder/line/limits.csv" >"$folder/cluster" || die "the cluster does not answer: $(cat "$folder/log")"
  find "$folder/line/units" -name '*.img' | "$awbcal" fleet - --limits "$folder/line/limits.csv" |
    sed 's/^ *//; s/  */ /g' >"$folder/alone" || true
  head -n 2 "$folder/alone" | diff - <(head -n 2 "$folder/cluster") || die "the cluster comes to another yield"
  while read -r _ camera kind units median p95 p99; do
    [ "$kind" = awb: ] || continue
    grep -q "^$camera camera, AWB record $units $median $p95 $p99 " "$folder/alone" ||
      die "the cluster comes to other margins: $camera $units $median $p95 $p99"
  done < <(grep '^margin:' "$folder/cluster")
  grep -c '^margin: .* awb:' "$folder/cluster" | grep -qx 3 || die "the cluster knows no margins"
  say "cluster: two workers come to what one process does"
)

# ---- pages ------------------------------------------------------------------------------------------------------

# Pages in a real browser. PICTURES=docs/pictures script/check page takes the README's pictures anew.
check_page() (
  need_packages chromium chromium-driver fonts-dejavu-core python3-selenium
  build release awbcal
  folder=$(mktemp -d)
  trap 'rm -rf "$folder"' EXIT
  /usr/bin/python3 script/page_in_browser.py "$PWD/build/release/awbcal" "$folder" ${PICTURES:+"$PICTURES"}
)
