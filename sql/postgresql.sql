-- The history of a line on a PostgreSQL server: what many stations' `awbcal fleet --csv` comes to in one place.
-- Can be run again: what is there stays, and the views are those of this version.
--
--   psql -f postgresql.sql
--   awbcal fleet --csv /dumps | psql -f postgresql_load.sql

CREATE SCHEMA IF NOT EXISTS awbcal;

-- The columns are those of the rows; awbcal-fleet(1) says what they mean.
CREATE TABLE IF NOT EXISTS awbcal.unit (
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  unit text NOT NULL,
  path text NOT NULL,
  time timestamptz NOT NULL,
  lot text,
  input_sha256 text NOT NULL DEFAULT '',
  tool text NOT NULL,
  result text NOT NULL,
  error text,
  UNIQUE (unit, time, input_sha256)
);
CREATE INDEX IF NOT EXISTS unit_time ON awbcal.unit (time);

CREATE TABLE IF NOT EXISTS awbcal.measurement (
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  unit_id bigint NOT NULL REFERENCES awbcal.unit (id) ON DELETE CASCADE,
  kind text NOT NULL,
  camera text,
  source text,
  verdict text NOT NULL,
  rule text,
  found text,
  version integer,
  rg double precision,
  bg double precision,
  golden_rg double precision,
  golden_bg double precision,
  delta double precision,
  delta_limit double precision,
  percent double precision,
  good integer NOT NULL,
  module text,
  content text,
  refused_by text
);
CREATE INDEX IF NOT EXISTS measurement_unit ON awbcal.measurement (unit_id);

-- ---- what `awbcal fleet` sums up --------------------------------------------------------------------------

CREATE OR REPLACE VIEW awbcal.yield_per_day AS
SELECT (time AT TIME ZONE 'UTC')::date AS day,
       count(*) AS units,
       count(*) FILTER (WHERE result IN ('PASS', 'FAIL')) AS judged,
       count(*) FILTER (WHERE result = 'PASS') AS passed
FROM awbcal.unit
GROUP BY 1;

CREATE OR REPLACE VIEW awbcal.yield_per_kind AS
SELECT camera, kind, count(*) AS units, sum(good) AS good
FROM awbcal.measurement
GROUP BY camera, kind;

-- What is wrong first in a unit that fails, in the order of the verdicts.
CREATE OR REPLACE VIEW awbcal.pareto AS
SELECT camera, kind, coalesce(rule, 'record.limit') AS rule, count(*) AS units
FROM (
  SELECT DISTINCT ON (unit_id) unit_id, camera, kind, rule
  FROM awbcal.measurement JOIN awbcal.unit ON unit.id = unit_id
  WHERE result = 'FAIL' AND good = 0 AND verdict <> 'unreadable'
  ORDER BY unit_id, measurement.id
) AS first
GROUP BY 1, 2, 3;

-- In percent of the limit: what half, 95 % and 99 % of the units do not exceed, and the process capability.
CREATE OR REPLACE VIEW awbcal.margins AS
SELECT camera, kind, count(*) AS units,
       percentile_disc(0.5) WITHIN GROUP (ORDER BY percent) AS median,
       percentile_disc(0.95) WITHIN GROUP (ORDER BY percent) AS p95,
       percentile_disc(0.99) WITHIN GROUP (ORDER BY percent) AS p99,
       max(percent) AS worst,
       (100 - avg(percent)) / nullif(3 * stddev_samp(percent), 0) AS ppk
FROM awbcal.measurement
WHERE percent IS NOT NULL AND verdict IN ('good', 'judged out of tolerance')
GROUP BY camera, kind;

-- The ratios and how they move each day.
CREATE OR REPLACE VIEW awbcal.drift AS
SELECT camera, kind, count(*) AS units,
       avg(rg) AS rg, regr_slope(rg, extract(epoch FROM time) / 86400) AS rg_a_day,
       avg(bg) AS bg, regr_slope(bg, extract(epoch FROM time) / 86400) AS bg_a_day
FROM awbcal.measurement JOIN awbcal.unit ON unit.id = unit_id
WHERE rg IS NOT NULL AND verdict IN ('good', 'judged out of tolerance')
GROUP BY camera, kind;
