"""The example of a guarded store, with the real programs: python3 gateway.py PERENNA-ACCESS EXAMPLES"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from types import SimpleNamespace

from cluster import Machine, free_ports, wait_for

TOOL, EXAMPLES = os.path.abspath(sys.argv[1]), os.path.join(os.path.abspath(sys.argv[2]), "etcd")
PLACE = tempfile.mkdtemp(prefix="perenna-gateway-")
CLIENT, PEER, GATEWAY = free_ports(3)


def read(name):
    with open(os.path.join(EXAMPLES, name), encoding="utf-8") as file:
        return file.read()


def openssl(*words):
    subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=PLACE)


def make_certificates():
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    openssl("req", "-x509", *key, "-subj", "/CN=authority", "-keyout", "ca.key", "-out", "ca.pem")
    with open(f"{PLACE}/names", "w", encoding="utf-8") as names:
        names.write("subjectAltName=IP:127.0.0.1\nextendedKeyUsage=serverAuth,clientAuth\n")
    for name in ("member", "agent-1", "writer-1", "reader-1"):
        openssl("req", *key, "-subj", f"/CN={name}", "-keyout", f"{name}.key", "-out", "request")
        openssl("x509", "-req", "-in", "request", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-extfile", "names",
                "-out", f"{name}.pem")


def start_member():
    values = dict(line.split("=", 1) for line in read("member.env").splitlines() if "=" in line and line[0] != "#")
    values.update(DATA=f"{PLACE}/data", CLIENT_PORT=str(CLIENT), PEER_URL=f"https://127.0.0.1:{PEER}",
                  CLUSTER=f"one=https://127.0.0.1:{PEER}", PEER_CERTIFICATE=f"{PLACE}/member.pem",
                  PEER_KEY=f"{PLACE}/member.key", PEER_AUTHORITY=f"{PLACE}/ca.pem")
    command = re.search(r"^ExecStart=((?:.*\\\n)*.*)$", read("perenna-etcd.service"), re.M).group(1).replace("\\\n", " ")
    words = [re.sub(r"\$\{(\w+)\}", lambda name: values[name.group(1)], word) for word in command.split()]
    with open(f"{PLACE}/member.log", "ab") as log:
        member = subprocess.Popen(words, stdout=log, stderr=log)
    environment = {**os.environ, "ETCDCTL_API": "3", "ETCDCTL_ENDPOINTS": f"http://127.0.0.1:{CLIENT}"}
    wait_for("the member", lambda: subprocess.run(["etcdctl", "endpoint", "status"], capture_output=True,
                                                  env=environment).returncode == 0)
    return member, environment


def start_gateway():
    gateway = read("gateway.conf").replace("127.0.0.1:2379", f"127.0.0.1:{CLIENT}").replace(
        "listen 2378", f"listen 127.0.0.1:{GATEWAY}")
    for name, file in (("gateway.pem", "member.pem"), ("gateway.key", "member.key"), ("clients-ca.pem", "ca.pem")):
        gateway = gateway.replace(f"/etc/perenna-etcd/{name}", f"{PLACE}/{file}")
    with open(f"{PLACE}/nginx.conf", "w", encoding="utf-8") as out:
        out.write(f"daemon off; pid {PLACE}/nginx.pid; error_log stderr; events {{}}\n"
                  f"http {{ access_log off; client_body_temp_path {PLACE}/body; proxy_temp_path {PLACE}/proxy;\n{gateway}}}\n")
    with open(f"{PLACE}/nginx.log", "wb") as log:
        return subprocess.Popen(["nginx", "-e", "stderr", "-p", PLACE, "-c", f"{PLACE}/nginx.conf"], stderr=log)


def status(path, certificate):
    shown = ["--cert", f"{PLACE}/{certificate}.pem", "--key", f"{PLACE}/{certificate}.key"] if certificate else []
    return subprocess.run(["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}", "--cacert", f"{PLACE}/ca.pem", *shown, "-d", "{}",
                           "--max-time", "1", f"https://127.0.0.1:{GATEWAY}{path}"], capture_output=True, text=True).stdout


def machine(name, certificate, user):
    cluster = SimpleNamespace(clients=[f"https://127.0.0.1:{GATEWAY}"])
    return Machine(TOOL, PLACE, cluster, name, {
        "CertificateAuthority": f"{PLACE}/ca.pem", "Certificate": f"{PLACE}/{certificate}.pem",
        "Key": f"{PLACE}/{certificate}.key", "User": user, "PasswordFile": f"{PLACE}/passwords/{user}"})


def main():
    make_certificates()
    os.mkdir(f"{PLACE}/passwords")
    for user in ("root", "agent", "writer"):
        with open(f"{PLACE}/passwords/{user}", "w", encoding="utf-8") as out:
            out.write(f"pässword of {user}\n".replace(" ", "-"))
    member, environment = start_member()
    gateway, machines = start_gateway(), []
    try:
        subprocess.run([f"{EXAMPLES}/store-users", f"{PLACE}/passwords"], check=True, capture_output=True, env=environment)
        wait_for("the gateway", lambda: status("/", "agent-1") == "403")
        for path, by_agent, by_writer in [
                ("/v3/kv/range", "...", "..."), ("/v3/kv/txn", "403", "..."), ("/v3/watch", "...", "..."),
                ("/v3/auth/authenticate", "...", "..."), ("/v3/kv/put", "403", "403"), ("/v3/kv/deleterange", "403", "403"),
                ("/v3/maintenance/alarm", "403", "403"), ("/v3/maintenance/snapshot", "403", "403"),
                ("/v3/auth/user/add", "403", "403"), ("/v3/auth/disable", "403", "403"), ("/v3/lease/grant", "403", "403"),
                ("/v3beta/kv/txn", "403", "403"), ("/v3/kv/range/../put", "403", "403"), ("/V3/KV/TXN", "403", "403")]:
            for certificate, wanted in ((None, "400"), ("reader-1", "403"), ("agent-1", by_agent), ("writer-1", by_writer)):
                got = status(path, certificate)
                assert re.fullmatch(wanted, got), f"{path} by {certificate}: {got}, not {wanted}"
                assert wanted == "403" or certificate is None or got != "403", f"{path} by {certificate}: the gateway refuses it"

        writer, agent = machine("first", "writer-1", "writer"), machine("second", "agent-1", "agent")
        machines += [writer, agent]
        writer.run("init", "--user", "admin", "--administrators", "administrators", "--password-stdin", given="secret\n")
        writer.run("sync", "init")
        for each in machines:
            each.start()
        wait_for("following", lambda: all(each.phase() == "following" for each in machines))
        writer.run("group", "add", "readers")
        agent.at(writer.row()[1])
        agent.run("group", "show", "readers")
        said = agent.run("group", "add", "writers", status=3)
        assert "403" in said or "permission" in said, said
        posing = machine("third", "writer-1", "agent")  # what a stolen certificate is worth without the password
        posing.run("sync", "join")
        posing.start()
        machines.append(posing)
        wait_for("following", lambda: posing.phase() == "following")
        assert "permission" in posing.run("group", "add", "writers", status=3)
        member.kill()  # its tokens go with it
        member.wait()
        wait_for("away", lambda: writer.phase() == "away")
        member, _ = start_member()
        wait_for("following", lambda: all(each.phase() == "following" for each in machines), 30)
        writer.run("group", "add", "writers")
        agent.at(writer.row()[1])
        for each in machines:
            with open(each.log, encoding="utf-8") as log:
                assert "pässword" not in log.read()
    except BaseException:
        for name in sorted(os.listdir(PLACE)):
            if name.endswith(".log") and name != "member.log":
                with open(f"{PLACE}/{name}", encoding="utf-8") as log:
                    print(f"--- {name}\n{log.read()}")
        raise
    finally:
        for each in machines:
            each.kill()
        gateway.terminate()
        gateway.wait()
        member.kill()
        member.wait()
        shutil.rmtree(PLACE)


main()
