"""Replica files against a real store that fails in every way: python3 replicas.py PERENNA-ACCESS [--long] [SCENARIO]"""

import json
import os
import random
import resource
import shutil
import signal
import sqlite3
import subprocess
import time

from cluster import Machine, quote, wait_for
from scenarios import GROUP, LONG, SEED, TOOL, random_change, run, torn_way


def follow(site):
    """Every byte arrives; other programs cannot write, and what they force is put right."""
    odd = "Jörg/\x01%~ é"
    user = {"auth_method": "plain_pw", "auth_value": {"base64": "/w=="}, "create_date": "d", "create_user": odd}
    site.cluster.change([(f"u/{quote(odd)}", json.dumps(user)), (f"m/administrators/{quote(odd)}", "")])
    site.converge()
    many = [(f"f/big/GET/Allow/{quote('^/' + 'x' * 900 + str(i))}", "") for i in range(1700)]
    site.cluster.change(many)  # comes in several messages
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


def full_disk(site):
    """A file that cannot grow stays at one whole revision; with room again the agent goes on."""
    machine = site.machines[0]
    machine.kill()
    limit = os.path.getsize(machine.file) + 32768

    def bound():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    with open(machine.log, "ab") as log:
        machine.agent = subprocess.Popen([TOOL, "--config", machine.config, "sync"], stderr=log, preexec_fn=bound)
    wait_for("following", lambda: machine.phase() == "following")
    for part in range(20):
        site.cluster.change([(f"g/part{part}-{i}", GROUP) for i in range(100)])
    wait_for("failing", lambda: machine.phase() in ("failing", "away"))
    machine.check()
    before = machine.status()["age_seconds"]
    time.sleep(1.2)
    assert machine.status()["age_seconds"] > before + 1, (before, machine.status())
    machine.kill()
    machine.start()
    site.converge()


def torn(site):
    """Streams that break and repeat themselves lose nothing and apply nothing twice."""
    machine = site.machines[0]
    machine.kill()
    proxy = torn_way(site, machine)
    machine.start()
    numbers, end = random.Random(SEED), time.monotonic() + (60 if LONG else 4)
    while time.monotonic() < end:
        revision = random_change(site.cluster, numbers)
        if numbers.random() < 0.1:
            machine.at(revision, 20)
            machine.check()
    site.converge(30)
    proxy.shutdown()


run([follow, kills, members, compacted, other_store, files, full_disk, torn], large=[kills, members])
