#!/usr/bin/env python3
"""Drives mgmtd from outside with curl, urllib, nc and raw sockets.

usage: mgmtd_http.py MGMTD SAMPLE [--slow] [--sanitized]

Prints a row for each case and ends with 1 when one failed. --slow does the many repetitions instead;
--sanitized leaves out what a sanitizer's allocator would fail.
"""
import concurrent.futures
import contextlib
import hashlib
import html.parser
import http.client
import json
import os
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

from mgmtd_outside import AUTH, MGMTD, PASSWORD, SAMPLE, USER, check, daemon, eventually, failures, status

SLOW = "--slow" in sys.argv[3:]
SANITIZED = "--sanitized" in sys.argv[3:]
HEADERS = dict([AUTH.split(": ", 1)])


def http_connection(d):
    return contextlib.closing(http.client.HTTPConnection("127.0.0.1", d.port, timeout=20))


def clients(d):
    for scheme in "--basic", "--digest", "--anyauth":
        check(f"curl {scheme}", d.curl("/conf/wan/0/mode", scheme=scheme) == (200, "(mode(pppoe))\n"))
        check(f"curl {scheme}, wrong password", d.curl("/conf/wan", scheme=scheme, user="admin:no")[0] == 401)
    check("an unknown user", d.curl("/conf/wan", user="nobody:x")[0] == 401)
    check("a user without a password", d.curl("/conf/wan", user="clara:")[0] == 401)
    got = subprocess.run(["curl", "-s", "-v", "-u", f"{USER}:{PASSWORD}"] + [d.url + "/conf/wan/0/mode"] * 3,
        capture_output=True)
    check("curl keeps the connection", got.stderr.count(b"Re-using existing connection") == 2 and
          got.stdout == b"(mode(pppoe))\n" * 3, got.stderr)
    for handler in urllib.request.HTTPBasicAuthHandler, urllib.request.HTTPDigestAuthHandler:
        manager = urllib.request.HTTPPasswordMgrWithDefaultRealm()
        manager.add_password(None, d.url, USER, PASSWORD)
        opener = urllib.request.build_opener(handler(manager))
        if handler is urllib.request.HTTPDigestAuthHandler and not PASSWORD.isascii():
            continue  # urllib hashes the password as Latin-1
        got = opener.open(d.url + "/conf/system/hostname?format=value", timeout=20).read()
        check(f"urllib {handler.__name__}", got == b"gateway", got)
    connection = http.client.HTTPConnection("127.0.0.1", d.port, timeout=20)
    for _ in range(3):
        connection.request("GET", "/conf?format=json", headers=HEADERS)
        tree = json.loads(connection.getresponse().read())
        check("http.client reads JSON of the whole tree", tree["wan"]["0"]["mode"] == "pppoe")
    connection.close()


def reading(d):
    rows = [
        ("/conf/wan/0/mode?format=value", 200, "pppoe"),
        ("/conf/wan/0/mode?format=lines", 200, "wan/0/mode=pppoe\n"),
        ("/conf/wan/0/mode?format=json", 200, '"pppoe"\n'),
        ("/conf/%77an/0/mode", 200, "(mode(pppoe))\n"),
        ("/conf/wan/0/mode/pppoe", 404, None),  # a value is no key
        ("/conf/none", 404, None),
        ("/conf/wan?format=xml", 400, None),
        ("/conf/wan//0", 400, None),
        ("/conf/wan/%2e%2e/0", 400, None),
        ("/conf/wan%2f0", 404, None),
        ("/conf/wan%00", 400, None),
        ("/conf/wan%zz", 400, None),
        ("/etc/passwd", 404, None),
        ("/commit", 405, None),
        ("/nothing", 404, None),
    ]
    for path, code, body in rows:
        got = d.curl("--path-as-is", path)
        check(f"GET {path}", got[0] == code and body in (None, got[1]), got)
    for path in "/conf/admin/user/0/password", "/conf/admin", "/conf", "/conf?format=lines", "/conf?format=json":
        code, body = d.curl(path)
        check(f"the password is masked in {path}", code == 200 and "********" in body and
              not re.search(r"password[\"(=:]+[0-9a-f]{32}", body), body)
    head = d.raw(f"HEAD /conf HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\nConnection: close\r\n\r\n".encode())
    check("HEAD has a length and no body", head.endswith("\r\n\r\n") and
          int(re.search(r"Content-Length: (\d+)", head)[1]) > 50000)
    for header in "nosniff", "no-store", "frame-ancestors 'none'":
        check(f"every answer has {header}", header in head)
    check("the welcome page and its style need no login", status(d.request("GET / HTTP/1.0")) == [200] and
          status(d.request("GET /style.css HTTP/1.0")) == [200])


def editing(d):
    file = lambda: open(d.file).read()
    before = file()
    rows = [
        (["-X", "PUT", "--data-binary", "1400", "/conf/wan/0/mtu"], 200, "1 change not committed"),
        (["-X", "DELETE", "/conf/route/ipv4/0"], 200, "not committed"),
        (["-X", "DELETE", "/conf/route/ipv4/0"], 404, "no such key"),
        (["-X", "POST", "/conf/dns/server?index"], 201, "dns/server/"),
        (["-d", "name=a%3Cb&transport=udp", "/conf/dns/server/9"], 200, "not committed"),
        (["-d", "good=1&bad%00=2", "/conf/dns/server/9"], 400, "NUL"),
        (["-d", "good=1&name/deeper=2", "/conf/dns/server/9"], 422, "takes no keys"),
        (["-X", "PUT", "--data-binary", "(note(a(1))(b(2)))", "/conf/note?format=text"], 200, "not committed"),
        (["-X", "PUT", "--data-binary", "(other(1))", "/conf/note?format=text"], 400, "name of the key"),
        (["-X", "PUT", "--data-binary", "(note(1)", "/conf/note?format=text"], 400, "1:"),
        (["-X", "PUT", "--data-binary", "x", "/conf/wan"], 422, "holds keys"),
        (["-X", "PUT", "--data-binary", "x", "/conf/wan/0/mode/deeper"], 422, "takes no keys"),
        (["-X", "PUT", "--data-binary", "x", "/conf"], 422, ""),
        (["-X", "DELETE", "/conf/"], 422, ""),
        (["-X", "DELETE", "/conf/manufacturer"], 403, ""),
        (["-X", "PUT", "--data-binary", "********", "/conf/admin/user/0/password"], 200, ""),
        (["-X", "PUT", "--data-binary", "wifi secret", "/conf/wifi/ssid/0/passphrase"], 200, ""),
        (["/conf/wan/0/mtu?candidate=1"], 200, "(mtu(1400))"),
        (["/conf/wan/0/mtu"], 404, ""),
        (["/conf/dns/server/9/good?candidate=1"], 404, ""),  # nothing of a form that was refused
        (["/diff"], 200, "+ wan/0/mtu=1400\n"),
        (["/diff"], 200, "+ wifi/ssid/0/passphrase=********\n"),
    ]
    for words, code, part in rows:
        got = d.curl(*words)
        check("edit: " + " ".join(words), got[0] == code and part in got[1], got)
    check("nothing is saved before the commit", file() == before)
    code, body = d.curl("-X", "POST", "/commit")
    check("commit", code == 200 and body.startswith("committed "), body)
    after = file()
    check("the file has it", "(mtu(1400))" in after and "wifi secret" not in after and
          os.stat(d.file).st_mode & 0o777 == 0o600)
    check("the written-back mask kept the password", d.curl("/conf/wan/0/mtu") == (200, "(mtu(1400))\n"))
    check("a commit of nothing", d.curl("-X", "POST", "/commit") == (200, "nothing to commit\n") and file() == after)
    d.curl("-X", "PUT", "--data-binary", "1", "/conf/wan/0/mtu")
    check("revert", d.curl("-X", "POST", "/revert") == (200, "reverted 1 change\n") and d.curl("/diff") == (200, ""))
    whole = d.curl("/conf")[1]
    check("the whole tree put back changes nothing but what was masked and kept", d.curl("-X", "PUT", "--data-binary",
          whole, "/conf?format=text") ==
          (200, "0 changes not committed\n"), d.curl("/diff"))
    d.curl("-X", "POST", "/revert")


def two_people(d):
    set_password_of = lambda user, password: d.curl("-X", "PUT", "--data-binary", password,
        f"/conf/admin/user/{user}/password")
    for user in 1, 2, 3:
        set_password_of(user, f"secret{user}")
    check("other users get passwords", d.curl("-X", "POST", "/commit")[0] == 200)
    d.curl("-X", "PUT", "--data-binary", "1", "/conf/wan/0/mtu")
    rows = [
        ("miriam:secret1", ["-X", "PUT", "--data-binary", "2", "/conf/wan/0/mtu"], 409, "admin is changing"),
        ("miriam:secret1", ["-X", "POST", "/commit"], 409, "127.0.0.1"),
        ("miriam:secret1", ["-X", "POST", "/revert"], 409, "force=1"),
        ("clara:secret2", ["-X", "PUT", "--data-binary", "2", "/conf/wan/0/mtu"], 403, "role"),
        ("clara:secret2", ["/conf/wan/0/mode"], 200, "pppoe"),
        ("clara:secret2", ["/conf/vpn"], 404, ""),
        ("clara:secret2", ["/conf/admin/user/0"], 404, ""),
        ("service:secret3", ["-X", "POST", "/commit?force=1"], 403, "role"),
        ("miriam:secret1", ["-X", "PUT", "--data-binary", "2", "/conf/wan/0/mtu?force=1"], 200, "1 change"),
        ("admin:" + PASSWORD, ["-X", "POST", "/commit"], 409, "miriam"),
    ]
    for user, words, code, part in rows:
        got = d.curl(*words, user=user)
        check(f"{user.split(':')[0]}: {' '.join(words)}", got[0] == code and part in got[1], got)
    text = open(d.file).read()
    open(d.file, "w").write(text.replace("(hostname(gateway))", "(hostname(gw2))"))
    d.process.send_signal(signal.SIGHUP)
    check("reloaded", eventually(lambda: d.curl("/conf/system/hostname?format=value") == (200, "gw2")))
    got = d.curl("-X", "POST", "/commit", user="miriam:secret1")
    check("running changed since", got[0] == 409 and "running changed" in got[1], got)
    open(d.file, "w").write("(zel_conf(broken")
    d.process.send_signal(signal.SIGHUP)
    check("a broken file leaves running as it is", eventually(lambda: "not reloaded" in d.curl("/log")[1]) and
          d.curl("/conf/system/hostname?format=value") == (200, "gw2"))
    check("forced", d.curl("-X", "POST", "/commit?force=1", user="miriam:secret1")[0] == 200 and
          "(mtu(2))" in open(d.file).read())


def other_sites(d):
    def put(*headers, host="localhost", method="PUT"):
        return status(d.request(f"{method} /conf/wan/0/mtu HTTP/1.1", AUTH, "Content-Length: 1", "Connection: close",
            *headers,
                                body=b"1", host=host))
    rows = [
        ("its own origin", put("Origin: http://localhost"), [200]),
        ("its own origin with a port", put(f"Origin: http://localhost:{d.port}", host=f"localhost:{d.port}"), [200]),
        ("another port", put("Origin: http://localhost:1"), [403]),
        ("another site", put("Origin: http://evil.example"), [403]),
        ("Origin null", put("Origin: null"), [403]),
        ("cross-site", put("Sec-Fetch-Site: cross-site"), [403]),
        ("same-site", put("Sec-Fetch-Site: same-site"), [403]),
        ("same-origin", put("Sec-Fetch-Site: same-origin"), [200]),
        ("none", put("Sec-Fetch-Site: none"), [200]),
        ("another site reads", status(d.request("GET /style.css HTTP/1.0", "Origin: http://evil.example")), [200]),
        ("the address", put(host="127.0.0.1"), [200]),
        ("another address", put(host="127.0.0.2"), [421]),
        ("a foreign name", put(host="evil.example"), [421]),
        ("the gateway's name", put(host="gateway.home.example.net"), [200]),
        ("an absolute target", status(d.raw(f"GET http://evil.example/ HTTP/1.0\r\nHost: localhost\r\n\r\n".encode())),
         [421]),
    ]
    for name, got, wanted in rows:
        check(f"host and origin: {name}", got == wanted, got)


def hostile(d):
    ok = f"Host: localhost\r\n{AUTH}\r\n"
    get = f"GET /conf/wan/0/mode HTTP/1.1\r\n{ok}"
    put = f"PUT /conf/wan/0/mtu HTTP/1.1\r\n{ok}"
    rows = [
        ("two lengths", put + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n12", 400),
        ("length and chunked", put + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400),
        ("chunked twice", put + "Transfer-Encoding: chunked, chunked\r\n\r\n0\r\n\r\n", 501),
        ("a hidden encoding", put + "Transfer-Encoding : chunked\r\n\r\n0\r\n\r\n", 400),
        ("obs-fold", get + "X: a\r\n b\r\n\r\n", 400),
        ("a bare LF", get + "X: a\n\r\n\r\n", 400),
        ("a bare CR", get + "X: a\rb\r\n\r\n", 400),
        ("a NUL", get + "X: a\0b\r\n\r\n", 400),
        ("a negative length", put + "Content-Length: -1\r\n\r\n", 400),
        ("a length with a sign", put + "Content-Length: +1\r\n\r\n1", 400),
        ("a bad chunk size", put + "Transfer-Encoding: chunked\r\n\r\nx\r\n", 400),
        ("a chunk size with a prefix", put + "Transfer-Encoding: chunked\r\n\r\n0x1\r\n1\r\n0\r\n\r\n", 400),
        ("a huge chunk", put + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff1\r\n", 413),
        ("a long body", put + "Content-Length: 1048577\r\n\r\n", 413),
        ("a long target", "GET /" + "a" * 20000 + " HTTP/1.1\r\n" + ok + "\r\n", 414),
        ("100,000 headers", get + "A: b\r\n" * 100000 + "\r\n", 431),
        ("a long header", get + "A: " + "b" * 20000 + "\r\n\r\n", 431),
        ("no Host", "GET / HTTP/1.1\r\n\r\n", 400),
        ("two Hosts", get + "Host: localhost\r\n\r\n", 400),
        ("no version", "GET /\r\n\r\n", 400),
        ("HTTP/2.0", "GET / HTTP/2.0\r\nHost: localhost\r\n\r\n", 505),
        ("an unknown method", "BREW / HTTP/1.1\r\nHost: localhost\r\n\r\n", 501),
        ("noise", "".join(chr(i) for i in range(256)) * 20, 400),
        ("another Digest uri", get.replace(AUTH,
         'Authorization: Digest username="a", realm="G", nonce="1", uri="/x", response="0"') + "\r\n", 400),
        ("a Digest without fields", get.replace(AUTH, 'Authorization: Digest realm="G'  ) + "\r\n", 400),
    ]
    for name, data, code in rows:
        got = status(d.raw(data.encode("latin-1")))
        check(f"hostile: {name}", got == [code], got)
    check("nothing of it was executed", d.curl("/diff") == (200, ""))
    many = status(d.raw((get + "\r\n").encode() * 150))
    check("150 pipelined requests", many == [200] * 150, len(many))
    long = d.raw(((get.replace("/wan/0/mode", "") + "\r\n") * 20).encode())
    check("20 pipelined long answers", status(long) == [200] * 20 and long.count("\n)\n") == 20, len(long))
    chunked = put + "Transfer-Encoding: chunked\r\n\r\n2;x=y\r\n14\r\n2\r\n00\r\n0\r\nTrailer: x\r\n\r\n"
    got = d.raw((chunked + get + "\r\n").encode())
    check("chunked, and the next request behind it", status(got) == [200, 200], got)
    check("it holds what the chunks said", d.curl("/conf/wan/0/mtu?candidate=1&format=value") == (200, "1400"))
    d.curl("-X", "POST", "/revert")
    with socket.create_connection(("127.0.0.1", d.port), timeout=10) as s:
        for byte in (put + "Expect: 100-continue\r\nContent-Length: 3\r\nConnection: close\r\n\r\n").encode():
            s.sendall(bytes([byte]))
        s.settimeout(5)
        check("100 Continue after a head byte by byte", s.recv(100).startswith(b"HTTP/1.1 100 "))
        s.sendall(b"900")
        check("then the answer", s.recv(100).startswith(b"HTTP/1.1 200 "))
    d.curl("-X", "POST", "/revert")
    evil = "<script>'\"&\r\nX: y\x1b[2J"
    d.curl("-X", "PUT", "--data-binary", evil, "/conf/wan/0/mtu")
    code, page = d.curl("/ui/tree/wan/0")
    check("markup in a value stays text", code == 200 and "<script>" not in page and "\x1b" not in page)
    check("JSON of it is JSON", json.loads(d.curl("/conf/wan/0/mtu?format=json&candidate=1")[1]) == evil)
    check("a line of it is one line", d.curl("/diff")[1].count("\n") == 1)
    d.curl("-X", "POST", "/revert")
    subprocess.run(["curl", "-s", "-u", "x\ny\x1b:z", d.url + "/conf"], capture_output=True)
    check("a name with a line end stays on its line of the log", "user x&0a;y&1b; from" in d.curl("/log")[1],
          d.curl("/log")[1])
    with contextlib.ExitStack() as stack:
        open_now = [stack.enter_context(socket.create_connection(("127.0.0.1", d.port), timeout=10)) for _ in range(50)]
        check("50 silent connections disturb nobody", d.alive() and len(open_now) == 50)


def digest(nonce, method="GET", uri="/conf/wan/0/mode"):
    h = lambda *parts: hashlib.md5(":".join(parts).encode()).hexdigest()
    response = h(h(USER, "Gateway", PASSWORD), nonce, h(method, uri))
    return (f'Authorization: Digest username="{USER}", realm="Gateway", nonce="{nonce}", uri="{uri}", '
            f'response="{response}"').encode().decode("latin-1")


def nonce_of(d):
    return re.search(r'nonce="([^"]*)"', d.request("GET /conf HTTP/1.1", "Connection: close"))[1]


def nonces(d):
    get = lambda header, head="GET /conf/wan/0/mode HTTP/1.1", *more: d.request(head, header, "Connection: close", *more)
    good = nonce_of(d)
    check("a Digest header of our own", status(get(digest(good))) == [200])
    check("with an absolute target", status(get(digest(good, uri="http://localhost/conf/wan/0/mode"),
          "GET http://localhost/conf/wan/0/mode HTTP/1.1")) == [200])
    check("right, but for another target", status(get(digest(good, uri="/conf/wan/1/mode"))) == [400])
    for name, nonce in ("made up", "0" * 32 + ":0:0"), ("changed", good[:-1] + "0123456789abcdef"[int(good[-1], 16) ^ 1]):
        got = get(digest(nonce, "DELETE"), "DELETE /conf/wan/0/mode HTTP/1.1")
        check(f"a {name} nonce is stale", status(got) == [401] and 'stale="true"' in got and "pppoe" not in got, got)
    check("and its request was not done", d.curl("/diff") == (200, ""))
    got = get(digest("0" * 32 + ":0:0").replace('response="', 'response="0'))
    check("stale and wrong is wrong", status(got) == [401] and "stale" not in got, got)


class Markup(html.parser.HTMLParser):
    """The names of the elements and attributes of a page."""

    def __init__(self, text):
        super().__init__()
        self.names = set()
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.names |= {tag, *(f"{tag} {name}" for name, _ in attrs)}


def break_out(d):
    """Names that are markup, escapes and line ends, everywhere they are shown."""
    def pages_of(name):
        path = urllib.parse.quote(name, safe="")
        check("a name is taken", d.curl("-X", "PUT", "--data-binary", name, f"/conf/wan/{path}/x")[0] == 200)
        rows = ["/ui/tree/wan", f"/ui/tree/wan/{path}", f"/ui/tree/wan/{path}?ask=delete", "/ui/search?q=onclick",
            "/ui/diff"]
        pages = [d.curl(row) for row in rows]
        check("it is shown", all(code == 200 and "onclick" in text for code, text in pages), pages)
        return "".join(text for _, text in pages)

    plain = Markup(pages_of("onclick")).names
    d.curl("-X", "POST", "/revert")
    name = "</code><b onclick='x'>\"\r\nX-Y: 1\r\n\x1b[2J&"
    path = "/conf/wan/" + urllib.parse.quote(name, safe="")
    shown = pages_of(name)
    # The field of a value that no field can hold is left out.
    check("as text", Markup(shown).names <= plain | {"p class", "p role"} and "\x1b" not in shown,
          Markup(shown).names - plain)
    check("JSON", json.loads(d.curl("/conf/wan?format=json&candidate=1")[1])[name] == {"x": name})
    lines = d.curl("/conf/wan?format=lines&candidate=1")[1]
    check("lines", "\nX-Y" not in lines and "\x1b" not in lines and lines.count("onclick") == 2 and
          all(line.startswith("wan/") for line in lines.splitlines()), lines)
    text = d.curl("/conf/wan?candidate=1")[1]
    check("the text form reads back", d.curl("-X", "PUT", "--data-binary", text, "/conf/wan?format=text")[0] == 200 and
          json.loads(d.curl("/conf/wan?format=json&candidate=1")[1])[name] == {"x": name})
    for form in path + "?index", path.replace("conf", "ui/tree", 1) + "?index":
        got = d.raw(f"POST {form} HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\nConnection: close\r\n\r\n".encode())
        check("Location is one line", status(got)[0] in (201, 303, 422) and "\r\nX-Y" not in got, got)
    refused = d.raw(b"BREW\x1b / HTTP/1.1\r\n\r\n") + d.raw(b"GET /conf/<script>%0aX HTTP/1.1\r\nHost: <script>\r\n\r\n")
    check("a refusal does not repeat what was sent", "<script" not in refused and "\x1b" not in refused, refused)
    check("log", "\x1b" not in d.curl("/log")[1])
    d.curl("-X", "POST", "/revert")


def bodies(d):
    put = f"PUT /conf/wan/0/mtu HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n"
    expect = "Expect: 100-continue\r\nConnection: close\r\n"
    rows = [
        ("too long", put + expect + "Content-Length: 1048577\r\n\r\n", [413]),
        ("no login", put.replace(AUTH, "X: y") + expect + "Content-Length: 3\r\n\r\n", [401]),
        ("another site", put + expect + "Origin: http://evil.example\r\nContent-Length: 3\r\n\r\n", [403]),
        ("another expectation", put + "Expect: 200-ok\r\nContent-Length: 3\r\n\r\n", [417]),
        ("nothing to come", put + expect + "Content-Length: 0\r\n\r\n", [200]),
    ]
    for name, data, wanted in rows:
        got = status(d.raw(data.encode()))
        check(f"who expects 100 Continue, {name}, gets the answer instead", got == wanted, got)
    with tempfile.NamedTemporaryFile() as file:
        for size, wanted in (1 << 20, 200), ((1 << 20) + 1, 413), (3 << 20, 413):
            file.seek(0)
            file.write(b"x" * size)
            file.flush()
            for header in "Expect: 100-continue", "Transfer-Encoding: chunked":
                got = d.curl("-T", file.name, "-H", header, "/conf/wan/0/comment")[0]
                check(f"curl sends {size} bytes, {header}", got == wanted, got)
    with socket.create_connection(("127.0.0.1", d.port), timeout=10) as s:
        s.sendall(put.encode() + b"Content-Length: 1048577\r\n\r\n" + b"y" * 800000)
        time.sleep(0.2)
        got = b"".join(iter(lambda: s.recv(65536), b""))  # fails when the connection is reset
        check("who sends the long body all the same gets the refusal", status(got.decode()) == [413], got)
    code, text = d.curl("/conf/wan/0/comment?candidate=1&format=value")
    check("what was taken is whole", code == 200 and text == "x" * (1 << 20), len(text))
    d.curl("-X", "POST", "/revert")


def crowd(d):
    """400 connections of both protocols live; the next is closed, and has its place once one has gone."""
    connect = lambda port: socket.create_connection(("127.0.0.1", port), timeout=10)
    get = f"GET /conf/wan/0/mode HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n\r\n".encode()
    with contextlib.ExitStack() as stack:
        crowd = []
        for i in range(400):
            crowd.append(stack.enter_context(connect(d.line_port if i % 4 == 3 else d.port)))
            time.sleep(0.002)  # the queue of what is not accepted is short
        for port in d.port, d.line_port:
            with connect(port) as one_more:
                check("the 401st connection is closed", one_more.recv(1) == b"")
        crowd[3].sendall(b"help\n")
        check("the others live", crowd[3].recv(5) == b"data\n")
        for i in 0, 398:
            crowd[i].sendall(get)
            check("the others live", crowd[i].recv(12) == b"HTTP/1.1 200")
        crowd[7].close()
        crowd[8].close()
        crowd[1].sendall(get)  # when this is answered it is known that the two have gone
        crowd[1].recv(1)
        check("who comes when one has gone is served", d.alive())
    check("all are gone in the end", eventually(lambda: "connections_open=1\n" in d.curl("/stats")[1]))
    check("the refused were counted", "connections_refused=2\n" in d.curl("/stats")[1], d.curl("/stats"))
    failing = f"GET /conf HTTP/1.1\r\nHost: localhost\r\nAuthorization: Basic {'YWRtaW46bm8='}\r\n\r\n".encode()
    with contextlib.ExitStack() as stack:
        guessers = [stack.enter_context(connect(d.port)) for _ in range(80)]
        began = time.monotonic()
        for s in guessers:
            s.sendall(failing)
        sent = time.monotonic() - began
        answers = [s.recv(12) for s in guessers]
        check("64 failed logins wait, the rest is refused", set(answers) <= {b"HTTP/1.1 401", b"HTTP/1.1 429"} and
              (answers.count(b"HTTP/1.1 401") == 69 or sent > 0.5), answers)


def slow_clients(d, count):
    """Each is cut at its deadline, and not before, whatever trickles; all of them at the same time."""
    head = f"PUT /conf/wan/0/mtu HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n"

    def client(name, begin, trickle, seconds, answer, port=d.port):
        got = b""
        with socket.create_connection(("127.0.0.1", port), timeout=0.5) as s:
            began = time.monotonic()
            s.sendall(begin)
            while time.monotonic() - began < 100:
                try:
                    piece = s.recv(65536)
                    got += piece
                    if not piece:
                        break
                except TimeoutError:
                    with contextlib.suppress(OSError):
                        s.sendall(trickle)
                except OSError:
                    break
            took = time.monotonic() - began
        # Behind an answer the connection is held for two seconds more.
        return (f"{name}: cut after {seconds} s", seconds - 0.5 < took < seconds + 5 and
            answer(status(got.decode("latin-1"))), (took, got[:300]))

    def deaf():
        """Asks for much, and reads nothing."""
        with socket.create_connection(("127.0.0.1", d.port), timeout=0.5) as s:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            with contextlib.suppress(OSError):
                s.sendall(f"GET /conf HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n\r\n".encode() * 200)
            time.sleep(70)
            open_now = int(re.search(r"connections_open=(\d+)", d.curl("/stats")[1])[1])
            return "who does not read its answers is cut", open_now == 1, open_now

    none, timed_out = (lambda codes: codes == []), (lambda codes: codes == [408])
    rows = [
        ("a head that trickles", b"GET ", b"a", 10, timed_out),
        ("a head whose lines trickle", b"GET / HTTP/1.1\r\n", b"A: b\r\n", 10, timed_out),
        ("a silent head", b"G", b"", 10, timed_out),
        ("a body that trickles", head.encode() + b"Content-Length: 100000\r\n\r\n", b"1", 60, timed_out),
        ("chunks that trickle", head.encode() + b"Transfer-Encoding: chunked\r\n\r\n", b"1\r\n1\r\n", 60, timed_out),
        ("silence", b"", b"", 60, none),
        ("silence behind a request", b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", b"", 60, lambda codes: codes == [200]),
        ("the line protocol without a login", b"", b"x", 60, none, d.line_port),
    ]
    old = nonce_of(d)
    with concurrent.futures.ThreadPoolExecutor(count) as pool:
        for result in [pool.submit(client, *row) for row in rows] + [pool.submit(deaf)]:
            check(*result.result())
    got = d.request("GET /conf/wan/0/mode HTTP/1.1", digest(old), "Connection: close")
    check("a nonce of a minute ago is stale", status(got) == [401] and 'stale="true"' in got and "pppoe" not in got, got)
    check("nothing of it was done", d.curl("/diff") == (200, "") and d.alive())


def pages(d):
    post = lambda path, *fields: d.curl(*[w for f in fields for w in ("--data-urlencode", f)],
        *([] if fields else ["-X", "POST"]),
                                        "-H", f"Origin: {d.url}", "-H", "Sec-Fetch-Site: same-origin", path)
    code, page = d.curl("/ui/tree/wifi/ssid/0")
    check("a page with a form and choices", code == 200 and 'name="/name"' in page and "<option" in page and
          "<script" not in page)
    check("it says that nothing is pending", "0 changes not committed" in page)
    fields = [f"{n}={v}" for n, v in re.findall(r'<input[^>]* name="(/[^"]*)"[^>]* value="([^"]*)"', page)]
    check("a form sent back changes nothing", post("/ui/tree/wifi/ssid/0", *fields)[0] == 303 and
          d.curl("/diff") == (200, ""))
    check("an edit", post("/ui/tree/wifi/ssid/0", "/name=Caf\u00e9 & co") [0] == 303)
    check("the bar counts it", "1 change not committed" in d.curl("/ui/tree/")[1])
    check("the difference is shown before the commit",
          "~ wifi/ssid/0/name=Caf&amp;c3;&amp;a9; &amp;26; co" in d.curl("/ui/diff")[1], d.curl("/ui/diff")[1])
    check("commit", post("/ui/commit")[0] == 303 and d.curl("/conf/wifi/ssid/0/name?format=value") == (200,
          "Caf\u00e9 & co"))
    check("an entry is added", post("/ui/tree/dns/server?index")[0] == 303)
    check("and deleted", post("/ui/tree/dns/server/0?delete")[0] == 303 and "- dns/server/0" in d.curl("/diff")[1])
    check("revert", post("/ui/revert")[0] == 303 and d.curl("/diff") == (200, ""))
    check("search", "wan/0/mode" in d.curl("/ui/search?q=PPPOE")[1])
    check("log", d.curl("/ui/log")[0] == 200)
    check("a page that is not there", d.curl("/ui/tree/none")[0] == 404 and d.curl("/ui/none")[0] == 404)


def line_protocol(d):
    def talk(text):
        if not shutil.which("nc"):
            return d.raw(text.encode(), port=d.line_port)
        result = subprocess.run(["nc", "-N", "127.0.0.1", str(d.line_port)], input=text.encode(), capture_output=True,
            timeout=30)
        return result.stdout.decode()
    login = f"auth {USER} {PASSWORD}\n"
    rows = [
        ("help", "help\nquit\n", lambda a: a.startswith("data\n auth USER") and a.endswith(".\nok bye\n")),
        ("commands in flight",
         login + "get wan/0/mode\nset wan/0/mtu 1300\ndiff\nadd dns/server\ndel route/ipv4/0\nrevert\nquit\n",
         lambda a: a.splitlines()[:5] == ["ok logged in", "ok pppoe", "ok 1 change not committed", "data",
             " + wan/0/mtu=1300"] and
         a.endswith("ok bye\n") and "ok dns/server/" in a and "error" not in a),
        ("list", login + "list wan/0/ppp/reconnect\n", lambda a: "data\n wan/0/ppp/reconnect/min_s=5\n" in a and
         a.endswith(".\n")),
        ("a long list twice", login + "list\nlist\nquit\n", lambda a: a.count("\n.\n") == 2 and a.endswith("ok bye\n")),
        ("before the login", "get wan/0/mode\nhelp\n", lambda a: a == "error 401 log in first: auth USER PASSWORD\n"),
        ("a browser's form", "POST / HTTP/1.1\r\nHost: x\r\n\r\nauth admin x\r\n",
         lambda a: a.startswith("error 401") and a.count("\n") == 1),
        ("three failed logins", "auth admin x\nauth admin y\nauth admin z\nhelp\n",
         lambda a: a == "error 401 wrong user or password\n" * 3),
        ("what it does not know", login + "brew\nget none\nset wan 1\nget wan&00;\n",
         lambda a: [l.split()[1] for l in a.splitlines()[1:]] == ["400", "404", "422", "400"]),
        ("secrets", login + "get admin/user/0/password\n", lambda a: a.endswith("ok ********\n")),
    ]
    for name, text, good in rows:
        answer = talk(text)
        check(f"line protocol: {name}", good(answer), answer)
    long = "set wan/0/mtu " + "9" * 100000 + "\n"
    with socket.create_connection(("127.0.0.1", d.line_port), timeout=15) as s:
        s.sendall((login + long).encode())
        s.recv(len("ok logged in\n"), socket.MSG_WAITALL)
        check("line protocol: a line that is too long is told of",
              s.recv(100) == b"error 413 the line is longer than 8 kB\n" and
              d.curl("/diff") == (200, ""))
        check("line protocol: and the connection ends without a reset", s.recv(100) == b"")
    check("line protocol: noise closes", d.raw(bytes(range(256)) * 100, port=d.line_port).count("\n") <= 1)


def operation(d):
    second = subprocess.run([MGMTD, "-c", d.file, "--http", "127.0.0.1:0", "--line", "off"], capture_output=True,
        text=True, timeout=30)
    check("a second daemon is refused and told who", second.returncode == 1 and str(d.process.pid) in second.stderr,
          second.stderr)
    with tempfile.TemporaryDirectory() as folder:
        copy = os.path.join(folder, "c")
        shutil.copy(SAMPLE, copy)
        busy = subprocess.run([MGMTD, "-c", copy, "--http", f"127.0.0.1:{d.port}"], capture_output=True, text=True,
            timeout=30)
        check("a busy port names port and option", busy.returncode == 1 and str(d.port) in busy.stderr and
              "--http" in busy.stderr, busy.stderr)
        broken = os.path.join(folder, "b")
        open(broken, "w").write("(a(b)")
        bad = subprocess.run([MGMTD, "-c", broken], capture_output=True, text=True, timeout=30)
        check("a broken file is refused with its place", bad.returncode == 1 and ":1:" in bad.stderr, bad.stderr)
        pid_file = os.path.join(folder, "pid")
        up = subprocess.run([MGMTD, "-c", copy, "--daemon", "--http", "127.0.0.1:0", "--line", "off", "--pidfile", pid_file],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30)
        pid = int(open(pid_file).read())
        os.kill(pid, signal.SIGTERM)
        for _ in range(100):
            if not os.path.exists(pid_file):
                break
            time.sleep(0.05)
        check("in the background, with a pid file until its end", up.returncode == 0 and not os.path.exists(pid_file),
              up.stderr)
    check("misuse", subprocess.run([MGMTD], capture_output=True).returncode == 2 and
          subprocess.run([MGMTD, "-c", "x", "--http", "nonsense"], capture_output=True).returncode == 2)
    began = time.monotonic()
    for _ in range(8):
        d.curl("/conf/wan", user="admin:no")
    check("the sixth failed login and later ones wait", 1.9 < time.monotonic() - began, time.monotonic() - began)
    took = []
    for _ in range(5):  # the machine may be busy, a wait would be in all of them
        began = time.monotonic()
        check("a right login goes on", d.alive())
        took.append(time.monotonic() - began)
    check("and does not wait", min(took) < 0.9, took)
    with socket.create_connection(("127.0.0.1", d.port)) as idle:
        check("SIGTERM ends with 0", d.stop() == 0)
        check("and closed the idle connection", idle.recv(1) == b"")
    d.start()
    check("SIGINT, too", d.stop(signal.SIGINT) == 0)
    d.start("--line", "0.0.0.0:0")
    log = d.curl("/log")[1]
    check("listening elsewhere than on loopback is warned of", "warn listening on 0.0.0.0 port" in log and
          log.count("listening") == 1, log)
    d.stop()
    d.start("--readonly")
    check("--readonly refuses", d.curl("-X", "PUT", "--data-binary", "1", "/conf/wan/0/mtu")[0] == 403 and d.alive())


@contextlib.contextmanager
def no_descriptors(d):
    """The daemon can open nothing for a while."""
    number, pid = resource.RLIMIT_NOFILE, d.process.pid
    old = resource.prlimit(pid, number)
    resource.prlimit(pid, number, (max(map(int, os.listdir(f"/proc/{pid}/fd"))) + 1, old[1]))
    yield
    resource.prlimit(pid, number, old)


def signals(d):
    """Connections live through a reload; on SIGTERM what is begun is answered with 503; a commit that cannot be saved."""
    get = f"GET /conf/wan/0/mode HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n\r\n".encode()

    def ask(s, data):
        s.sendall(data)
        return status(s.recv(65536).decode("latin-1"))

    zconf = subprocess.run([os.path.join(os.path.dirname(MGMTD), "zconf"), "-f", d.file, "set", "wan/0/mtu", "1"],
                           capture_output=True, text=True, timeout=60)
    check("zconf may read, but not change what the daemon holds", zconf.returncode != 0 and
          str(d.process.pid) in zconf.stderr, zconf)
    d.curl("-X", "PUT", "--data-binary", "2", "/conf/wan/0/mtu")
    with socket.create_connection(("127.0.0.1", d.port), timeout=10) as s:
        check("before a reload", ask(s, get) == [200])
        d.process.send_signal(signal.SIGHUP)
        check("the connection lives through the reload",
              eventually(lambda: "reloaded" in d.curl("/log")[1]) and ask(s, get) == [200])
    check("and new ones are taken, with the candidate as it was", d.curl("/diff") == (200, "+ wan/0/mtu=2\n"))
    before = open(d.file).read()
    with no_descriptors(d), socket.create_connection(("127.0.0.1", d.port), timeout=1) as s:
        began = d.cpu_seconds()
        with contextlib.suppress(OSError):
            s.recv(1)  # it is not served, or closed
        check("nor does it spin", d.cpu_seconds() - began < 0.5)
    check("it lives through a want of descriptors", d.alive())
    with http_connection(d) as c:
        c.request("GET", "/stats", headers=HEADERS)
        c.getresponse().read()
        with no_descriptors(d):
            c.request("POST", "/commit", headers=HEADERS)
            answer = c.getresponse()
            text = answer.read().decode()
    check("a commit that cannot be saved is told of and changes nothing", answer.status == 507 and
          open(d.file).read() == before and d.curl("/conf/wan/0/mtu")[0] == 404 and
          d.curl("/diff") == (200, "+ wan/0/mtu=2\n"), (answer.status, text))
    check("it can be repeated", d.curl("-X", "POST", "/commit")[0] == 200 and "(mtu(2))" in open(d.file).read())
    with contextlib.ExitStack() as stack:
        begun, hanging, idle = [stack.enter_context(socket.create_connection(("127.0.0.1", d.port),
            timeout=10)) for _ in range(3)]
        begun.sendall(get[:20])
        hanging.sendall(get[:20])
        check("idle before the end", ask(idle, get) == [200])
        began = time.monotonic()
        d.process.send_signal(signal.SIGTERM)
        check("what is idle when it ends is closed", idle.recv(1) == b"")
        check("what is begun when it ends gets 503", ask(begun, get[20:]) == [503] and begun.recv(1) == b"")
        check("what hangs is cut after five seconds", d.process.wait(20) == 0 and 4 < time.monotonic() - began < 12,
              time.monotonic() - began)
    d.process.stdout.close()
    if os.path.exists("/proc/net/if_inet6") and "00000000000000000000000000000001" in open("/proc/net/if_inet6").read():
        d.start("--http", "[::1]:0")
        url = f"http://[::1]:{d.ports[1]}/conf/wan/0/mode?format=value"
        got = subprocess.run(["curl", "-s", "-g", "--digest", "-u", f"{USER}:{PASSWORD}", url], capture_output=True,
            timeout=30)
        check("IPv6", got.stdout == b"pppoe", got)
    else:
        d.start()


def kills(d, count):
    """The file is whole, and holds every commit that was answered, whenever the daemon is killed."""
    for i in range(count):
        value = f"v{i:04}"
        d.curl("-X", "PUT", "--data-binary", value, "/conf/wan/0/mtu")
        killer = subprocess.Popen(["/bin/sh", "-c", f"sleep 0.0{i * 7 % 30:02}; kill -9 {d.process.pid}"])
        answered = False
        with contextlib.suppress(OSError, http.client.HTTPException):
            c = http.client.HTTPConnection("127.0.0.1", d.port, timeout=10)
            c.request("POST", "/commit", headers=HEADERS)
            answered = c.getresponse().status == 200
        killer.wait()
        d.process.wait(10)
        d.process.stdout.close()
        d.start()
        stored = d.curl("/conf/wan/0/mtu?format=value")[1]
        if (answered and stored != value) or d.curl("/conf/log/level")[0] != 200:
            check(f"kill {i}", False, (answered, stored))
    check(f"{count} kills during commits", d.alive())


def memory(d, count):
    """The same requests again and again hold no more memory than a few of them."""
    def kilobytes():
        return int(re.search(r"VmRSS:\s+(\d+)", open(f"/proc/{d.process.pid}/status").read())[1])

    def run(n):
        with contextlib.ExitStack() as stack:
            for _ in range(max(1, n // 5000)):
                s = stack.enter_context(socket.create_connection(("127.0.0.1", d.port)))
                left = min(n, 5000)
                one = f"GET /conf/wan/0/mode HTTP/1.1\r\nHost: localhost\r\n{AUTH}\r\n\r\n".encode()
                while left > 0:
                    s.sendall(one * 50)
                    got = b""
                    while got.count(b"(mode(pppoe))\n") < 50:
                        got += s.recv(1 << 16)
                    left -= 50
                s.close()
    run(2000)
    before = kilobytes()
    began = time.monotonic()
    run(count)
    took = time.monotonic() - began
    after = kilobytes()
    print(f"      {count} requests in {took:.1f} s, {before} kB before, {after} kB after")
    check(f"{count} requests in constant memory", SANITIZED or after - before < 300, (before, after))
    with contextlib.ExitStack() as stack:
        before = kilobytes()
        for _ in range(200):
            stack.enter_context(socket.create_connection(("127.0.0.1", d.port)))
        time.sleep(0.3)
        print(f"      an idle connection holds {(kilobytes() - before) / 200:.1f} kB")


def main():
    if SLOW:
        for case, count in (slow_clients, 20), (kills, 200), (memory, 200000):
            with daemon() as d:
                case(d, count)
    else:
        for case in (clients, reading, editing, two_people, other_sites, hostile, nonces, break_out, bodies, crowd, pages,
                     line_protocol, operation, signals):
            with daemon() as d:
                case(d)
                check(f"{case.__name__}: the daemon lives and ends well", d.alive() and d.stop() == 0)
        for case, count in (kills, 8), (memory, 5000):
            with daemon() as d:
                case(d, count)
    print(f"{len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
