"""validate_json.py SCHEMA < DOCUMENT: says what does not agree; exit 0 when all does."""
import json
import sys

import jsonschema

with open(sys.argv[1]) as file:
    schema = json.load(file)
jsonschema.Draft7Validator.check_schema(schema)
errors = list(jsonschema.Draft7Validator(schema).iter_errors(json.load(sys.stdin)))
for error in errors:
    leaf = jsonschema.exceptions.best_match([error])
    print(f"{list(leaf.absolute_path)}: {leaf.message[:300]}")
sys.exit(1 if errors else 0)
