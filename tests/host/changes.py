#!/usr/bin/env python3
"""The host under changes and under bad clients, by the real programs.

    changes.py PERENNA_ACCESS EXAMPLES SECONDS

The real tool changes the directory at random, a process a change, while requests come over the host's Unix socket and
through nginx, configured as the example is. No answer may be one that was not true at some moment between the last byte
of its request and the answer."""

import base64
import grp
import http.client
import json
import os
import random
import re
import resource
import socket
import subprocess
import sys
import tempfile
import threading
import time

TOOL, EXAMPLES, SECONDS = sys.argv[1], sys.argv[2], float(sys.argv[3])
SEED = int(os.environ.get("PERENNA_TEST_SEED", random.randrange(1 << 30)))
USERS, GROUPS, METHODS = ["ann", "bob"], ["g1", "g2"], ["GET", "PUT"]
PATTERNS = {"^/a": lambda path: path.startswith("/a"), "^/b$": lambda path: path == "/b", "^/": lambda path: True}
PATHS = ["/a", "/a/7", "/b", "/c"]
PASSWORD = "pw"


def tool(*words, text=""):
    return subprocess.run([TOOL, "--database", "access.db", *words], input=text, text=True, check=True, capture_output=True).stdout


class Socket(http.client.HTTPConnection):
    """Over the host's own Unix-domain socket."""

    def __init__(self):
        super().__init__("host", timeout=10)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(10)
        self.sock.connect("host.sock")


def request(connection, method, path, user, direct):
    """Asks once: (the moment before the last byte, status, the moment of the answer)."""
    fields = {"Authorization": "Basic " + base64.b64encode(f"{user}:{PASSWORD}".encode()).decode()}
    begin = time.monotonic()
    if direct == "auth":
        connection.request("GET", "/auth", headers={**fields, "X-Original-Method": method, "X-Original-URI": path})
    elif direct == "envoy":
        connection.request(method, "/envoy" + path, headers=fields)
    else:
        connection.request(method, path, headers=fields)
    answer = connection.getresponse()
    answer.read()
    return begin, answer.status, time.monotonic()


class History:
    """The states that the directory has had; each change took effect between its begin and its end."""

    def __init__(self):
        self.states = [(0.0, 0.0, frozenset(), frozenset())]  # begin, end, memberships, filters

    def change(self, chance):
        _, _, memberships, filters = self.states[-1]
        if chance.random() < 0.3:
            user = chance.choice(USERS)
            groups = [group for group in GROUPS if chance.random() < 0.6]
            words = ["user", "set-groups", user, *(groups or ["--none"])]
            memberships = frozenset({pair for pair in memberships if pair[0] != user} | {(user, group) for group in groups})
        elif filters and chance.random() < 0.5:
            gone = chance.choice(sorted(filters))
            words = ["filter", "delete", *gone]
            filters -= {gone}
        else:
            new = (chance.choice(GROUPS), chance.choice(["Allow", "Allow", "Deny"]), chance.choice(METHODS), chance.choice(sorted(PATTERNS)))
            if new in filters:
                return
            words = ["filter", "add", *new]
            filters |= {new}
        begin = time.monotonic()
        tool(*words)
        self.states.append((begin, time.monotonic(), memberships, filters))

    def possible(self, user, method, path, begin, end):
        """The statuses that were right at some moment of the interval."""
        statuses = set()
        for number, (since, _, memberships, filters) in enumerate(self.states):
            until = self.states[number + 1][1] if number + 1 < len(self.states) else end
            if since <= end and until >= begin:
                actions = {action for group, action, named, pattern in filters
                           if (user, group) in memberships and named == method and PATTERNS[pattern](path)}
                statuses.add(200 if "Allow" in actions and "Deny" not in actions else 403)
        return statuses


def random_changes(nginx_port):
    print(f"PERENNA_TEST_SEED={SEED}", flush=True)
    history, stop, answers, failures = History(), threading.Event(), [], []

    def ask(number, direct):
        chance = random.Random(SEED + number)
        try:
            connection = Socket() if direct else http.client.HTTPConnection("127.0.0.1", nginx_port, timeout=10)
            while not stop.is_set():
                user, method, path = chance.choice(USERS), chance.choice(METHODS), chance.choice(PATHS)
                answers.append((user, method, path, direct, *request(connection, method, path, user, direct)))
        except Exception as error:  # noqa: BLE001: whatever it is, the run has failed
            failures.append(f"{direct}: {error!r}")

    threads = [threading.Thread(target=ask, args=pair) for pair in enumerate(["auth", "auth", "envoy", "", ""])]
    for thread in threads:
        thread.start()
    chance, end = random.Random(SEED), time.monotonic() + SECONDS
    while (time.monotonic() < end or len(history.states) <= 20) and not failures:  # a sanitized tool is slow
        history.change(chance)
    stop.set()
    for thread in threads:
        thread.join()
    assert not failures, failures
    for user, method, path, direct, begin, status, answered in answers:
        right = history.possible(user, method, path, begin, answered)
        assert status in right, f"{direct or 'nginx'} {user} {method} {path}: {status} instead of {right}"
    both = [status for *_, status, _ in answers]
    print(f"{len(history.states) - 1} changes, {len(answers)} answers, {both.count(200)} of them allowed", flush=True)
    assert both.count(200) > 10 and both.count(403) > 10


def bad_clients(nginx_port):
    """Slow heads and bodies, and one who never reads, at both doors: others are served as before."""
    doors = [lambda: socket.create_connection(("127.0.0.1", nginx_port)), lambda: Socket()]
    basic = "Authorization: Basic " + base64.b64encode(b"cat:pw").decode() + "\r\n"
    slow = []
    for _ in range(50):
        for begin in (b"GET /always HT", f"POST /always HTTP/1.1\r\nHost: a\r\n{basic}Content-Length: 1000\r\n\r\nx".encode(),
                      (f"GET /always HTTP/1.1\r\nHost: a\r\n{basic}\r\n" * 200).encode()):  # and reads no answer
            for number, door in enumerate(doors):
                client = door()
                if number == 1:
                    client.connect()
                    client = client.sock
                    begin = begin.replace(b"GET /always HTTP", b"GET /envoy/always HTTP").replace(b"POST /always HTTP", b"POST /envoy/always HTTP")
                client.setblocking(False)
                try:
                    client.send(begin)
                except BlockingIOError:
                    pass
                slow.append(client)
    worst = 0
    for turn in range(100):
        for client in slow[turn % 7::7]:
            try:
                client.send(b"x")
            except OSError:
                pass
        for connection, direct in ((http.client.HTTPConnection("127.0.0.1", nginx_port, timeout=10), ""), (Socket(), "auth")):
            begin, status, end = request(connection, "GET", "/always", "cat", direct)
            assert status == 200, (direct, status)
            worst = max(worst, end - begin)
            connection.close()
    print(f"beside {len(slow)} bad clients the slowest answer took {worst * 1000:.0f} ms", flush=True)
    assert worst < 2
    for client in slow:
        client.close()


def envoy():
    """Method and target are the request's own; everything else as for other proxies."""
    for method, path, status in (("GET", "/always", 200), ("PATCH", "/always", 403), ("GET", "/../always", 403), ("GET", "/%2e/always", 403), ("GET", "//always", 403)):
        assert request(Socket(), method, path, "cat", "envoy")[1] == status, path
    connection = Socket()
    connection.request("GET", "/envoy/always")
    assert connection.getresponse().status == 401


def metric(name):
    connection = http.client.HTTPConnection("127.0.0.1", int(address.rsplit(":", 1)[1]))
    connection.request("GET", "/metrics")
    return float(re.search(rf"^{name} (\S+)$", connection.getresponse().read().decode(), re.M).group(1))


def start(configuration, limit=None):
    """Starts the host: (the process, everything that it said until it listened)."""
    with open("host.json", "w") as out:
        json.dump(configuration, out)

    def prepare():
        if limit:
            resource.setrlimit(resource.RLIMIT_NOFILE, limit)

    host = subprocess.Popen([TOOL, "--config", "host.json", "serve"], stderr=subprocess.PIPE, text=True, preexec_fn=prepare)
    said = ""
    while said.count("listening on") < 2:
        line = host.stderr.readline()
        assert line, said
        said += line
    threading.Thread(target=host.stderr.read, daemon=True).start()
    return host, said


def end(host):
    host.terminate()
    assert host.wait(15) == 0


with tempfile.TemporaryDirectory() as place:
    os.chmod(place, 0o755)
    os.chdir(place)
    own_group = grp.getgrgid(os.getgid()).gr_name
    group = "www-data" if os.getuid() == 0 else own_group
    configuration = {"LocalAccessManager": {"DatabaseFilename": "access.db"},
                     "Host": {"Listen": ["unix:host.sock", "127.0.0.1:0"], "SocketGroup": group, "Threads": 2,
                              "Proxy": {"Peers": ["unix"]}, "Log": {"Decisions": "/dev/full"}}}
    tool("init", "--no-administrators", "--password-stdin", text=PASSWORD)
    for user in USERS:
        tool("user", "add", user, "--password-stdin", text=PASSWORD)
    for name in GROUPS:
        tool("group", "add", name)
    tool("group", "add", "steady")  # what the random changes leave alone
    tool("user", "add", "cat", "--group", "steady", "--password-stdin", text=PASSWORD)
    tool("filter", "add", "steady", "Allow", "GET", "^/always$")
    tool("tune")

    # Too few descriptors are said; those that may be had are taken.
    host, said = start(configuration, limit=(64, 64))
    assert re.search(r"only \d+ of 10000 connections are possible", said), said
    end(host)
    host, said = start(configuration, limit=(64, 12000))
    assert "possible" not in said, said
    assert re.search(r"Max open files +(\d+)", open(f"/proc/{host.pid}/limits").read()).group(1) != "64"
    address = re.search(r"listening on (127\S+)", said).group(1)
    assert grp.getgrnam(group).gr_gid == os.stat("host.sock").st_gid and os.stat("host.sock").st_mode & 0o777 == 0o660

    with socket.socket() as free:  # the example's ports are other people's
        free.bind(("127.0.0.1", 0))
        nginx_port = free.getsockname()[1]
    for name in os.listdir(EXAMPLES):
        if name.endswith(".conf"):
            text = open(os.path.join(EXAMPLES, name)).read()
            text = re.sub(r"    # The same with TLS.*?\n    }\n\n?(?=})", "", text, flags=re.S)
            text = re.sub(r"    server {\s+listen 127.0.0.1:8443.*?\n    }\n", "", text, flags=re.S)
            with open(name, "w") as out:
                out.write(text.replace("8480", str(nginx_port)).replace("worker_connections 1024", "worker_connections 4096"))
    os.environ["PATH"] += ":/usr/sbin"
    subprocess.run(["nginx", "-p", place, "-c", "nginx.conf"], check=True, stderr=subprocess.DEVNULL)
    try:
        random_changes(nginx_port)
        bad_clients(nginx_port)
        envoy()
        deadline = time.monotonic() + 5
        while metric("perenna_log_lines_lost_total") == 0 and time.monotonic() < deadline:
            time.sleep(0.1)
        assert metric("perenna_log_lines_lost_total") > 0, "a full disk lost nothing"
        assert metric("perenna_database_failures_total") == 0
    finally:
        subprocess.run(["nginx", "-p", place, "-c", "nginx.conf", "-s", "stop"], stderr=subprocess.DEVNULL)
        end(host)
