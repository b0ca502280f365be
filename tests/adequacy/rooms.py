"""The rooms of the tree: which sources belong to each, and which tests are to notice their faults.

Tests are patterns over "PROGRAM TEST", as CTest runs them: those of `tests` are asked first, those
of `slow` only about faults that the others let pass."""
import collections

# Of its faults `least` are to be noticed.
Room = collections.namedtuple("Room", "sources tests slow least explained",
                              defaults=((), 0.90, False))
PARTNERS = r" interop\.Cyclone"
FERRY = (r" relay\.Ferry$", r" relay\.Hostile$", r" file-adapter\.quickstart$")

ROOMS = {
    # 95 % killed, and each survivor and each branch that is not taken has its reason.
    "bridge": Room(("jni", "support"), (r" bridge\.",), (), 0.95, True),
    "core": Room(("platform/core",), ("^core_test ",), ("^dds_test ", r" bridge\.(Vm|Threads)\.")),
    "types": Room(("platform/cdr", "platform/types"),
                  ("^dds_test ", "^domain_test ", r" fuzz\.(cdr|idl)"),
                  (r" java-units\.", r" bridge\.(Vm|Threads)\.")),
    "domain": Room(("platform/domain",),
                   ("^domain_test ", r" fuzz\.cdr", "^domain_engine_test ", "^dds_adapter_test "),
                   (PARTNERS,)),
    "binding": Room(("platform/java",), (r" java-units\.",),
                    (r" fuzz\.(cdr|properties)", r" kit\.", r" file-adapter\.\w+Test$")),
    "settings": Room(("settings",),
                     ("^settings_test ", "^relay_config_test ", "^dds_adapter_test "), FERRY[:1]),
    "relay": Room(("relay/config", "relay/state", "relay/engine", "relay/process",
                   "relay/launcher"),
                  ("^relay_config_test ", r" fuzz\.relay", "^relay_engine_test ",
                   "^relay_start_test ", "^relay_state_test "),
                  (r" Simulate\.", *FERRY, r" Examples\.NewAdapter")),
    "relay-java": Room(("relay/java",), (), FERRY),
    "dds": Room(("adapters/dds",), ("^dds_adapter_test ",), (PARTNERS,)),
    "file": Room(("adapters/file",), (r" file-adapter\.\w+Test$",),
                 (r" fuzz\.file_rows", *FERRY[2:])),
    "sql": Room(("adapters/sql",), (r" sql\.\w+Test$",), (r" sql\.Ferry$",)),
    "api": Room(("java/ferrion-adapter",), (r" java-units\.",),
                (r" kit\.", r" bridge\.(Threads|Bridge.Cases)")),
    "kit": Room(("java/ferrion-kit",), (r" kit\.",),
                (r" file-adapter\.\w+Test$", r" sql\.\w+Test$", FERRY[0])),
}

# How many of a folder's branches are to be taken: 90 %, but for the bridge, whose every gap has its
# reason, and for folders that have come further: those numbers are raised as they come. Four were
# taken back to 90 % when their folders had grown by 16 % and more; docs/testing.md has what is
# left there.
BRANCHES = collections.defaultdict(lambda: 0.90, {
    "jni": 0.97, "support": 0.97,
    "platform/core": 0.92, "platform/cdr": 0.96, "platform/java": 0.92, "settings": 0.91,
    "java/ferrion-adapter": 0.96, "adapters/file": 0.92, "adapters/sql": 0.92,
    "relay/config": 0.99,
})
