"""Replica files against a real store that fails in every way: python3 replicas.py PERENNA-ACCESS [--long] [SCENARIO]"""

import base64
import json
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

from cluster import PREFIX, Cluster, Machine, encode, quote, wait_for

TOOL = os.path.abspath(sys.argv[1])
LONG = "--long" in sys.argv
NAMED = [name for name in sys.argv[2:] if not name.startswith("-")]
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


def follow(site):
    """Every byte arrives; other programs cannot write, and what they force is put right."""
    odd = "Jörg/\x01%~ é"
    user = {"auth_method": "plain_pw", "auth_value": {"base64": "/w=="}, "create_date": "d", "create_user": odd}
    site.cluster.change([(f"u/{quote(odd)}", json.dumps(user)), (f"m/administrators/{quote(odd)}", "")])
    site.converge()
    second = site.machines[1]
    lost = subprocess.run([TOOL, "--database", second.file, "user", "delete", "admin", "--force"], capture_output=True, text=True)
    assert lost.returncode == 2 and "is a replica" in lost.stderr and "--config" in lost.stderr, lost
    connection = sqlite3.connect(second.file)
    for statement in ("INSERT INTO groups VALUES('a', 'b')", "UPDATE users SET auth_value = 'x'", "DELETE FROM filters"):
        try:
            connection.execute(statement)
            raise AssertionError(f"a replica let pass: {statement}")
        except sqlite3.IntegrityError:
            connection.rollback()
    connection.executescript("DROP TRIGGER perenna_replica_users_DELETE; DELETE FROM users; "
                             "DROP TRIGGER perenna_replica_groupusers_INSERT; "
                             "INSERT INTO groupusers VALUES('administrators', 'mallory')")
    second.kill()  # also when nobody was there to see it
    connection.executescript("DROP TRIGGER perenna_replica_filters_DELETE; DELETE FROM filters")
    second.start()
    triggers = "SELECT count(*) FROM sqlite_master WHERE type = 'trigger'"
    wait_for("repair", lambda: connection.execute(triggers).fetchone()[0] == 12)
    connection.executescript("DROP TRIGGER perenna_replica_filters_INSERT; INSERT INTO filters VALUES('a','b','c','d')")
    wait_for("repair while it runs", lambda: connection.execute(triggers).fetchone()[0] == 12)
    connection.close()
    site.converge()


def kills(site):
    """However often the agent dies, the file is the store at its revision."""
    numbers = random.Random(SEED)
    machine = site.machines[0]
    for _ in range(60 if LONG else 10):
        machine.start() if machine.agent is None else None
        end = time.monotonic() + numbers.random() * 0.3
        while time.monotonic() < end:
            random_change(site.cluster, numbers)
        machine.kill()
        machine.check()
    machine.start()
    site.converge()


def members(site):
    """A silent member, a killed leader, no majority, and the age that tells."""
    asked = site.machines[0].status()["member"]
    silent = site.cluster.clients.index(asked)
    site.cluster.stop([silent], signal.SIGSTOP)
    wait_for("another member", lambda: site.machines[0].status()["member"] != asked and
             site.machines[0].phase() == "following", 12)
    site.cluster.stop([silent], signal.SIGCONT)
    leader = site.cluster.leader()
    site.cluster.stop([leader])
    wait_for("a leader", site.cluster.answers)
    site.converge()
    other = (leader + 1) % 3
    site.cluster.stop([other])
    wait_for("away", lambda: all(machine.phase() == "away" for machine in site.machines))
    before = site.machines[0].status()["age_seconds"]
    time.sleep(1.5)
    after = site.machines[0].status()
    assert after["age_seconds"] > before + 1.2 and after["phase"] == "away" and after["reason"], (before, after)
    wait_for("the reason", lambda: "store is away" in site.machines[0].status()["reason"])
    site.cluster.start([leader, other])
    site.converge()
    wait_for("freshness", lambda: site.machines[0].status()["age_seconds"] < 2)


def compacted(site):
    """What the agent missed is no longer kept; and compaction alone costs nothing."""
    for machine in site.machines:
        machine.kill()
    site.cluster.call("/v3/kv/compaction", {"revision": str(site.machines[0].row()[1])})
    site.machines[0].start()
    wait_for("following", lambda: site.machines[0].phase() == "following")
    with open(site.machines[0].log, encoding="utf-8") as log:
        assert "as a whole" not in log.read()
    site.machines[0].kill()
    numbers = random.Random(SEED)
    revision = [random_change(site.cluster, numbers) for _ in range(20)][-1]
    site.cluster.call("/v3/kv/compaction", {"revision": str(revision)})
    for machine in site.machines:
        machine.start()
    site.converge()
    with open(site.machines[0].log, encoding="utf-8") as log:
        assert "no longer keeps" in log.read()


def other_store(site):
    """A store that was restored, emptied or exchanged is not followed; the file stays, until it is adopted."""
    cluster, machine = site.cluster, site.machines[0]
    backup = f"{cluster.place}/backup"
    site.machines[1].kill()
    subprocess.run(["etcdctl", "--endpoints", cluster.clients[0], "snapshot", "save", backup], check=True,
                   capture_output=True, env={**os.environ, "ETCDCTL_API": "3"})
    for i in range(3):
        cluster.change([(f"g/lost{i}", GROUP)])
    kept = cluster.change([("g/lost", GROUP)])
    machine.at(kept)
    machine.kill()  # it was away while the store was restored and passed it
    cluster.stop()
    shutil.rmtree(f"{cluster.place}/m0")
    subprocess.run(["etcdctl", "snapshot", "restore", backup, "--name", "m0", "--data-dir", f"{cluster.place}/m0",
                    "--initial-cluster", f"m0={cluster.peers[0]}", "--initial-advertise-peer-urls", cluster.peers[0]],
                   check=True, capture_output=True, env={**os.environ, "ETCDCTL_API": "3"})
    cluster.start()

    def stopped(why):
        wait_for("stopped", lambda: machine.phase() == "stopped")
        assert why in machine.status()["reason"], machine.status()
        assert "adopt" in machine.status()["reason"]

    machine.start()
    stopped("behind")
    while cluster.change([("g/other", GROUP)]) <= kept + 3:
        pass
    time.sleep(1.5)
    stopped("history")
    connection = sqlite3.connect(machine.file)
    assert connection.execute("SELECT count(*) FROM groups WHERE group_id = 'lost'").fetchone() == (1,)
    connection.close()
    machine.run("sync", "--adopt")
    wait_for("following", lambda: machine.phase() == "following")
    site.machines[1].start()  # was there before the backup: it simply goes on
    site.converge()

    cluster.stop()  # the same names and ports, and nothing in it
    shutil.rmtree(f"{cluster.place}/m0")
    cluster.start()
    stopped("no directory")
    third = Machine(TOOL, cluster.place, cluster, "third")
    third.run("init", "--user", "admin", "--no-administrators", "--password-stdin", given="secret\n")
    third.run("sync", "init")
    time.sleep(1.5)
    stopped("holds the directory")


def files(site):
    """The file removed, replaced by an older one of the same directory, and by one that is no replica."""
    machine = site.machines[0]

    def put(source):
        shutil.copy(source, machine.file + ".copy")
        os.rename(machine.file + ".copy", machine.file)

    old = machine.file + ".old"
    machine.run("backup", old)
    site.converge()
    for name in (machine.file, machine.file + "-wal", machine.file + "-shm"):
        if os.path.exists(name):
            os.remove(name)
    wait_for("a new file", lambda: machine.phase() == "following")
    site.converge()
    put(old)
    for name in (machine.file + "-wal", machine.file + "-shm"):
        if os.path.exists(name):
            os.remove(name)
    site.converge()
    other = machine.file + ".other"
    subprocess.run([TOOL, "--database", other, "init", "--user", "x", "--no-administrators", "--password-stdin"],
                   input="secret\n", text=True, check=True, capture_output=True)
    put(other)
    wait_for("refusal", lambda: "no replica" in open(machine.log, encoding="utf-8").read())
    connection = sqlite3.connect(machine.file)
    assert connection.execute("SELECT user_id FROM users").fetchall() == [("x",)]
    connection.close()


def stale(site):
    """A host that must not decide from an old copy does not, and says so; another goes on; both decide once it is fresh."""
    machine = site.machines[0]
    place = site.cluster.place
    configuration = json.load(open(machine.config, encoding="utf-8"))
    hosts = {}
    for what in ("refuse", "serve"):
        configuration["Sync"].update({"OnStale": what, "StaleSeconds": 3})
        configuration["Host"] = {"Listen": [f"unix:{place}/{what}.sock"], "Proxy": {"Peers": ["unix"]}}
        with open(f"{place}/{what}.json", "w", encoding="utf-8") as out:
            json.dump(configuration, out)
        with open(f"{place}/machine-{what}.log", "ab") as log:
            hosts[what] = subprocess.Popen([TOOL, "--config", f"{place}/{what}.json", "serve"], stderr=log)

    def ask(what, path, *more):
        done = subprocess.run(["curl", "-sS", "--max-time", "5", "--unix-socket", f"{place}/{what}.sock", "-w",
                               " %{http_code}", *more, f"http://localhost{path}"], capture_output=True, text=True)
        return " ".join(done.stdout.split())

    def decided(what):
        return ask(what, "/auth", "-u", "admin:secret", "-H", "X-Original-Method: GET", "-H", "X-Original-URI: /access/users")

    try:
        for what in hosts:
            wait_for("a decision", lambda w=what: decided(w) == "200")
            assert ask(what, "/readyz") == "ready 200"
        for method, path, body, status in [
                ("POST", "/access/groups", {"group_id": "readers"}, 201), ("POST", "/access/groups", {"group_id": "readers"}, 409),
                ("POST", "/access/users", {"user_id": "bob", "password": "pw"}, 201),
                ("PUT", "/access/groups/readers/users/bob", None, 204), ("PUT", "/access/users/admin/groups", [], 409),
                ("POST", "/access/filters", {"group_id": "readers", "method": "GET", "filter": "^/a", "action": "Allow"}, 201),
                ("DELETE", "/access/filters?method=GET&group_id=readers&filter=%5E/a&action=Allow", None, 204),
                ("PUT", "/access/users/bob/credential", {"password": "new"}, 204), ("DELETE", "/access/groups/readers", None, 204)]:
            change = ["-X", method, "-u", "admin:secret", "-H", "Content-Type: application/json", "-d", json.dumps(body)]
            answer = ask("serve", path, *(change if body is not None else change[:4]))
            assert answer.endswith(str(status)), (method, path, answer)
            machine.check()
        assert ask("refuse", "/access/users/bob", "-u", "admin:secret").endswith("200")  # at once
        site.cluster.stop()
        answer = ask("serve", "/access/groups", *change[2:6], "-d", '{"group_id": "late"}', "-X", "POST")
        assert answer.endswith("503") and "store" in answer, answer
        assert ask("serve", "/access/groups/late", "-u", "admin:secret").endswith("404")
        machine.kill()
        wait_for("staleness", lambda: ask("refuse", "/readyz") == "stale 503")
        assert decided("refuse") == "503" and decided("serve") == "200", (decided("refuse"), decided("serve"))
        assert ask("serve", "/readyz") == "stale 200"
        seen = ask("serve", "/access/me", "-u", "admin:secret", "-D", "-", "-o", "/dev/null")
        assert "X-Directory-Age: " in seen and ";stale" in seen, seen
        site.cluster.start()
        machine.start()
        wait_for("freshness", lambda: ask("refuse", "/readyz") == "ready 200")
        assert decided("refuse") == "200"
        machine.kill()
        os.remove(machine.file + "-sync")  # what is of unknown age is too old
        wait_for("staleness", lambda: decided("refuse") == "503")
    finally:
        for host in hosts.values():
            host.terminate()
            host.wait()


def writes(site):
    """Whatever changes a directory goes through the store, is in the files when the command ends, and is in the trail."""
    first, second = site.machines
    trail = f"{site.cluster.place}/trail"
    with open(f"{site.cluster.place}/staff.csv", "w", encoding="utf-8") as csv:
        csv.write("user_id,groups\ndora,editors\nemil,\n")
    for machine, command, given in [
            (first, "group add editors", ""), (second, "group rename editors People", ""),
            (first, "user add bob --password-stdin --group editors", "pw\n"),
            (second, "user add carl --password-stdin", "pw\n"),
            (first, f"user add --csv {site.cluster.place}/staff.csv --passwords {site.cluster.place}/passwords.csv", ""),
            (second, "user set-password carl --password-stdin", "other\n"), (first, "user disable emil", ""),
            (first, "group set-members editors bob carl", ""), (second, "user remove-group carl editors", ""),
            (first, "filter add editors Allow GET,PUT ^/articles", ""), (second, "filter delete editors Allow PUT ^/articles", ""),
            (second, "user add-group carl editors", ""), (second, "--yes user delete dora emil", "")]:
        machine.run("--audit", trail, *command.split(), given=given)
        machine.check()
    assert first.run("check", "bob", "GET", "/articles/1").strip() == "allowed"
    assert "may administer" in second.run("user", "delete", "admin", status=1)
    assert "exists already" in second.run("group", "add", "editors", status=1)
    with open(trail, encoding="utf-8") as lines:
        rows = [json.loads(line) for line in lines]
    assert len(rows) == 13 and all(line["rows"] for line in rows), rows
    assert rows[2]["rows"][0]["after"]["user_id"] == "bob" and "auth_value" not in json.dumps(rows)
    other = f"{site.cluster.place}/other.db"
    subprocess.run([TOOL, "--database", other, "init", "--user", "x", "--no-administrators", "--password-stdin"],
                   input="secret\n", text=True, check=True, capture_output=True)
    assert "is a replica" in first.run("restore", other, status=1)
    whole = json.loads(first.run("export", "-"))
    whole["users"] += [{**whole["users"][0], "user_id": f"u{i}"} for i in range(3000)]
    whole["memberships"] += [{"group_id": "editors", "user_id": f"u{i}"} for i in range(3000)]
    with open(f"{site.cluster.place}/whole.json", "w", encoding="utf-8") as out:
        json.dump(whole, out)
    first.run("--yes", "import", f"{site.cluster.place}/whole.json")
    assert site.cluster.current()["generation"] == 2 and "editors" in first.run("user", "show", "u2999")
    site.converge()
    assert first.run("export", "--sorted", "-") == second.run("export", "--sorted", "-")
    keys = site.cluster.call("/v3/kv/range", {"key": encode(PREFIX + "1/"), "range_end": encode(PREFIX + "10"), "count_only": True})
    assert keys.get("count", "0") in ("0", "1"), keys  # of the generation before, its head at most
    site.cluster.stop()
    before = first.run("export", "-")
    assert "store" in first.run("group", "add", "late", status=3)
    assert before == first.run("export", "-")


def rivals(site):
    """Two machines change the same things at once: every change is made once, in one order."""
    begin = site.cluster.change([("g/begin", GROUP)])
    end = time.monotonic() + (60 if LONG else 4)
    for machine in site.machines:
        machine.run("group", "add", f"of-{os.path.basename(machine.file)[:-3]}")
    counts = [0, 0]

    def work(number):
        machine = site.machines[number]
        while time.monotonic() < end:
            name = f"w{number}-{counts[number]}"
            machine.run("group", "add", name)
            machine.run("group", "add-member", name, "admin")
            machine.run("group", "rename", "begin", name)
            counts[number] += 1

    threads = [threading.Thread(target=work, args=(number,)) for number in (0, 1)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    site.converge()
    assert min(counts) > 0, counts
    for machine in site.machines:
        rows = machine.run("group", "list", "--csv")
        for number in (0, 1):
            assert all(f"w{number}-{i}," in rows for i in range(counts[number])), (counts, rows)
    heads, seen = site.cluster.get(f"{PREFIX}{site.cluster.current()['generation']}/head"), set()
    while int(heads["mod_revision"]) > begin:
        seen.add(json.loads(base64.b64decode(heads["value"]))["txn"])
        heads = site.cluster.get(f"{PREFIX}{site.cluster.current()['generation']}/head", int(heads["mod_revision"]) - 1)
    assert len(seen) == 3 * sum(counts) + 3, (len(seen), counts)  # two groups before, one change of converge after
    print(f"rivals: {counts} rounds of 3 changes")


SCENARIOS = {"follow": follow, "kills": kills, "members": members, "compacted": compacted,
             "other_store": other_store, "files": files, "stale": stale,
             "writes": writes, "rivals": rivals}


def main():
    print(f"PERENNA_SEED={SEED}")
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    for name in NAMED or SCENARIOS:
        place = tempfile.mkdtemp(prefix="perenna-sync-", dir=memory)
        begin = time.monotonic()
        site = None
        try:
            site = Site(place, 1 if name in ("other_store", "files", "compacted", "follow", "stale", "writes", "rivals") else 3)
            SCENARIOS[name](site)
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


main()
