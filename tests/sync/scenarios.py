"""A store, its machines, and how scenarios with them are run."""

import http.server
import json
import os
import random
import shutil
import sys
import tempfile
import threading
import time
import urllib.request

from cluster import Cluster, Machine, quote, wait_for

TOOL = os.path.abspath(sys.argv[1])
LONG = "--long" in sys.argv
SEED = int(os.environ.get("PERENNA_SEED", random.randrange(1 << 30)))
GROUP = json.dumps({"group_name": "A group"})


class Site:
    """A store that holds a directory, and two machines with running agents."""

    def __init__(self, place, members=3, machines=2):
        self.cluster = Cluster(place, members)
        self.machines = [Machine(TOOL, place, self.cluster, f"machine{i}") for i in range(machines)]
        first = self.machines[0]
        first.run("init", "--user", "admin", "--administrators", "administrators", "--password-stdin", given="secret\n")
        first.run("sync", "init")
        for machine in self.machines:
            machine.start()
        self.converge()

    def converge(self, seconds=20):
        revision = self.cluster.change([("g/last", GROUP)])
        for machine in self.machines:
            machine.at(revision, seconds)
            machine.check()
            wait_for("following", lambda m=machine: m.phase() == "following")

    def end(self):
        for machine in self.machines:
            machine.kill()
        self.cluster.stop()


def random_change(cluster, numbers):
    """Some keys of a few, so that they come, change and go."""
    puts, deletes = {}, set()
    for _ in range(numbers.randrange(1, 6)):
        name = f"n{numbers.randrange(30)}"
        key = numbers.choice([f"g/{name}", f"m/{name}/admin", f"f/{name}/GET/Allow/" + quote(f"^/{name}(/|$)")])
        if numbers.random() < 0.35:
            deletes.add(key)
        else:
            puts[key] = json.dumps({"group_name": str(numbers.random())}) if key[0] == "g" else ""
    return cluster.change(list(puts.items()), deletes - puts.keys())


ODD = [b"<html>", b"[]", b'{"error": {"code": 14, "message": "x"}}', b'{"message": null}', b'{"code": "14", "message": 7}']


class Torn(http.server.BaseHTTPRequestHandler):
    """A way to a member on which streams break in the middle of a line, lines come twice, answers to changes get lost, and some are a
    proxy's own."""

    member, numbers = None, random.Random(SEED)

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        if self.numbers.random() < 0.1:
            self.send_response(503)
            self.end_headers()
            self.wfile.write(self.numbers.choice(ODD))
            return
        request = urllib.request.Request(self.member + self.path, body)
        try:
            with urllib.request.urlopen(request) as answer:
                if self.path == "/v3/kv/txn" and self.numbers.random() < 0.3:
                    return
                self.send_response(answer.status)
                self.end_headers()
                for line in answer if self.path == "/v3/watch" else [answer.read()]:
                    torn = self.path == "/v3/watch" and self.numbers.random() < 0.2
                    again = self.path == "/v3/watch" and self.numbers.random() < 0.2
                    self.wfile.write(line[:len(line) // 2] if torn else line * (2 if again else 1))
                    self.wfile.flush()
                    if torn:
                        return
        except OSError:
            pass  # the agent turned away, or the member did

    def log_message(self, *_):
        pass


def torn_way(site, machine):
    """Leads a machine to the store through such a proxy, which is to be shut down."""
    Torn.member = site.cluster.clients[0]
    proxy = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Torn)
    proxy.daemon_threads = True
    threading.Thread(target=proxy.serve_forever, daemon=True).start()
    with open(machine.config, encoding="utf-8") as given:
        configuration = json.load(given)
    configuration["Sync"]["Endpoints"] = [f"http://127.0.0.1:{proxy.server_port}"] * 3  # tried twice each
    with open(machine.config, "w", encoding="utf-8") as out:
        json.dump(configuration, out)
    return proxy


def run(scenarios, large=()):
    """Runs those that the command line names, or all; `large` ones have a store of three members."""
    named = [name for name in sys.argv[2:] if not name.startswith("-")]
    print(f"PERENNA_SEED={SEED}")
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    for scenario in scenarios:
        name = scenario.__name__
        if named and name not in named:
            continue
        place = tempfile.mkdtemp(prefix="perenna-sync-", dir=memory)
        begin, site = time.monotonic(), None
        try:
            site = Site(place, 3 if scenario in large else 1)
            scenario(site)
        except BaseException:
            for entry in sorted(os.listdir(place)):
                if entry.endswith(".log") and entry.startswith("machine"):
                    with open(f"{place}/{entry}", encoding="utf-8") as log:
                        print(f"--- {entry}\n{log.read()}")
            raise
        finally:
            if site is not None:
                site.end()
            shutil.rmtree(place)
        print(f"{name}: {time.monotonic() - begin:.1f} s")
