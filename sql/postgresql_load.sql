-- Takes the rows of `awbcal fleet --csv` from standard input, in one transaction. Units that are there stay as they are:
-- the same rows may come again, and many stations may load at once.
\set ON_ERROR_STOP on
BEGIN;

CREATE TEMPORARY TABLE staging (
  ordinal bigint GENERATED ALWAYS AS IDENTITY,
  row text, unit text, path text, time timestamptz, lot text, input_sha256 text, tool text, result text, error text,
  kind text, camera text, source text, verdict text, rule text, found text, version integer, rg double precision,
  bg double precision, golden_rg double precision, golden_bg double precision, delta double precision,
  delta_limit double precision, percent double precision, good integer, module text, content text, refused_by text
) ON COMMIT DROP;

\copy staging (row, unit, path, time, lot, input_sha256, tool, result, error, kind, camera, source, verdict, rule, found, version, rg, bg, golden_rg, golden_bg, delta, delta_limit, percent, good, module, content, refused_by) FROM pstdin WITH (FORMAT csv, HEADER match)

-- In one order everywhere, so that two loaders with the same units wait for each other and not in a circle.
WITH added AS (
  INSERT INTO awbcal.unit (unit, path, time, lot, input_sha256, tool, result, error)
  SELECT unit, path, time, lot, coalesce(input_sha256, ''), tool, result, error
  FROM staging
  WHERE row = 'unit'
  ORDER BY unit, time, coalesce(input_sha256, '')
  ON CONFLICT DO NOTHING
  RETURNING id, unit, time, input_sha256
)
INSERT INTO awbcal.measurement (unit_id, kind, camera, source, verdict, rule, found, version, rg, bg, golden_rg,
                                golden_bg, delta, delta_limit, percent, good, module, content, refused_by)
SELECT added.id, kind, camera, source, verdict, rule, found, version, rg, bg, golden_rg, golden_bg, delta, delta_limit,
       percent, good, module, content, refused_by
FROM staging JOIN added
  ON staging.unit = added.unit AND staging.time = added.time
  AND coalesce(staging.input_sha256, '') = added.input_sha256
WHERE row = 'measurement'
ORDER BY ordinal;

COMMIT;
