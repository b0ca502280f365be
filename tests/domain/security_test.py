#!/usr/bin/env python3
"""A secured domain: keys that ferry makes, files that do not fit, peers that are refused, and what
is on the wire. Needs root, for a network of its own. usage: security_test.py FERRY"""
import os
import pathlib
import socket
import subprocess
import sys
import tempfile

SKIP = 77
SO_RCVBUFFORCE = 33  # not in the module
FERRY = os.path.abspath(sys.argv[1])
CONFIGURATION = """
types: [{{idl: "struct Row {{ long n; string text; }};"}}]
adapters: {{files: {{class: file}}, dds: {{plugin: dds}}}}
connections:
  files: {{adapter: files, properties: {{directory: .}}}}
  domain: {{adapter: dds, properties: {{domain: 7{security}}}}}
routes:
  r: {{type: Row, input: {input}, outputs: [{output}]}}
"""
SENT = "{connection: files, stream: in.csv}"
TOPIC = "{{connection: domain, stream: {}}}"
MARK = "a text that nobody else sends"
# What is wrong, and what is said of it.
WRONG = [
    ({"certificate": "other/a.pem", "key": "other/a.key"},
     'certificate "other/a.pem" was not issued by the identity CA "keys/ca.pem"'),
    ({"certificate": "keys/expired.pem"}, 'certificate "keys/expired.pem" expired on '),
    ({"certificate": "keys/a.key"}, 'certificate "keys/a.key" is no certificate in PEM format'),
    ({"key": "keys/b.key"}, 'key "keys/b.key" does not belong to the certificate "keys/a.pem"'),
    ({"key": "keys/none.key"}, 'key "keys/none.key" cannot be read: No such file or directory'),
    ({"key": "keys/locked.key", "password": "wrong"}, "the password is not its own"),
    ({"governance": "keys/governance.xml"}, 'file "keys/governance.xml" is not signed (S/MIME)'),
    ({"governance": "other/governance.p7s"}, 'or was not signed by the permissions CA "keys/ca'),
    ({"permissions": "keys/changed.p7s"}, 'permissions file "keys/changed.p7s" was changed, or'),
    ({"permissions": "keys/b.permissions.p7s"}, "Subject name is invalid"),
    ({"permissions": ""}, "the permissions file is missing"),
]


def configure(name, properties, given, taken, more=""):
    security = more + "".join(f", security.{key}: '{value}'" for key, value in properties.items())
    pathlib.Path(name).write_text(
        CONFIGURATION.format(security=security, input=given, output=taken), encoding="utf-8")
    return name


def node(name, keys="keys", **more):
    return {"identity_ca": f"{keys}/ca.pem", "certificate": f"{keys}/{name}.pem",
            "key": f"{keys}/{name}.key", "governance": f"{keys}/governance.p7s",
            "permissions": f"{keys}/{name}.permissions.p7s", **more}


def ferry(*arguments):
    done = subprocess.run([FERRY, *arguments], capture_output=True, text=True, timeout=120,
                          check=False)
    return done.returncode, done.stdout + done.stderr


def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, capture_output=True)


def carry(sender, receiver, given="", taken="", patience=100):
    """Whether rows arrive, what both have logged, and all that was on the wire meanwhile."""
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    wire.bind(("lo", 0))
    wire.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 1 << 24)
    wire.setblocking(False)
    pathlib.Path("out.csv").unlink(missing_ok=True)
    configure("from.yaml", receiver, TOPIC.format("rt/t"), "{connection: files, stream: out.csv}",
              taken)
    configure("to.yaml", sender, SENT,
              "{connection: domain, stream: rt/t, properties: {wait_for_readers: 1, "
              f"wait_timeout: {patience}s}}}}", given)
    with subprocess.Popen([FERRY, "run", "from.yaml"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True) as other:
        code, log = ferry("run", "to.yaml", "--until-idle=0.5", "--give-up=1")
        other.terminate()
        log += other.communicate(timeout=120)[0]
    packets = b""
    while True:
        try:
            packets += wire.recv(70000)
        except BlockingIOError:
            break
    arrived = pathlib.Path("out.csv").exists() and MARK in pathlib.Path("out.csv").read_text()
    assert arrived == (code == 0), log
    return arrived, log, packets


def make_keys():
    for folder in ("keys", "other"):
        code, text = ferry("new", "keys", folder, "--node", "a", "--node", "b", "--allow", "rt/*")
        assert code == 0, text
    before = pathlib.Path("keys/a.key").read_bytes()
    assert ferry("new", "keys", "keys", "--node", "a")[0] == 2
    assert before == pathlib.Path("keys/a.key").read_bytes()
    assert not [file for file in os.listdir("keys") if file.startswith(".")]
    assert os.stat("keys/ca.key").st_mode & 0o077 == 0
    openssl("ec", "-aes128", "-passout", "pass:open", "-in", "keys/a.key", "-out",
            "keys/locked.key")
    pathlib.Path("keys/password").write_text("open\n")
    openssl("req", "-new", "-key", "keys/a.key", "-subj", "/CN=a", "-out", "request")
    openssl("x509", "-req", "-in", "request", "-CA", "keys/ca.pem", "-CAkey", "keys/ca.key",
            "-set_serial", "1", "-days", "-1", "-out", "keys/expired.pem")
    signed = pathlib.Path("keys/a.permissions.p7s").read_text()
    pathlib.Path("keys/changed.p7s").write_text(signed.replace("rt/*", "*"))


def test():
    pathlib.Path("in.csv").write_text(f"n,text\n1,{MARK}\n")
    make_keys()
    for change, sentence in WRONG:
        code, text = ferry("check", configure("bad.yaml", {**node("a"), **change}, SENT,
                                              TOPIC.format("rt/t")))
        assert code == 1 and sentence in text, (change, text)
    code, text = ferry("check", configure("bad.yaml", node("a"), SENT, TOPIC.format("other")))
    assert code == 1 and "Local topic permission denied: other" in text, text

    locked = node("a", key="keys/locked.key", password="${file:keys/password}")
    arrived, log, packets = carry(locked, node("b", key="${file:keys/b.key}"))
    assert arrived and MARK.encode() not in packets and len(packets) > 1000, log
    assert "PRIVATE KEY" not in log and "open" not in log.replace("opened", ""), log
    arrived, log, packets = carry({}, {})
    assert arrived and MARK.encode() in packets, log
    by_tcp = (', transport: tcp, peers: "127.0.0.1:7411"', ", transport: tcp, port: 7411")
    arrived, log, packets = carry({}, {}, *by_tcp)
    assert arrived and MARK.encode() in packets and b"RTPS" in packets, log
    arrived, log, packets = carry(node("a"), node("b"), *by_tcp)
    assert arrived and MARK.encode() not in packets, log
    assert not carry({}, node("b"), patience=4)[0]
    arrived, log, _ = carry(node("a", keys="other"), node("b"), patience=4)
    assert not arrived and "Certificate not valid" in log, log
    # A new key of the same authority.
    assert ferry("new", "keys", "keys", "--node", "a", "--allow", "rt/t", "--renew")[0] == 0
    assert carry(node("a"), node("b"))[0]


def main():
    if os.geteuid() != 0:
        sys.exit(SKIP)
    if sys.argv[2:] != ["--inside"]:
        shell = 'ip link set lo up && exec "$@"'
        sys.exit(subprocess.run(["unshare", "--net", "sh", "-c", shell, "sh", sys.executable,
                                 *sys.argv, "--inside"], check=False).returncode)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        test()
        os.chdir("/")


if __name__ == "__main__":
    main()
