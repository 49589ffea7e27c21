"""Checks JSON documents, a line each, against the schemas of their kinds.

usage: validate.py SCHEMAS DOCUMENTS

SCHEMAS is the directory of the schemas, DOCUMENTS a file. Problems go to standard output, a line for
each document; the status is 1 then.
"""

import json
import pathlib
import sys

import jsonschema


def load_schemas(directory):
    schemas = {}
    for path in sorted(pathlib.Path(directory).glob("*.json")):
        schema = json.loads(path.read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        schemas["kelhost." + path.stem] = jsonschema.Draft202012Validator(schema)
    return schemas


def problem_of(line, schemas):
    """Returns the problem of a document, None for a valid one."""
    try:
        document = json.loads(line)
    except ValueError as error:
        return f"no JSON: {error}"
    kind = document.get("document") if isinstance(document, dict) else None
    if kind not in schemas:
        return f"no schema for {kind}"
    error = jsonschema.exceptions.best_match(schemas[kind].iter_errors(document))
    return None if error is None else f"{kind} {error.json_path}: {error.message}"


def main():
    schemas = load_schemas(sys.argv[1])
    status = 0
    with open(sys.argv[2], encoding="utf-8") as documents:
        for number, line in enumerate(documents, 1):
            problem = problem_of(line, schemas)
            if problem is not None:
                print(f"{number}: {problem}")
                status = 1
    return status


sys.exit(main())
