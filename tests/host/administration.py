#!/usr/bin/env python3
"""The administration over HTTP, by the real program through real sockets.

    administration.py PERENNA_ACCESS

A table of requests first; then what several clients do at once, and what happens when the database or a client fails."""

import base64
import http.client
import json
import os
import re
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

TOOL = sys.argv[1]
PASSWORD = "s3cret-of-admin"
CERTIFICATE_THUMBPRINT = "5BA93C9DB0CFF93F52B521D7420E43F6EDA2784F"
ANSWERS = []  # everything that came back, to be searched for secrets


def basic(user, password=PASSWORD):
    return "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


class Host:
    """A directory and the program that serves it, with one thread for decisions."""

    def __init__(self, place, listen="127.0.0.1:0", **more):
        self.place = place
        self.database = os.path.join(place, "access.db")
        configuration = {
            "LocalAccessManager": {"DatabaseFilename": "access.db"},
            "Host": {"Listen": [listen], "Threads": 1, "Limits": {"BodyBytes": 100000},
                     "Log": {"Administration": "administration.log", "Decisions": "decisions.log"}, **more}}
        self.file = os.path.join(place, "host.json")
        with open(self.file, "w") as out:
            json.dump(configuration, out)
        self.tool("init", "--administrators", "administrators", "--password-stdin", text=PASSWORD + "\n")
        self.tool("tune")
        self.start()

    def tool(self, *words, text=""):
        return subprocess.run([TOOL, "--config", self.file, *words], input=text, text=True, check=True,
                              capture_output=True).stdout

    def start(self):
        self.process = subprocess.Popen([TOOL, "--config", self.file, "serve"], stderr=subprocess.PIPE, text=True)
        line = self.process.stderr.readline()
        while "listening on" not in line:
            assert line, "the host does not start"
            line = self.process.stderr.readline()
        self.address = line.split()[-1]
        threading.Thread(target=self.process.stderr.read, daemon=True).start()

    def connect(self):
        if self.address.startswith("unix:"):
            connection = http.client.HTTPConnection("host")
            connection.sock = socket.socket(socket.AF_UNIX)
            connection.sock.connect(self.address[5:])
            return connection
        name, port = self.address.rsplit(":", 1)
        return http.client.HTTPConnection(name, int(port), timeout=30)

    def ask(self, method, path, body=None, user="admin", password=PASSWORD, connection=None, **fields):
        headers = {} if user is None else {"Authorization": basic(user, password)}
        if body is not None and not isinstance(body, (str, bytes)):
            body = json.dumps(body)
        if body is not None:
            headers["Content-Type"] = "application/json"
        headers.update({name.replace("_", "-"): value for name, value in fields.items()})
        own = connection or self.connect()
        own.request(method, path, body, {name: value for name, value in headers.items() if value is not None})
        answer = own.getresponse()
        text = answer.read().decode()
        ANSWERS.append(text + str(answer.headers))
        answer.json = json.loads(text) if text and "json" in (answer.getheader("Content-Type") or "") else text
        if own is not connection:
            own.close()
        return answer

    def end(self):
        self.process.terminate()
        return self.process.wait(15)


def expect(answer, status, what, **members):
    got = {name: answer.json.get(name) for name in members} if members else {}
    if answer.status != status or any(not re.search(str(wanted), str(got[name])) for name, wanted in members.items()):
        raise AssertionError(f"{what}: {answer.status} {answer.json}, not {status} {members}")
    if status >= 400:
        assert answer.getheader("Content-Type") == "application/problem+json", what
        assert {"type", "title", "status", "detail", "instance"} <= set(answer.json), what
        assert answer.json["instance"] == answer.getheader("X-Request-Id"), what
    return answer


def table(host):
    """Each row: method, path, body, status, members of the answer; it is run in this order."""
    user = {"user_id": "alice", "password": "pw-of-alice"}
    allow = {"method": "GET", "group_id": "readers", "filter": "^/articles(/|$)", "action": "Allow"}
    query = "method=GET&group_id=readers&filter=%5E%2Farticles%28%2F%7C%24%29&action=Allow"
    for method, path, body, status, members in [
        ("GET", "/access/me", None, 200, {"user_id": "admin", "auth_method": "sha256", "groups": "administrators"}),
        ("POST", "/access/groups", {"group_id": "readers", "group_name": "People"}, 201, {"group_name": "People", "users": r"\[\]"}),
        ("POST", "/access/groups", {"group_id": "readers"}, 409, {"code": "FILEEXISTS"}),
        ("POST", "/access/groups", {"group_id": "a b"}, 400, {"code": "PARAM", "detail": "Invalid characters"}),
        ("POST", "/access/users", user, 201, {"user_id": "alice", "create_user": "admin"}),
        ("POST", "/access/users", user, 409, {"code": "FILEEXISTS"}),
        ("POST", "/access/users", {"user_id": "", "password": "x"}, 400, {"code": "PARAM", "detail": "Empty user_id"}),
        ("POST", "/access/users", {"user_id": "a:b", "password": "x"}, 400, {"detail": "colon"}),
        ("POST", "/access/users", {"user_id": "x"}, 400, {"detail": "exactly one of"}),
        ("POST", "/access/users", {"user_id": "x", "password": "1", "thumbprint": "2"}, 400, {"detail": "exactly one of"}),
        ("POST", "/access/users", {"user_id": "bob", "thumbprint": CERTIFICATE_THUMBPRINT, "groups": ["readers"]}, 201, {"groups": "readers"}),
        ("POST", "/access/users", {"user_id": "eve", "thumbprint": CERTIFICATE_THUMBPRINT}, 409, {"detail": "bob"}),
        ("POST", "/access/users", {"user_id": "eve", "password": "x", "groups": ["nobody"]}, 400, {"detail": "nobody"}),
        ("POST", "/access/users", {"user_id": "eve", "password": "x", "role": "y"}, 400, {"detail": "role"}),
        ("POST", "/access/users", '{"user_id": "e", "user_id": "f", "password": "x"}', 400, {"detail": "twice"}),
        ("POST", "/access/users", '{"user_id": "e", "password": "hidden', 400, {"detail": "at byte"}),
        ("POST", "/access/users", {"user_id": "e\0f", "password": "x"}, 400, {"detail": "NUL"}),
        ("POST", "/access/users", {"user_id": 7, "password": "x"}, 400, {"detail": "not a text"}),
        ("GET", "/access/users/alice", None, 200, {"groups": r"\[\]"}),
        ("GET", "/access/users/nobody", None, 404, {"detail": "nobody"}),
        ("GET", "/access/users/a%2Fb", None, 400, {"detail": "managed with the tool"}),
        ("PUT", "/access/users/alice/groups", ["readers", "readers"], 200, {}),
        ("PUT", "/access/users/alice/groups", ["none"], 400, {"detail": "none"}),
        ("PUT", "/access/users/alice/groups", {"a": 1}, 400, {"detail": "not an array"}),
        ("PUT", "/access/users/alice/credential", {"password": "other-of-alice"}, 204, {}),
        ("GET", "/access/users?limit=1&skip=1", None, 200, {"skip": 1, "limit": 1, "total": 3}),
        ("GET", "/access/users?limit=all", None, 200, {"limit": 3}),
        ("GET", "/access/users?search=LIC", None, 200, {"total": 1, "results": "alice"}),
        ("GET", "/access/users?group=readers", None, 200, {"total": 2}),
        ("GET", "/access/users?limit=-1", None, 400, {"detail": "limit"}),
        ("GET", "/access/users?limit=1&limit=2", None, 400, {"detail": "twice"}),
        ("GET", "/access/users?colour=red", None, 400, {"detail": "colour"}),
        ("GET", "/access/users?search=%zz", None, 400, {"detail": "hexadecimal"}),
        ("GET", "/access/groups?search=people", None, 200, {"total": 1}),
        ("GET", "/access/groups/readers", None, 200, {"users": "alice.*bob"}),
        ("PUT", "/access/groups/readers/users", ["alice"], 200, {}),
        ("PUT", "/access/groups/readers/users/bob", None, 204, {}),
        ("PUT", "/access/groups/readers/users/bob", None, 204, {}),
        ("PUT", "/access/groups/readers/users/nobody", None, 404, {"detail": "nobody"}),
        ("DELETE", "/access/groups/readers/users/bob", None, 204, {}),
        ("DELETE", "/access/groups/readers/users/bob", None, 204, {}),
        ("POST", "/access/filters", allow, 201, allow and {"action": "Allow"}),
        ("POST", "/access/filters", allow, 409, {}),
        ("POST", "/access/filters", {**allow, "method": "get"}, 400, {"detail": "get"}),
        ("POST", "/access/filters", {**allow, "action": "allow"}, 400, {"detail": "allow"}),
        ("POST", "/access/filters", {**allow, "filter": "("}, 400, {"detail": "POSIX"}),
        ("POST", "/access/filters", {**allow, "group_id": "none"}, 400, {"detail": "none"}),
        ("POST", "/access/filters?unchecked=true", {**allow, "filter": "("}, 201, {}),
        ("POST", "/access/filters?unchecked=yes", allow, 400, {"detail": "unchecked"}),
        ("GET", "/access/filters?group=readers", None, 200, {"total": 2}),
        ("GET", "/access/filters", None, 200, {"total": 9}),
        ("GET", "/access/check?user_id=alice&method=GET&url=/articles/7", None, 200, {"allowed": True, "reason": "Allow of group"}),
        ("GET", "/access/check?user_id=alice&method=GET", None, 400, {"detail": "url"}),
        ("GET", "/access/who?method=GET&url=/articles/7&limit=0", None, 200, {"total": 1, "users": r"^\[\]$"}),
        ("GET", "/access/who?method=GET&url=/articles/7", None, 200, {"total": 1, "users": "alice"}),
        ("GET", "/access/methods?user_id=alice&url=/articles/7", None, 200, {"methods": "GET"}),
        ("GET", "/access/findings?limit=0", None, 200, {"problems": "[1-9]", "findings": r"^\[\]$"}),
        ("GET", "/access/matrix", None, 200, {"complete": True, "regions": "'/articles'", "subjects": r"'users': \['alice'\].*'allowed': \['GET'\]"}),
        ("GET", "/access/matrix?by=groups", None, 200, {"subjects": r"'users': \[\], 'groups': \['readers'\]"}),
        ("GET", "/access/matrix?by=roles", None, 400, {"detail": "roles"}),
        ("GET", "/access/decisions?outcome=allowed&limit=2", None, 200, {"limit": 2, "results": "/access/"}),
        ("GET", "/access/decisions?user_id=nobody", None, 200, {"total": 0}),
        ("GET", "/access/what-if?change=add&method=GET&group_id=administrators&filter=%5E/access/u&action=Deny", None, 200,
         {"decisions": r"'after': .*'decider': .*'filter': '\^/access/u'", "targets": r"'refused': \{'answer': 'witness', 'target': '/access/u'\}"}),
        ("GET", f"/access/what-if?change=delete&{query}", None, 200, {"decisions": r"'flips': \[\]", "targets": "'users': .'alice'"}),
        ("GET", f"/access/what-if?change=delete&{query}&x=", None, 400, {"detail": "x"}),
        ("GET", "/access/what-if?change=add&method=GET&group_id=readers&filter=(&action=Deny", None, 400, {"detail": "POSIX"}),
        ("GET", "/access/openapi.json", None, 200, {"openapi": "3.1"}),
        ("GET", "/access/nothing", None, 404, {}),
        ("PATCH", "/access/users", None, 405, {}),
        ("DELETE", f"/access/filters?{query}", None, 204, {}),
        ("DELETE", f"/access/filters?{query}", None, 404, {}),
        ("DELETE", "/access/groups/readers", None, 204, {}),
        ("DELETE", "/access/users/bob", None, 204, {}),
        ("DELETE", "/access/users/bob", None, 404, {}),
        ("DELETE", "/access/users/admin", None, 409, {"detail": "could administer"}),
        ("PUT", "/access/users/admin/groups", [], 409, {}),
        ("DELETE", "/access/groups/administrators", None, 409, {}),
    ]:
        expect(host.ask(method, path, body), status, f"{method} {path} {body}", **members)
    created = expect(host.ask("POST", "/access/users", {"user_id": "a b+é", "password": "x"}), 201, "an id to be encoded")
    assert created.getheader("Location") == "/access/users/a%20b+%C3%A9", created.getheader("Location")
    expect(host.ask("GET", created.getheader("Location")), 200, "where it is said to be", user_id="a b")
    assert host.ask("PATCH", "/access/users").getheader("Allow") == "GET, HEAD, POST, OPTIONS"
    options = host.ask("OPTIONS", "/access/users/alice")
    assert (options.status, options.getheader("Allow")) == (204, "DELETE, GET, HEAD, OPTIONS, PATCH, POST, PUT")
    assert host.ask("HEAD", "/access/users").json == ""
    routes = {(method.upper(), path) for path, item in host.ask("GET", "/access/openapi.json").json["paths"].items() for method in item}
    assert len(routes) == 29 and ("PUT", "/access/groups/{group_id}/users/{user_id}") in routes, sorted(routes)


def who_may(host):
    """Filters open nothing by themselves; nor do other sites, other media types, or bodies that are too long."""
    host.tool("group", "add", "staff")
    host.tool("user", "add", "wide", "--group", "staff", "--password-stdin", text=PASSWORD + "\n")
    for method in ("GET", "POST", "PUT", "DELETE"):
        host.tool("filter", "add", "staff", "Allow", method, "^/")
    paths = ["/access/users", "/access/users/admin", "/access/groups", "/access/filters", "/access/findings", "/access/directory", "/access/matrix",
             "/access/decisions", "/access/openapi.json", "/access/check?user_id=admin&method=GET&url=/", "/access/nothing"]
    for path in paths:
        expect(host.ask("GET", path, user="wide"), 403, path)
        expect(host.ask("GET", path, user=None), 401, path)
    assert host.ask("GET", "/access/users", user=None).getheader("WWW-Authenticate") == 'Basic realm="Perenna", charset="UTF-8"'
    expect(host.ask("GET", "/access/me", user="wide"), 200, "me", user_id="wide")
    expect(host.ask("POST", "/access/batch", [], user="wide"), 403, "batch")
    expect(host.ask("PUT", "/access/me/credential", {"current_password": "no", "password": "x"}, user="wide"), 403, "own password")
    expect(host.ask("PUT", "/access/me/credential", {"current_password": PASSWORD, "password": "new-of-wide"}, user="wide"), 204, "own password")
    expect(host.ask("GET", "/access/me", user="wide"), 401, "the old password")
    expect(host.ask("GET", "/access/me", user="wide", password="new-of-wide"), 200, "the new password")
    for fields in ({"Sec_Fetch_Site": "cross-site"}, {"Sec_Fetch_Site": "same-site"}, {"Origin": "http://evil.example"}, {"Origin": "null"}):
        expect(host.ask("PUT", "/access/groups/staff/users", ["wide"], **fields), 403, fields)
        expect(host.ask("GET", "/access/groups", **fields), 200, fields)
    for fields in ({"Sec_Fetch_Site": "same-origin"}, {"Origin": "http://" + host.address}):
        expect(host.ask("PUT", "/access/groups/staff/users", ["wide"], **fields), 200, fields)
    expect(host.ask("PUT", "/access/groups/staff/users", "[]", Content_Type="text/plain"), 415, "another type")
    # Whoever may not, or sends too much, is answered before the body has come.
    for user, length, status in (("wide", 100, 401), (None, 100, 401), ("admin", 100001, 413)):
        with socket.create_connection(host.address.rsplit(":", 1)) as raw:
            raw.sendall((f"POST /access/users HTTP/1.1\r\nHost: a\r\nContent-Type: application/json\r\nContent-Length: {length}\r\n"
                         + (f"Authorization: {basic(user)}\r\n" if user else "") + "\r\n{").encode())
            raw.settimeout(5)
            assert raw.recv(100).startswith(f"HTTP/1.1 {status} ".encode()), (user, status)
    for _ in range(6):
        last = host.ask("GET", "/access/me", user="admin", password="wrong")
    expect(last, 429, "too many failed logins")
    assert int(last.getheader("Retry-After")) >= 1
    expect(host.ask("GET", "/access/me"), 200, "a proven credential is still checked")


def batch(host):
    """Real calls of the host to itself, which has one thread."""
    calls = [{"method": "POST", "path": "/access/groups", "body": {"group_id": "made"}},
             {"method": "GET", "path": "/access/groups/made"},
             {"method": "GET", "path": "/access/me"},
             {"method": "DELETE", "path": "/access/groups/none"}]
    answers = expect(host.ask("POST", "/access/batch", calls), 200, "batch").json
    assert [answer["status"] for answer in answers] == [201, 200, 200, 404], answers
    assert answers[1]["body"]["group_id"] == "made" and answers[2]["body"]["user_id"] == "admin", answers
    for wrong, said in (({"method": "GET", "path": "/auth"}, "none of the administration"),
                        ({"method": "POST", "path": "/access/batch", "body": []}, "a batch"),
                        ({"method": "GET", "path": "http://elsewhere/access/me"}, "normal form"),
                        ({"method": "GET", "path": "/access/me", "user": "alice"}, "user"),
                        ({"method": "get", "path": "/access/me"}, "method")):
        expect(host.ask("POST", "/access/batch", [calls[0], wrong]), 400, wrong, detail=f"item 1: .*{said}")
    expect(host.ask("POST", "/access/batch", [calls[2]] * 101), 400, "101 calls")


def transfer(host):
    """The whole directory, out and in; stored credentials stay where they are."""
    exported = host.ask("GET", "/access/directory")
    assert exported.json["users"] and all("auth_value" not in user for user in exported.json["users"])
    before = host.tool("export", "-")
    text = json.dumps(exported.json)
    dry = expect(host.ask("PUT", "/access/directory?dry-run=true", text), 200, "nothing would change", dry_run=True).json
    assert all(not section["added"] and not section["removed"] for section in dry["difference"].values()), dry
    expect(host.ask("PUT", "/access/directory", text, If_Match=exported.getheader("ETag")), 200, "import")
    assert host.tool("export", "-") == before
    new = {**exported.json, "users": exported.json["users"] + [{**exported.json["users"][0], "user_id": "new"}]}
    expect(host.ask("PUT", "/access/directory", new), 400, "a new user", errors="new user without a credential")
    expect(host.ask("PUT", "/access/directory", {**exported.json, "memberships": []}), 409, "no administrator")
    expect(host.ask("PUT", "/access/directory", "{"), 400, "half a file", errors="line 1")
    host.tool("group", "add", "meanwhile")
    expect(host.ask("PUT", "/access/directory", text, If_Match=exported.getheader("ETag")), 412, "an old state")
    expect(host.ask("POST", "/access/groups", {"group_id": "x"}, If_Match="*"), 412, "what has no tag")


def at_once(host):
    """Two administrators, one set; and a reader who must never see half of a replacement."""
    for user in ("u1", "u2", "u3", "u4"):
        host.tool("user", "add", user, "--password-stdin", text=PASSWORD + "\n")
    host.tool("group", "add", "both")
    etag = host.ask("GET", "/access/groups/both").getheader("ETag")
    answers = []
    threads = [threading.Thread(target=lambda users=users: answers.append(
        host.ask("PUT", "/access/groups/both/users", users, If_Match=etag).status)) for users in (["u1", "u2"], ["u3", "u4"])]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(answers) == [200, 412], answers
    assert host.ask("GET", "/access/groups/both").json["users"] in (["u1", "u2"], ["u3", "u4"])

    for group, action in (("opens", "Allow"), ("closes", "Deny")):
        host.tool("group", "add", group)
        host.tool("filter", "add", group, action, "GET", "^/access/me$")
    stop = threading.Event()
    seen = []

    def read():
        connection = host.connect()
        while not stop.is_set():
            seen.append(host.ask("GET", "/access/check?user_id=u1&method=GET&url=/access/me", connection=connection).json["allowed"])

    reader = threading.Thread(target=read)
    reader.start()
    connection = host.connect()
    for turn in range(300):
        groups = ["opens", "closes"] if turn % 2 else []
        expect(host.ask("PUT", "/access/users/u1/groups", groups, connection=connection), 200, "a replacement")
    whole = host.ask("GET", "/access/directory").json
    without = {**whole, "memberships": [row for row in whole["memberships"] if row["user_id"] != "u1"]}
    for turn in range(20):
        expect(host.ask("PUT", "/access/directory", json.dumps(whole if turn % 2 else without), connection=connection), 200, "an import")
    stop.set()
    reader.join()
    assert seen and not any(seen), "an Allow was seen without its Deny"


def failing_database(host):
    """A locked file: 503 and nothing half done; afterwards everything as before."""
    lock = sqlite3.connect(host.database, isolation_level=None)
    lock.execute("BEGIN EXCLUSIVE")
    expect(host.ask("PUT", "/access/users/u1/groups", ["both"]), 503, "while it is locked")
    lock.execute("ROLLBACK")
    lock.close()
    expect(host.ask("GET", "/access/users/u1"), 200, "afterwards", groups=r"\['closes', 'opens'\]")


def secrets(host):
    """No credential leaves, in an answer or in a log, and each change is in the log of the administration."""
    stored = sqlite3.connect(host.database).execute("SELECT auth_value FROM users").fetchall()
    logs = [open(os.path.join(host.place, name)).read() for name in ("administration.log", "decisions.log")]
    for secret in [value for row in stored for value in row[0].split(":")] + [PASSWORD, "pw-of-alice", "other-of-alice", "new-of-wide", "hidden"]:
        assert not any(secret in text for text in ANSWERS + logs), f"{secret} has left"
    lines = [json.loads(line) for line in logs[0].splitlines()]
    lines = [line for line in lines if "done" in line]  # the tool writes its own there, by the same configuration
    created = next(line for line in lines if line["done"].get("operation") == "create user" and line["status"] == 201)
    assert created["user_id"] == "admin" and created["done"]["user_id"] == "alice" and created["path"] == "/access/users", created
    row = created["rows"][0]
    assert row["table"] == "users" and row["before"] is None and row["after"]["user_id"] == "alice", created
    assert not any("auth_value" in line for line in logs[0].splitlines())
    refused = [line for line in lines if line["status"] >= 400]
    assert refused and all(line["rows"] == [] for line in refused), refused


with tempfile.TemporaryDirectory() as place:
    host = Host(place)
    try:
        for test in (table, who_may, batch, transfer, at_once, failing_database, secrets):
            begin = time.monotonic()
            test(host)
            print(f"{test.__name__}: {time.monotonic() - begin:.1f} s", flush=True)
    finally:
        status = host.end()
    assert status == 0, status
    os.unlink(host.database)
with tempfile.TemporaryDirectory() as place:  # the host can call itself there too
    host = Host(place, listen="unix:" + os.path.join(place, "socket"))
    try:
        answers = host.ask("POST", "/access/batch", [{"method": "GET", "path": "/access/me"}]).json
        assert answers[0]["body"]["user_id"] == "admin", answers
    finally:
        assert host.end() == 0
