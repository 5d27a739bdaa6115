"""validate_json.py SCHEMA < DOCUMENTS: says what does not agree, by the number of the document; exit 0 when all does."""
import json
import sys

import jsonschema

with open(sys.argv[1]) as file:
    schema = json.load(file)
jsonschema.Draft7Validator.check_schema(schema)
validator = jsonschema.Draft7Validator(schema)
text = sys.stdin.read().strip()
count = wrong = 0
while text:
    document, end = json.JSONDecoder().raw_decode(text)
    for error in validator.iter_errors(document):
        leaf = jsonschema.exceptions.best_match([error])
        print(f"document {count}: {list(leaf.absolute_path)}: {leaf.message[:300]}")
        wrong += 1
    count += 1
    text = text[end:].lstrip()
sys.exit(1 if wrong or not count else 0)
