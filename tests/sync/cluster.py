"""Real members of a store on loopback, machines with their agents, and the store's own word for what a file must hold."""

import base64
import json
import os
import signal
import socket
import sqlite3
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request
import uuid

PREFIX = "/perenna/"
ALL = {"u": ("users", 1), "g": ("groups", 1), "m": ("groupusers", 2), "f": ("filters", 4)}


def encode(text):
    return base64.b64encode(text.encode() if isinstance(text, str) else text).decode()


def quote(text):
    return urllib.parse.quote(text, safe="._-").replace("~", "%7E")


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for each in sockets:
        each.bind(("127.0.0.1", 0))
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


def wait_for(what, condition, seconds=15):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.02)
    raise AssertionError(f"not within {seconds} s: {what}")


class Cluster:
    """Members of one store; only those that it started are ever signalled."""

    def __init__(self, place, count=3, more=()):
        self.place, self.more = place, list(more)
        ports = free_ports(2 * count)
        self.clients = [f"http://127.0.0.1:{port}" for port in ports[:count]]
        self.peers = [f"http://127.0.0.1:{port}" for port in ports[count:]]
        self.members = [None] * count
        self.start()

    def start(self, which=None):
        every = ",".join(f"m{i}={peer}" for i, peer in enumerate(self.peers))
        for i in which if which is not None else range(len(self.members)):
            with open(f"{self.place}/m{i}.log", "ab") as log:
                self.members[i] = subprocess.Popen(
                    ["etcd", "--name", f"m{i}", "--data-dir", f"{self.place}/m{i}", "--pre-vote=true",
                     "--listen-client-urls", self.clients[i], "--advertise-client-urls", self.clients[i],
                     "--listen-peer-urls", self.peers[i], "--initial-advertise-peer-urls", self.peers[i],
                     "--initial-cluster", every, "--heartbeat-interval", "50", "--election-timeout", "500",
                     "--max-txn-ops", "10000", "--max-request-bytes", "10485760", *self.more], stdout=log, stderr=log)
        wait_for("a majority", self.answers, 30)

    def stop(self, which=None, how=signal.SIGKILL):
        for i in which if which is not None else range(len(self.members)):
            if self.members[i] is not None:
                self.members[i].send_signal(how)
                if how in (signal.SIGKILL, signal.SIGTERM):
                    self.members[i].wait()
                    self.members[i] = None

    def call(self, path, body, members=None):
        fault = None
        for client in [self.clients[i] for i in members] if members is not None else self.clients:
            try:
                request = urllib.request.Request(client + path, json.dumps(body).encode())
                with urllib.request.urlopen(request, timeout=3) as answer:
                    return json.load(answer)
            except urllib.error.HTTPError as error:
                fault = AssertionError(f"{path}: {error.read().decode()}")
            except OSError as error:
                fault = error
        raise fault

    def answers(self):
        try:
            self.call("/v3/kv/range", {"key": encode("x")})
            return True
        except (OSError, AssertionError):
            return False

    def leader(self):
        for i, member in enumerate(self.members):
            if member is not None:
                status = self.call("/v3/maintenance/status", {}, [i])
                if status["leader"] == status["header"]["member_id"]:
                    return i
        raise AssertionError("no leader")

    def get(self, key, revision=0):
        body = {"key": encode(key)}
        if revision:
            body["revision"] = str(revision)
        pairs = self.call("/v3/kv/range", body).get("kvs", [])
        return pairs[0] if pairs else None

    def current(self):
        return json.loads(base64.b64decode(self.get(PREFIX + "current")["value"]))

    def change(self, puts=(), deletes=()):
        """One change, past every program of ours, as long as nobody else changes anything meanwhile."""
        generation = self.current()["generation"]
        head = f"{PREFIX}{generation}/head"
        body = {"txn": str(uuid.uuid4()), "writer": "test", "time": "now", "schema": 1}
        operations = [{"request_put": {"key": encode(f"{PREFIX}{generation}/{key}"), "value": encode(value)}}
                      for key, value in puts]
        operations += [{"request_delete_range": {"key": encode(f"{PREFIX}{generation}/{key}")}} for key in deletes]
        operations.append({"request_put": {"key": encode(head), "value": encode(json.dumps(body))}})
        answer = self.call("/v3/kv/txn", {
            "compare": [{"key": encode(head), "target": "MOD", "result": "EQUAL",
                         "mod_revision": self.get(head)["mod_revision"]}], "success": operations})
        assert answer.get("succeeded"), answer
        return int(answer["header"]["revision"])

    def rows(self, generation, revision):
        """What a file at this revision must hold."""
        prefix = f"{PREFIX}{generation}/"
        answer = self.call("/v3/kv/range", {"key": encode(prefix), "range_end": encode(prefix[:-1] + "0"),
                                            "revision": str(revision)})
        rows = {table: [] for table, _ in ALL.values()}
        for pair in answer.get("kvs", []):
            kind, *parts = base64.b64decode(pair["key"]).decode()[len(prefix):].split("/")
            if kind == "head":
                continue
            parts = [urllib.parse.unquote_to_bytes(part) for part in parts]
            value = json.loads(base64.b64decode(pair["value"])) if pair.get("value") else {}
            texts = [base64.b64decode(text["base64"]) if isinstance(text, dict) else text.encode()
                     for text in value.values()]
            if kind == "f":
                group, method, action, pattern = parts
                parts = [method, group, pattern, action]
            rows[ALL[kind][0]].append(tuple(parts + texts))
        return {table: sorted(each) for table, each in rows.items()}


class Machine:
    """A configuration, a replica file and perhaps an agent."""

    def __init__(self, tool, place, cluster, name, more=None):
        self.tool, self.file, self.agent = tool, f"{place}/{name}.db", None
        self.config, self.log = f"{place}/{name}.json", f"{place}/{name}.log"
        self.cluster = cluster
        with open(self.config, "w", encoding="utf-8") as out:
            json.dump({"LocalAccessManager": {"DatabaseFilename": self.file},
                       "Host": {"Listen": [f"unix:{place}/{name}.sock"]},
                       "Sync": {"Endpoints": cluster.clients, **(more or {})}}, out)

    def run(self, *arguments, status=0, given=""):
        done = subprocess.run([self.tool, "--config", self.config, *arguments], input=given, text=True,
                              capture_output=True, timeout=60, check=False)
        assert status is None or done.returncode == status, f"{arguments}: {done.returncode} {done.stdout}{done.stderr}"
        return done.stdout + done.stderr

    def start(self):
        with open(self.log, "ab") as log:
            self.agent = subprocess.Popen([self.tool, "--config", self.config, "sync"], stderr=log)
        return self

    def kill(self, how=signal.SIGKILL):
        if self.agent is not None:
            self.agent.send_signal(how)
            self.agent.wait()
            self.agent = None

    def row(self):
        with sqlite3.connect(f"file:{self.file}?mode=ro", uri=True) as connection:
            generation, revision = connection.execute("SELECT generation, revision FROM perenna_replica").fetchone()
        connection.close()
        return generation, revision

    def status(self):
        return json.loads(self.run("sync", "status", "--json", status=None))

    def phase(self):
        return self.status()["phase"] if os.path.exists(self.file) else "no file"

    def at(self, revision, seconds=15):
        wait_for(f"{self.file} at {revision}", lambda: os.path.exists(self.file) and self.row()[1] >= revision, seconds)

    def check(self):
        """The file is the store at the file's revision, nothing between two of them."""
        connection = sqlite3.connect(f"file:{self.file}?mode=ro", uri=True)
        connection.text_factory = bytes
        connection.execute("BEGIN")
        generation, revision = connection.execute("SELECT generation, revision FROM perenna_replica").fetchone()
        held = {table: sorted(connection.execute(f"SELECT * FROM {table}").fetchall()) for table, _ in ALL.values()}
        connection.close()
        wanted = self.cluster.rows(generation, revision)
        assert held == wanted, f"{self.file} at {revision} is not the store"
