#!/usr/bin/env python3
"""Foreign clients log in at a server of this library, and its client side logs in at foreign servers. One printed row
each: what was tried, what the server said to each request, the outcome. Exit code 77 when a tool is missing and the
rest is well."""

import base64
import contextlib
import hashlib
import http.client
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request

USER, PASSWORD, REALM = "user", "pass word:1", "The realm"
faults, missing = 0, []


def row(name, found, expected):
    global faults
    faults += found != expected
    print(f"{'ok   ' if found == expected else 'FAULT'}  {name:40}  {found}" +
          ("" if found == expected else f", expected {expected}"))


def find(tool):
    return shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin:/usr/local/bin")


def has(tool):
    if not find(tool):
        missing.append(tool)
    return find(tool)


@contextlib.contextmanager
def running(command, **options):
    process = subprocess.Popen(command, **options)
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def curl(url, scheme, password, proxy):
    login = ["--proxy", proxy, "--proxy-user"] if proxy else ["--user"]
    how = ("--proxy-" if proxy else "--") + scheme
    run = subprocess.run(["curl", "-q", "-s", "-o", "/dev/null", "-w", "%{http_code}", "--max-time", "20", how,
                          *login, f"{USER}:{password}", url], capture_output=True, text=True)
    return run.stdout


def wget(url, scheme, password, proxy):
    prefix = ["-e", f"http_proxy={proxy}", "--proxy-user", USER, "--proxy-password", password] if proxy else [
        "--no-proxy", "--user", USER, "--password", password]
    run = subprocess.run(["wget", "--no-config", "-S", "-q", "-O", "/dev/null", "-T", "20", "-t", "1", *prefix, url],
                         capture_output=True, text=True)
    statuses = [line.split()[1] for line in run.stderr.splitlines() if line.strip().startswith("HTTP/")]
    return statuses[-1] if statuses else run.stderr


def python3(url, scheme, password, proxy):
    passwords = urllib.request.HTTPPasswordMgrWithDefaultRealm()
    passwords.add_password(None, [url, proxy or url], USER, password)
    kind = ("Proxy" if proxy else "HTTP") + scheme.capitalize() + "AuthHandler"
    opener = urllib.request.build_opener(urllib.request.ProxyHandler({"http": proxy} if proxy else {}),
                                         getattr(urllib.request, kind)(passwords))
    try:
        return str(opener.open(url, timeout=20).status)
    except urllib.error.HTTPError as error:
        return str(error.code)


# What the server's check says to each request of a login, and the status that the client ends with. The clients differ:
# curl sends a Basic password unasked, and so does wget to a proxy, which it knows no Digest for; wget does not try again
# after a stale nonce, python3 tries a wrong Digest password six times.
#
# path, scheme, right password, by a proxy: curl, wget, python3
CLIENT_ROWS = [
    ("/basic", "basic", True, False, "0 200", "4,0 200", "4,0 200"),
    ("/basic", "basic", False, False, "1 401", "4,1 401", "4,1 401"),
    ("/digest", "digest", True, False, "4,0 200", "4,0 200", "4,0 200"),
    ("/digest", "digest", False, False, "4,1 401", "4,1 401", "4,1,1,1,1,1,1 401"),
    ("/both", "digest", True, False, "4,0 200", "4,0 200", "4,0 200"),
    ("/old", "digest", True, False, "4,2,0 200", "4,2 401", "4,2,0 200"),
    ("/basic", "basic", True, True, "0 200", "0 200", "4,0 200"),
    ("/basic", "basic", False, True, "1 407", "1 407", "4,1 407"),
    ("/digest", "digest", True, True, "4,0 200", None, "4,0 200"),
    ("/digest", "digest", False, True, "4,1 407", None, "4,1,1,1,1,1,1 401"),
]


def foreign_clients(server_program):
    with running([server_program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as server:
        port = int(server.stdout.readline())
        for column, client in enumerate([curl, wget, python3]):
            if not has(client.__name__):
                continue
            for path, scheme, right, by_proxy, *expected in CLIENT_ROWS:
                if not expected[column]:
                    continue
                here = f"http://127.0.0.1:{port}"
                url, proxy = ("http://gateway.test" + path, here) if by_proxy else (here + path, None)
                found = client(url, scheme, PASSWORD if right else "wrong", proxy)
                # A request of our own ends what the client's requests made the server say.
                connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
                connection.request("GET", "/end")
                connection.getresponse().read()
                said = []
                while (line := server.stdout.readline()) != "/end 4\n":
                    said.append(line.split()[1])
                row(f"{client.__name__} {path} {scheme}{' proxy' if by_proxy else ''}{'' if right else ' wrong'}",
                    f"{','.join(said)} {found}", expected[column])



LIGHTTPD = """
server.document-root = "{folder}"
server.bind = "127.0.0.1"
server.port = {port}
server.errorlog = "{folder}/log"
server.modules = ("mod_auth", "mod_authn_file")
auth.backend = "plain"
auth.backend.plain.userfile = "{folder}/plain"
auth.require = ("/basic" => ("method" => "basic", "realm" => "The realm", "require" => "valid-user"),
                "/digest" => ("method" => "digest", "realm" => "The realm", "require" => "valid-user"))
"""

APACHE = """
ServerRoot "{folder}"
ServerName localhost
Listen 127.0.0.1:{port}
PidFile "{folder}/pid"
DefaultRuntimeDir "{folder}"
ErrorLog "{folder}/log"
DocumentRoot "{folder}"
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule authn_core_module /usr/lib/apache2/modules/mod_authn_core.so
LoadModule authn_file_module /usr/lib/apache2/modules/mod_authn_file.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
LoadModule authz_user_module /usr/lib/apache2/modules/mod_authz_user.so
LoadModule auth_basic_module /usr/lib/apache2/modules/mod_auth_basic.so
LoadModule auth_digest_module /usr/lib/apache2/modules/mod_auth_digest.so
User www-data
Group www-data
<Location /basic>
    AuthName "The realm"
    AuthType Basic
    AuthUserFile "{folder}/sha"
    Require valid-user
</Location>
<Location /digest>
    AuthName "The realm"
    AuthType Digest
    AuthUserFile "{folder}/digests"
    Require valid-user
</Location>
"""


def request(port, path, headers):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    connection.request("GET", path, headers=headers)
    response = connection.getresponse()
    response.read()
    return response


def wait_for(port):
    for _ in range(200):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
            return
        time.sleep(0.05)
    raise TimeoutError(f"nobody listens on port {port}")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def log_in(answer_program, port, path, password):
    first = request(port, path, {})
    challenges = first.headers.get_all("WWW-Authenticate", [])
    # Of several the first Digest one with MD5, or Basic.
    challenge = next(c for c in challenges if "SHA" not in c)
    line = subprocess.run([answer_program, "GET", path, USER], input=f"{challenge}\n{password}\n",
                          capture_output=True, text=True, check=True).stdout
    name, value = line.rstrip("\r\n").split(": ", 1)
    return f"{first.status} {challenge.split()[0]} {request(port, path, {name: value}).status}"


def foreign_servers(answer_program):
    # lighttpd only where it is: installing its package starts a server on port 80.
    servers = [("lighttpd", LIGHTTPD, lambda conf: ["lighttpd", "-D", "-f", conf]),
               ("apache2", APACHE, lambda conf: ["apache2", "-DFOREGROUND", "-f", conf])]
    for name, template, command in servers:
        program = find(name) if name == "lighttpd" else has(name)
        if not program:
            continue
        with tempfile.TemporaryDirectory(prefix="kutil_auth_") as path:
            folder, port = pathlib.Path(path), free_port()
            folder.chmod(0o755)
            ha1 = hashlib.md5(f"{USER}:{REALM}:{PASSWORD}".encode()).hexdigest()
            sha = base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()
            (folder / "plain").write_text(f"{USER}:{PASSWORD}\n")
            (folder / "sha").write_text(f"{USER}:{{SHA}}{sha}\n")
            (folder / "digests").write_text(f"{USER}:{REALM}:{ha1}\n")
            for page in "basic", "digest":
                (folder / page).write_text("welcome\n")
            (folder / "conf").write_text(template.format(folder=folder, port=port))
            line = command(str(folder / "conf"))
            with running([program, *line[1:]], stderr=subprocess.STDOUT):
                wait_for(port)
                for scheme in "basic", "digest":
                    for password, status in (PASSWORD, 200), ("wrong", 401):
                        row(f"at {name} {scheme}{'' if status == 200 else ' wrong'}",
                            log_in(answer_program, port, "/" + scheme, password),
                            f"401 {scheme.capitalize()} {status}")


foreign_clients(sys.argv[1])
foreign_servers(sys.argv[2])
if missing:
    print("missing:", *missing)
sys.exit(1 if faults else 77 if missing else 0)
