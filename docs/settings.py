#!/usr/bin/env python3
"""Writes the tables of settings in docs/ from what the adapters and the host declare.

Usage: settings.py FERRY [--check]

A table stands between "<!-- settings: ADAPTER ROLES -->" and "<!-- end of settings -->". ROLES are
roles that a setting has ("reader+writer"), and behind a minus one that it does not have
("reader-writer"). --check writes nothing and fails if a page is not as it would be written."""
import json
import pathlib
import re
import subprocess
import sys

DOCS = pathlib.Path(__file__).resolve().parent
TABLE = re.compile(r"(<!-- settings: (\S+) (\S+) -->\n).*?(<!-- end of settings -->)", re.S)


def declared(ferry, adapter):
    answer = subprocess.run([ferry, "check", f"--settings={adapter}", "--json"], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    return json.loads(answer)


def belongs(setting, roles):
    wanted = re.findall(r"([+-]?)([a-z]+)", roles)
    return all((role in setting["roles"]) == (sign != "-") for sign, role in wanted)


def cell(text):
    return text.replace("|", "\\|")


def row(setting):
    name = f"`{setting['name']}`" + (" *" if setting["changeable"] else "")
    default = "required" if setting["required"] else setting.get("default", "")
    shown = f"`{default}`" if default and not setting["required"] else default
    return f"| {name} | {cell(setting['help'])} | {cell(setting['allowed'])} | {cell(shown)} |\n"


def table(settings):
    head = "\n| name | meaning | value | default |\n|---|---|---|---|\n"
    return head + "".join(row(setting) for setting in settings) + "\n"


def main():
    ferry, check = sys.argv[1], "--check" in sys.argv[2:]
    known, stale = {}, []
    for page in sorted(DOCS.glob("*.md")):
        text = page.read_text(encoding="utf-8")
        for _, adapter, _, _ in TABLE.findall(text):
            if adapter not in known:
                known[adapter] = declared(ferry, adapter)
        made = TABLE.sub(lambda found: found[1] + table(
            [each for each in known[found[2]] if belongs(each, found[3])]) + found[4], text)
        if made != text:
            stale.append(page.name)
            if not check:
                page.write_text(made, encoding="utf-8")
    print("settings in docs/:", ", ".join(stale) or "nothing to change",
          "(run ./dev docs)" if check and stale else "")
    sys.exit(check and bool(stale))


if __name__ == "__main__":
    main()
