#!/usr/bin/env python3
"""proxy-check against the real proxies: the examples as they stand have no holes, seeded ones are found, each.

    proxy_check.py DIRECTORY-OF-PERENNA-ACCESS EXAMPLES PROXY"""

import json
import os
import re
import shutil
import signal
import socket
import socketserver
import subprocess
import sys
import tempfile
import threading
import time

DIRECTORY, EXAMPLES, PROXY = sys.argv[1:]
os.environ["PATH"] = DIRECTORY + ":" + os.environ["PATH"] + ":/usr/sbin"

# By proxy: configurations, each with replacements (file, what, by what) and the holes that they open.
NGINX_QUESTION, NGINX_PROTECT = "perenna-check.conf", "perenna-protect.conf"
CADDY, HAPROXY, LUA = "perenna-protect.caddy", "haproxy.cfg", "perenna-check.lua"
SEEDS = {
    "nginx": [
        # Fields of the client pass for the proxy's.
        ([(NGINX_PROTECT, r"proxy_set_header Remote-User .*", ""),
          (NGINX_PROTECT, r"proxy_set_header X-(HTTP-Method|Method|Original-URL|Rewrite-URL).*", ""),
          (NGINX_PROTECT, r"X-Real-IP \$remote_addr", "X-Real-IP $http_x_real_ip"),
          (NGINX_PROTECT, 'Connection "";', 'Connection "upgrade";'),
          (NGINX_PROTECT, 'Upgrade "";', "Upgrade $http_upgrade;"),
          (NGINX_QUESTION, r"\$request_method", "$asked_method"),
          (NGINX_QUESTION, r"\$request_uri", "$asked_uri"),
          (NGINX_QUESTION, r"\$ssl_client_escaped_cert", "$http_x_client_certificate"),
          ("nginx.conf", "include perenna-host.conf;", "include perenna-host.conf;\nunderscores_in_headers on;\n"
           "map $http_x_original_uri $asked_uri { '' $request_uri; default $http_x_original_uri; }\n"
           "map $http_x_original_method $asked_method { '' $request_method; default $http_x_original_method; }")],
         "identity identity-alias method-override target-override client-address upgrade question certificate"),
        # The question is cleaned up and decoded, what is served is not; a length that belongs to the question is taken
        # from the request too.
        ([(NGINX_QUESTION, r"\$request_uri", "$asked"), (NGINX_PROTECT, "auth_request /", "set $asked $uri;\nauth_request /"),
          (NGINX_PROTECT, 'proxy_set_header Upgrade "";', 'proxy_set_header Content-Length "";'),
          (NGINX_QUESTION, r"\$request_method", "GET")], "path splitting smuggling method"),
        ([(NGINX_PROTECT, 'Connection "";', "Connection $http_connection;")], "identity-lost"),
        # Would ask about the first of two credentials, but nginx itself refuses two.
        ([(NGINX_QUESTION, "proxy_set_header Host", "proxy_set_header Authorization $http_authorization;\nproxy_set_header Host")], ""),
        ([(NGINX_PROTECT, "auth_request /.perenna-check;", "")], "unasked"),
    ],
    "caddy": [
        ([(CADDY, r"request_header -(Remote|X_|Transfer_|Content_|X-Original|X-Rewrite|X-Http|X-Method|Upgrade|X-Client).*", ""),
          (CADDY, "copy_headers.*", "header_up X-Forwarded-Uri {header.X-Forwarded-Uri}"),
          (CADDY, r"\n\tforward_auth", "\n@none not header X-Forwarded-Uri *\nrequest_header @none X-Forwarded-Uri {uri}\nforward_auth"),
          (CADDY, r"header_up Remote-.*", ""), (CADDY, r"header_up \{args.0\} \{args.1\}", ""),
          (CADDY, r"header_up X-Real-IP \{remote_host\}(\s+header_up X-Request-Id \{http.request.uuid\}\s+\}\s+\}\s*)$", r"\1")],
         "identity identity-alias method-override target-override client-address upgrade certificate question smuggling"),
        # Copied, but not set a second time; asked about only where a matcher knows the path.
        ([(CADDY, r"header_up Remote-.*", ""), (CADDY, r"\n\tforward_auth", "\n@known path /articles/drafts/* /articles/7\nforward_auth @known")], "identity-lost path"),
        # Asked about the first of two credentials, and only where a matcher knows the method.
        ([(CADDY, r"\n\tforward_auth", "\n@first header_regexp first Authorization (.*)\nrequest_header @first X-First {re.first.1}\n"
           "@known method GET HEAD\nforward_auth @known"), (CADDY, "uri /auth", "uri /auth\nheader_up Authorization {header.X-First}")],
         "method credentials-twice"),
        ([(CADDY, r"\n\tforward_auth", "\n@login header Authorization *\nforward_auth @login")], "unasked"),
    ],
    "haproxy": [
        ([(HAPROXY, r" +http-request del-header.*", ""), (HAPROXY, "    timeout http-request 10s", "    timeout http-request 10s\n    http-reuse always"), (HAPROXY, " +http-request set-header (X-Real-IP|Remote-User).*", ""),
          (LUA, r"\{txn.sf:url\(\)\}", '{(fields["x-original-uri"] or {})[0] or txn.sf:url()}'),
          (LUA, r'values\(fields, "authorization"\)', '{values(fields, "authorization")[1]}'),
          (LUA, "  if certificate", '  question["x-client-certificate"] = values(fields, "x-client-certificate")\n  if certificate')],
         "identity identity-alias method-override target-override client-address upgrade question certificate credentials-twice smuggling"),
        # Cleaned up for the question, served as it came.
        ([(HAPROXY, "(?m)^global", "global\n    expose-experimental-directives"), (HAPROXY, " +http-request lua.perenna_check", "    http-request set-var(txn.came) url\n"
           "    http-request normalize-uri path-strip-dotdot\n    http-request lua.perenna_check\n"
           "    http-request set-uri %[var(txn.came)]"),
          (LUA, r"\{txn.sf:method\(\)\}", '{"GET"}')], "path method"),
        # Decoded for the question; what the client says of its connection is passed on.
        ([(LUA, r"\{txn.sf:url\(\)\}", "{txn.c:url_dec(txn.sf:url())}"), (HAPROXY, " +http-request del-header connection", "")],
         "splitting identity-lost"),
        # The widespread rule.
        ([(HAPROXY, " +http-request return status 401.*", ""), (HAPROXY, " +http-request deny deny_status 503.*", "")], "unasked"),
    ],
}


class Application(socketserver.StreamRequestHandler):
    """Answers with what it is told, named as CGI names it, without what Connection names; upgrades when it is asked to."""

    def handle(self):
        while self.request_of_client():
            pass

    def request_of_client(self):
        line = self.rfile.readline(65536)
        if not line.strip():
            return False
        told, size, chunked, dropped = {}, 0, False, {"X-REQUEST-ID", "CONTENT-LENGTH", "CONNECTION"}
        while (field := self.rfile.readline(65536)).strip():
            name, _, value = (part.strip() for part in field.decode("latin-1").partition(":"))
            name = name.upper().replace("_", "-")  # as lenient as some, also about where a body ends
            size = int(value) if name == "CONTENT-LENGTH" else size
            if name == "UPGRADE" and value == "h2c":
                self.wfile.write(b"HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: h2c\r\n\r\n")
                return False
            chunked = chunked or name == "TRANSFER-ENCODING"
            dropped |= {named.strip().upper() for named in value.split(",")} if name == "CONNECTION" else set()
            told.setdefault(name, []).append(f"{re.sub('[^A-Z0-9]', '_', name)}={value}")
        if chunked:
            while (chunk := int(self.rfile.readline().split(b";")[0], 16)) > 0:
                self.rfile.read(chunk + 2)
            self.rfile.readline()
        else:
            self.rfile.read(size)
        fields = sorted(field for name in told.keys() - dropped for field in told[name])
        body = "\n".join([line.decode("latin-1").split(" HTTP/")[0], *fields]).encode()
        self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: %d\r\n\r\n%s" % (len(body), body))
        return True


class Server(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a client that goes away is none


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return str(free.getsockname()[1])


def check(site, url):
    """The holes that are found, and the report."""
    done = subprocess.run(["perenna-access", "--json", "proxy-check", url, "--authorities", site + "/site.pem", "--user", "alice", "--password-file",
                           site + "/alice.password", "--open", "/articles/7", "--protected", "/articles/drafts/7", "--certificate",
                           site + "/bob.pem", "--wait", "1"], capture_output=True, text=True)
    assert done.returncode in (0, 1), done.stderr
    report = json.loads(done.stdout)
    assert "correct horse" not in done.stdout and "Basic " not in done.stdout, done.stdout
    assert done.returncode == (1 if report["holes"] else 0)
    return {hole["hole"] for hole in report["holes"]}, done.stdout


def stop_proxy(site, port):
    os.kill(int(open(f"{site}/{PROXY}.pid").read()), signal.SIGTERM)
    for _ in range(200):
        with socket.socket() as door:
            if door.connect_ex(("127.0.0.1", int(port))) != 0:
                return
        time.sleep(0.02)
    raise AssertionError(f"{PROXY} does not end")


def main(work):
    os.chmod(work, 0o755)
    server = Server(work + "/echo.sock", Application)
    os.chmod(work + "/echo.sock", 0o777)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    site, port = work + "/site", free_port()
    environment = {**os.environ, "PERENNA_HTTP_PORT": port, "PERENNA_HTTPS_PORT": free_port()}
    try:
        subprocess.run([EXAMPLES + "/start-site", PROXY, site], check=True, env=environment)
        found, report = check(site, "https://127.0.0.1:" + environment["PERENNA_HTTPS_PORT"])
        assert not found, f"the example of {PROXY} as it stands: {report}"

        names = [name for name in os.listdir(EXAMPLES + "/" + PROXY) if name != "host.json"]
        as_it_stands = {name: open(f"{site}/{name}").read() for name in names}
        upstream = r"(import perenna-application unix/|server unix:|server application unix@)application\.sock"
        for replacements, holes in [([], "")] + SEEDS[PROXY]:
            stop_proxy(site, port)
            texts = {name: re.sub(upstream, rf"\1{work}/echo.sock", text) for name, text in as_it_stands.items()}
            for name, what, by in replacements:
                assert re.search(what, texts[name]), f"{name} has no {what}"
                texts[name] = re.sub(what, by, texts[name])
            for name, text in texts.items():
                open(f"{site}/{name}", "w").write(text)
            subprocess.run([EXAMPLES + "/start-proxy", site], check=True)
            found, report = check(site, "http://127.0.0.1:" + port)
            print(f"{PROXY}: wanted {holes or 'none'}; found {' '.join(sorted(found)) or 'none'}")
            assert set(holes.split()) <= found and bool(holes) == bool(found), report
    finally:
        subprocess.run([EXAMPLES + "/stop-site", site])


if not shutil.which(PROXY):
    print(f"there is no {PROXY}")
    sys.exit(77)
with tempfile.TemporaryDirectory() as directory:
    main(directory)
