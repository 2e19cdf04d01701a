#!/usr/bin/env python3
"""What proxies that are not started here ask, as their documentation has it, of the host as their examples configure it.

    questions.py PERENNA_ACCESS EXAMPLES"""

import base64
import getpass
import grp
import http.client
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import urllib.parse

TOOL, EXAMPLES = map(os.path.abspath, sys.argv[1:])
ALICE = {"Authorization": "Basic " + base64.b64encode(b"alice:correct horse").decode()}


def traefik(method, target, fields=(), trust_forward_header=False, source="127.0.0.1", port=0):
    """forwardAuth: always GET, the client's fields, and its own X-Forwarded-*; with trustForwardHeader the client's."""
    client = dict(fields)
    own = {"X-Forwarded-Method": method, "X-Forwarded-Proto": "http", "X-Forwarded-Host": "site", "X-Forwarded-Uri": target,
           "X-Forwarded-For": "192.0.2.7", "X-Real-Ip": "192.0.2.7"}
    asked = {**own, **client} if trust_forward_header else {**client, **own}
    return ask(http.client.HTTPConnection("127.0.0.1", port, source_address=(source, 0)), "GET", "/auth", asked)


def envoy(method, target, fields=(), prefix="/envoy", path=""):
    """ext_authz over HTTP: the request's own method, path_prefix before its target, no body."""
    connection = http.client.HTTPConnection("site")
    connection.sock = socket.socket(socket.AF_UNIX)
    connection.sock.connect(path)
    allowed = ("authorization", "x-forwarded-client-cert", "x-request-id")
    asked = {name: value for name, value in dict(fields).items() if name.lower() in allowed}
    asked.update({"x-real-ip": "192.0.2.7", "x-envoy-internal": "true", "x-forwarded-for": "127.0.0.1",
                  "x-envoy-expected-rq-timeout-ms": "5000", "content-length": "0"})
    return ask(connection, method, prefix + target, asked)


def ask(connection, method, target, fields):
    connection.putrequest(method, target, skip_accept_encoding=True)
    for name, value in fields.items():
        connection.putheader(name, value)
    connection.endheaders()
    answer = connection.getresponse()
    answer.read()
    connection.close()
    return answer.status, answer.getheader("Remote-User")


def start(proxy, site):
    """The host with the example's configuration, as a proxy that runs as this user meets it."""
    os.mkdir(site)
    text = open(f"{EXAMPLES}/{proxy}/host.json").read().replace("unix:envoy", "unix:" + getpass.getuser()).replace(":8400", ":0")
    text = text.replace('"SocketGroup": "envoy"', f'"SocketGroup": "{grp.getgrgid(os.getgid()).gr_name}"')
    open(site + "/host.json", "w").write(text)
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=bob", "-keyout", site + "/bob.key",
                    "-out", site + "/bob.pem"], check=True, capture_output=True)
    for words in ("init --user admin --administrators administrators --password-stdin", "group add readers Readers", "group add writers Writers",
                  "user add alice --group readers --group writers --password-stdin", "user add bob --group readers --certificate bob.pem",
                  "filter add readers Allow GET ^/articles(/|$)", "filter add readers Deny GET ^/articles/drafts(/|$)",
                  "filter add writers Allow PUT ^/articles/[0-9]+$", "tune"):
        subprocess.run([TOOL, "--config", "host.json", *words.split()], input="correct horse\n", text=True, check=True, capture_output=True, cwd=site)
    process = subprocess.Popen([TOOL, "--config", "host.json", "serve"], cwd=site, stderr=subprocess.PIPE, text=True)
    while "listening on" not in (line := process.stderr.readline()):
        assert line, "the host does not start"
    return process, line.split()[-1]


def expect(asked, wanted, what):
    assert asked == wanted, f"{what}: {asked} instead of {wanted}"


def judge_alike(question, certificate):
    """What does not depend on how it is asked."""
    name, value = certificate
    for method, target, fields, wanted in (
            ("GET", "/articles/7?page=2", ALICE, (200, "alice")), ("PUT", "/articles/7", ALICE, (200, "alice")),
            ("GET", "/articles/drafts/7", ALICE, (403, None)), ("DELETE", "/articles/7", ALICE, (403, None)),
            ("GET", "/articles/../secret", ALICE, (403, None)), ("GET", "/articles//drafts/7", ALICE, (403, None)),
            ("GET", "/articles/%2e%2e/secret", ALICE, (403, None)), ("GET", "/articles/7", {}, (401, None)),
            ("GET", "/articles/7", {"Remote-User": "admin", **ALICE}, (200, "alice")),
            ("DELETE", "/articles/7", {"X-Original-URI": "/articles/7", "X-Original-Method": "GET", **ALICE}, (403, None)),
            ("GET", "/articles/7", {name: value}, (200, "bob")), ("GET", "/articles/7", {name: value + "x"}, (403, None))):
        expect(question(method, target, fields), wanted, f"{method} {target} with {fields}")


def main(work):
    running = []
    try:
        process, address = start("traefik", work + "/traefik")
        running.append(process)
        port = int(address.rsplit(":", 1)[1])
        der = ssl.PEM_cert_to_DER_cert(open(work + "/traefik/bob.pem").read())
        certificate = urllib.parse.quote_plus(base64.b64encode(der))
        judge_alike(lambda *asked: traefik(*asked, port=port), ("X-Forwarded-Tls-Client-Cert", certificate))
        # What trustForwardHeader lets clients do, and the host cannot see: the example must not have it.
        spoofed = {"X-Forwarded-Uri": "/articles/7", **ALICE}
        expect(traefik("GET", "/articles/drafts/7", spoofed, port=port), (403, None), "a client's X-Forwarded-Uri")
        expect(traefik("GET", "/articles/drafts/7", spoofed, True, port=port), (200, "alice"), "the trap is none any more")
        texts = "".join(re.sub("(?m)#.*", "", open(f"{EXAMPLES}/traefik/{name}").read()) for name in ("traefik.yaml", "perenna.yaml"))
        assert "trustForwardHeader: false" in texts and not re.search("insecure|trustedIPs|trustForwardHeader: true", texts)
        expect(traefik("GET", "/articles/7", {"X_Forwarded_Uri": "/articles/7", **ALICE}, port=port), (403, None), "an alias")
        expect(traefik("GET", "/articles/7", ALICE, source="127.0.0.2", port=port), (403, None), "a stranger's question")

        process, address = start("envoy", work + "/envoy")
        running.append(process)
        path = work + "/envoy/host.sock"
        pem = open(work + "/envoy/bob.pem").read()
        element = f'By=spiffe://site;Hash=00;Cert="{urllib.parse.quote(pem, safe="")}"'
        judge_alike(lambda *asked: envoy(*asked, path=path), ("x-forwarded-client-cert", element))
        expect(envoy("GET", "/articles/7", {"x-forwarded-client-cert": element + "," + element}, path=path), (403, None), "two certificates")
        expect(envoy("GET", "/articles/7", ALICE, prefix="", path=path)[0], 404, "without path_prefix")
    finally:
        for process in running:
            process.send_signal(signal.SIGTERM)
            assert process.wait(20) == 0


with tempfile.TemporaryDirectory() as directory:
    main(directory)
