"""Changes on machines that share a directory: python3 changes.py PERENNA-ACCESS [--long] [SCENARIO]"""

import base64
import json
import os
import socket
import subprocess
import threading
import time

from cluster import PREFIX, encode, wait_for
from scenarios import GROUP, LONG, TOOL, run, torn_way


def stale(site):
    """A host that must not decide from an old copy does not, and says so; another goes on; both decide once it is fresh."""
    machine = site.machines[0]
    place = site.cluster.place
    configuration = json.load(open(machine.config, encoding="utf-8"))
    machine.run("filter", "add", "administrators", "Allow", "GET", "^/metrics$")
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
            wait_for("a fresh copy", lambda w=what: ask(w, "/readyz") == "ready 200")  # "serve" decides before that, too
            assert decided(what) == "200"
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
        assert "perenna_sync_age_seconds " in ask("serve", "/metrics", "-u", "admin:secret")
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
    first.run("--no-wait", "group", "rename", "editors", "Who edits")
    first.at(site.cluster.change([("g/then", GROUP)]))
    assert "Who edits" in first.run("group", "show", "editors")
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


def history(site, begin):
    """The ids of all changes after a revision, by the heads that follow each other."""
    key, seen = f"{PREFIX}{site.cluster.current()['generation']}/head", []
    head = site.cluster.get(key)
    while int(head["mod_revision"]) > begin:
        seen.append(json.loads(base64.b64decode(head["value"]))["txn"])
        head = site.cluster.get(key, int(head["mod_revision"]) - 1)
    assert len(seen) == len(set(seen))
    return seen


def lost(site):
    """Answers to changes get lost on the way: each change is made once, and its command knows."""
    machine = site.machines[0]
    proxy = torn_way(site, machine)
    begin, count = site.cluster.change([("g/begin", GROUP)]), 200 if LONG else 25
    for i in range(count):
        machine.run("group", "add", f"lost{i}")
    assert len(history(site, begin)) == count
    site.converge()
    proxy.shutdown()


def rivals(site):
    """Two machines change the same things at once: every change is made once, in one order."""
    begin = site.cluster.change([("g/begin", GROUP)])
    end = time.monotonic() + (60 if LONG else 4)
    for machine in site.machines:
        machine.run("group", "add", f"of-{os.path.basename(machine.file)[:-3]}")
    counts = [0, 0]

    def work(number):
        machine = site.machines[number]
        while not counts[number] or time.monotonic() < end:  # once at least, however slow
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
    seen = history(site, begin)
    assert len(seen) == 3 * sum(counts) + 3, (len(seen), counts)  # two groups before, one change of converge after
    print(f"rivals: {counts} rounds of 3 changes")


def switch(site):
    """While whole directories take each other's place, a host decides, and never what neither of them says."""
    machine, place, answers = site.machines[0], site.cluster.place, []
    machine.run("--yes", "filter", "add", "administrators", "Allow", "GET", "^/both$")
    whole = [json.loads(machine.run("export", "-"))]
    whole.append({**whole[0], "users": whole[0]["users"] + [{**whole[0]["users"][0], "user_id": f"u{i}"} for i in range(2500)]})
    for number, one in enumerate(whole):
        with open(f"{place}/whole{number}.json", "w", encoding="utf-8") as out:
            json.dump(one, out)
    configuration = json.load(open(machine.config, encoding="utf-8"))
    configuration["Host"] = {"Listen": [f"unix:{place}/host.sock"], "Proxy": {"Peers": ["unix"]}, "Cache": {"Decisions": 0}}
    with open(f"{place}/host.json", "w", encoding="utf-8") as out:
        json.dump(configuration, out)
    with open(f"{place}/machine-host.log", "ab") as log:
        host = subprocess.Popen([TOOL, "--config", f"{place}/host.json", "serve"], stderr=log)

    def ask():
        connection = socket.socket(socket.AF_UNIX)
        connection.connect(f"{place}/host.sock")
        stream = connection.makefile("rb")
        login = base64.b64encode(b"admin:secret").decode()
        while not done.is_set():
            for target, wanted in (("/both", 200), ("/neither", 403)):
                connection.sendall(f"GET /auth HTTP/1.1\r\nHost: h\r\nAuthorization: Basic {login}\r\nX-Original-Method: GET\r\n"
                                   f"X-Original-URI: {target}\r\n\r\n".encode())
                answers.append((int(stream.readline().split()[1]), wanted))
                while stream.readline().strip():
                    pass

    done, thread = threading.Event(), threading.Thread(target=ask)
    try:
        wait_for("the host", lambda: os.path.exists(f"{place}/host.sock"))
        thread.start()
        for round_ in range(60 if LONG else 6):
            machine.run("--yes", "import", "--no-backup", f"{place}/whole{(round_ + 1) % 2}.json")
            machine.check()
    finally:
        done.set()
        thread.join()
        host.terminate()
        host.wait()
    wrong = [answer for answer in answers if answer[0] != answer[1]]
    assert len(answers) > 100 and not wrong, (len(answers), wrong[:5])
    assert site.cluster.current()["generation"] == (61 if LONG else 7)
    print(f"switch: {len(answers)} answers")


run([stale, writes, lost, rivals, switch])
