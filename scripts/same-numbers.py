#!/usr/bin/env python3
"""same-numbers.py FILE FILE: two JSON documents are alike, their numbers to 1e-9 of themselves."""
import json
import math
import sys


def differs(one, other, place):
    if isinstance(one, dict) and isinstance(other, dict):
        if list(one) != list(other):
            return f"{place}: keys {list(one)} and {list(other)}"
        return next(filter(None, (differs(one[key], other[key], f"{place}.{key}") for key in one)), None)
    if isinstance(one, list) and isinstance(other, list):
        if len(one) != len(other):
            return f"{place}: {len(one)} and {len(other)} items"
        return next(filter(None, (differs(a, b, f"{place}[{i}]") for i, (a, b) in enumerate(zip(one, other)))), None)
    if isinstance(one, float) or isinstance(other, float):
        return None if math.isclose(one, other, rel_tol=1e-9) else f"{place}: {one!r} and {other!r}"
    return None if one == other else f"{place}: {one!r} and {other!r}"


documents = [json.load(open(name, encoding="utf-8")) for name in sys.argv[1:3]]
if difference := differs(*documents, ""):
    sys.exit(difference)
