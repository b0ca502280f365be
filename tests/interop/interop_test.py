#!/usr/bin/env python3
"""ferry and applications of other DDS makes in one domain. For usage see rig.py."""

import subprocess

from rig import DOMAIN, FERRY, IDL, KEYS, Rig, by_instance, main, sample

COUNT = 200
LOSSY = "<Internal><Test><XmitLossiness>50</XmitLossiness></Test></Internal>"  # of a thousand
KINDS = ["Flat", "Nested", "Keyed", "Wide", "Open"]


class Pairs:
    """What every make has to do; `cases` are types and representations that it can."""

    def compare(self, kind, got, count=COUNT):
        self.assertEqual(by_instance(kind, got),
                         by_instance(kind, [sample(kind, i) for i in range(count)]))

    def compare_ends(self, kind, finish, states):
        end = {"dispose": "disposed", "unregister": "unregistered"}.get(finish)
        self.assertEqual(
            sorted((state, *(s[name] for name in KEYS[kind])) for state, s in states),
            sorted((end, *(sample(kind, i)[name] for name in KEYS[kind]))
                   for i in range(2)) if end else [])

    def test_partner_to_file(self):
        names = [f"{kind}_{form}" for kind, form in self.cases]
        partners = [self.partner(self.make, role="pub", type=kind, representation=form, topic=name,
                                 settle=self.settle, count=COUNT)
                    for (kind, form), name in zip(self.cases, names)]
        ferry = self.ferry(self.config([
            (kind, ("dds", name), [("files", name + ".jsonl")])
            for (kind, _), name in zip(self.cases, names)]))
        for name in names:
            self.until(lambda: len(self.lines(name + ".jsonl")) >= COUNT, f"whole {name}")
        summary = self.end(ferry)
        for (kind, _), name, partner in zip(self.cases, names, partners):
            with self.subTest(name):
                self.compare(kind, self.lines(name + ".jsonl"))
                self.assertIsNone(partner.poll())
        self.assertEqual(summary.count(f": {COUNT} read, {COUNT} written, 0 errors"), len(names))

    def test_file_to_partner(self):
        routes, partners = [], []
        for kind, form in self.cases:
            self.write(f"{kind}.jsonl", kind, range(COUNT))
            name = f"{kind}_{form}"
            auto = form == ("xcdr2" if kind == "Open" else "xcdr1")  # what ferry should choose
            routes.append((kind, ("files", kind + ".jsonl"), [
                ("dds", name,
                 {"representation": "auto" if auto else form, "wait_for_readers": 1})]))
            partners.append((kind, name, self.partner(
                self.make, type=kind, representation=form, topic=name, count=COUNT)))
        ferry = self.ferry(self.config(routes), "--until-idle")
        for kind, name, partner in partners:
            with self.subTest(name):
                samples, states = self.received(partner)
                self.compare(kind, samples)
        self.end(ferry)

    def test_dispose_and_unregister(self):
        """Through ferry from one domain to another: states are reported on both sides."""
        cases = [(kind, finish) for kind in self.keyed for finish in ["dispose", "unregister"]]
        routes, subscribers = [], []
        for kind, finish in cases:
            topic = kind + finish
            self.partner(self.make, role="pub", type=kind, topic=topic, count=8, finish=finish,
                         settle=self.settle)
            subscribers.append(self.partner(self.make, type=kind, topic=topic, domain=DOMAIN + 1,
                                            count=10))
            routes.append((kind, ("dds", topic), [("dds2", topic, {"wait_for_readers": 1})]))
        ferry = self.ferry(self.config(routes))
        for (kind, finish), subscriber in zip(cases, subscribers):
            with self.subTest(kind + finish):
                samples, states = self.received(subscriber)
                self.compare(kind, samples, 8)
                self.compare_ends(kind, finish, states)
        self.end(ferry)

    def test_types_that_nobody_looks_into(self):
        """From domain to domain as bytes: contents, ends of instances, and what types they are."""
        cases = [(kind, form, "") for kind, form in self.cases]
        cases += [(kind, "xcdr1", finish) for kind in self.keyed for finish in self.finishes]
        names = ["_".join(case) for case in cases]
        subscribers = []
        for (kind, form, finish), name in zip(cases, names):
            same = {"make": self.make, "type": kind, "representation": form, "topic": name}
            subscribers.append(self.partner(**same, domain=DOMAIN + 1, count=10 if finish else 8))
            self.partner(**same, role="pub", count=8, settle=self.settle, finish=finish)
        config = self.config([], dds={"opaque": "always"})
        outputs = [{"connection": "dds2", "stream": "${stream}",
                    "properties": {"wait_for_readers": 1}}]
        config["discovery"] = {"others": {"connection": "dds", "deny": {"stream": names[0]},
                                          "outputs": outputs}}
        config["routes"] = {"one": {"input": {"connection": "dds", "stream": names[0]},
                                    "outputs": outputs}}
        del config["types"], config["adapters"]["files"], config["connections"]["files"]
        ferry = self.ferry(config)
        for (kind, form, finish), name, subscriber in zip(cases, names, subscribers):
            with self.subTest(name):
                samples, states = self.received(subscriber)
                self.compare(kind, samples, 8)
                self.compare_ends(kind, finish, states)
        shown = subprocess.run([FERRY, "list", "streams", "--domain", str(DOMAIN + 1), "--idl"],
                               capture_output=True, text=True, timeout=60, check=True)
        for line in self.announced:
            self.assertIn(line, shown.stdout)
        self.end(ferry)

    def test_late_joiner(self):
        """Who comes late gets what was written before from a writer that keeps it, else nothing."""
        kept = {"durability": "transient_local"}
        early = [self.partner(self.make, role="pub", topic=f"in_{durability}", count=COUNT, wait=0,
                              durability=durability)
                 for durability in ["transient_local", "volatile"]]
        for partner in early:
            self.until(lambda: "written" in self.text(partner), "sample written")
        self.write("source.jsonl", "Flat", range(COUNT))
        ferry = self.ferry(self.config([
            ("Flat", ("dds", "in_transient_local", kept), [("files", "kept.jsonl")]),
            ("Flat", ("dds", "in_volatile"), [("files", "lost.jsonl")]),
            ("Flat", ("files", "source.jsonl"), [("dds", "out", {**kept, "durable_depth": "all"}),
                                                 ("files", "written.jsonl")])]))
        for name in ["kept.jsonl", "written.jsonl"]:
            self.until(lambda: len(self.lines(name)) >= COUNT, f"whole {name}")
        late = self.partner(self.make, topic="out", count=COUNT, **kept)
        self.compare("Flat", self.received(late)[0])
        self.compare("Flat", self.lines("kept.jsonl"))
        self.assertEqual(self.lines("lost.jsonl"), [])
        self.end(ferry)

    def test_five_percent_of_packets_lost(self):
        """Reliable: all, in order, once."""
        count = 5000
        self.write("source.jsonl", "Flat", range(count))
        subscriber = self.partner(self.make, LOSSY, topic="out", count=count)
        kept = {"durability": "transient_local"}
        ferry = self.ferry(self.config([
            ("Flat", ("dds", "in", kept), [("files", "in.jsonl")]),
            ("Flat", ("files", "source.jsonl"), [("dds", "out", {"wait_for_readers": 1})])],
            {"engine_xml": LOSSY}))
        self.partner(self.make, LOSSY, role="pub", topic="in", count=count, **kept)
        self.compare("Flat", self.received(subscriber, 50)[0], count)
        self.until(lambda: len(self.lines("in.jsonl")) >= count, "whole file")
        self.end(ferry)
        self.compare("Flat", self.lines("in.jsonl"), count)


class Cyclone(Pairs, Rig):
    make = "cyclone"
    settle = 0
    keyed = ["Keyed", "Wide"]
    finishes = ["dispose", "unregister"]
    announced = ["@appendable struct Part {", "sequence<::interop::Point> path;"]
    # It takes an appendable type only in XCDR2.
    cases = [(kind, form) for kind in KINDS for form in ["xcdr1", "xcdr2"]
             if (kind, form) != ("Open", "xcdr1")]

    def test_discovered_types(self):
        """A type that no file of ours declares is read from the wire."""
        for kind in ["Nested", "Open"]:
            self.partner(self.make, role="pub", type=kind, topic=kind, count=COUNT,
                         representation="xcdr2")
        shown = subprocess.run([FERRY, "list", "streams", "--domain", str(DOMAIN), "--wait", "3",
                                "--idl"], capture_output=True, text=True, timeout=30, check=True)
        for line in ["@appendable struct Part {", "sequence<::interop::Point> path;",
                     "string<12> label;", "octet grid[2][3];", "    GREEN,"]:
            self.assertIn(line, shown.stdout)
        config = self.config([])
        config["discovery"] = {"found": {
            "connection": "dds", "session": "main", "allow": {"type": ["interop::*"]},
            "outputs": [{"connection": "files", "stream": "${stream}.jsonl"}]}}
        del config["types"], config["routes"]
        ferry = self.ferry(config)
        for kind in ["Nested", "Open"]:
            self.until(lambda: len(self.lines(kind + ".jsonl")) >= COUNT, f"whole {kind}")
            self.compare(kind, self.lines(kind + ".jsonl"))
        self.end(ferry)

    def test_what_does_not_fit_is_reported(self):
        with open(IDL, encoding="utf-8") as idl:
            other = idl.read().replace("long l;", "double l;")
        self.partner(self.make, role="pub", topic="type")
        self.partner(self.make, role="pub", topic="qos", reliability="best_effort")
        ferry = self.ferry(self.config([
            ("Flat", ("dds", topic), [("files", topic + ".jsonl")]) for topic in ["type", "qos"]],
            types={"idl": other}))
        for text in ["did not match: reliability", "interop::Flat.l: double here, long there"]:
            self.until(lambda: text in self.text(ferry, ".err"), text)
        self.end(ferry, code=1)


class Fastdds(Pairs, Rig):
    make = "fastdds"
    # It announces a writer up to a second after it sees our reader; until then we know neither.
    settle = 2000
    keyed = ["Keyed", "Wide"]
    # It ends instances by their hash alone, and announces no type.
    finishes = []
    announced = []
    cases = [(kind, "xcdr1") for kind in KINDS]


if __name__ == "__main__":
    main()
