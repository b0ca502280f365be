"""Lists of what the tests leave open, each entry with its reason: a comment is the reason of the
entries below it."""
import os
import sys


def reasons_of(list_name):
    """Entries to reasons."""
    reason, reasons, fresh = "", {}, False
    for line in open(os.path.join(sys.path[0], list_name)).read().splitlines():
        if line.startswith("# "):
            reason = f"{reason} {line[2:]}" if fresh else line[2:]
        elif line:
            reasons[line] = reason
        fresh = line.startswith("# ")
    return reasons


def unexplained(list_name, found, tried=None):
    """Shows what was found, a key to a place, with its reason; returns what has none. What stands
    in the list and was not found is reported, where not all was tried that which was."""
    reasons = reasons_of(list_name)
    for key, place in found.items():
        print(f"{place}: {key}\n    {reasons.get(key, 'NO REASON GIVEN')}")
    for key in sorted(reasons.keys() - found.keys()):
        if tried is None or key in tried:
            print(f"holds no more, strike it from {list_name}: {key}")
    return found.keys() - reasons.keys()
