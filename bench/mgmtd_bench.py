#!/usr/bin/env python3
"""Measures mgmtd on the sample configuration: requests per second of its CPU time, its start, its memory.

usage: mgmtd_bench.py MGMTD SAMPLE [--short]
"""
import contextlib
import hashlib
import pathlib
import re
import socket
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "programs"))
from mgmtd_outside import AUTH, PASSWORD, USER, daemon  # noqa: E402

SHORT = "--short" in sys.argv[3:]
TARGET = "/conf/wan/0/mode?format=value"


def kilobytes(d):
    return int(re.search(r"VmRSS:\s+(\d+)", open(f"/proc/{d.process.pid}/status").read())[1])


def connect(d):
    s = socket.create_connection(("127.0.0.1", d.port))
    s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return s


def get(*headers, target=TARGET):
    return "\r\n".join([f"GET {target} HTTP/1.1", "Host: localhost", *headers, "\r\n"]).encode()


def answer(s, body=b"\r\n\r\npppoe"):
    got = b""
    while not got.endswith(body):
        piece = s.recv(65536)
        if not piece:
            return got
        got += piece
    return got


def digest(challenge):
    realm, nonce = (re.search(f'{name}="([^"]*)"', challenge)[1] for name in ("realm", "nonce"))
    h = lambda *parts: hashlib.md5(":".join(parts).encode()).hexdigest()
    response = h(h(USER, realm, PASSWORD), nonce, h("GET", TARGET))
    return f'Authorization: Digest username="{USER}", realm="{realm}", nonce="{nonce}", uri="{TARGET}", response="{response}"'


def challenged(s):
    s.sendall(get())
    got = b""
    while b"log in\n" not in got:
        got += s.recv(65536)
    return got.decode("latin-1")


def rate(d, name, step, unit=1):
    """Repeats the step for some seconds of the daemon's time."""
    seconds = 0.05 if SHORT else 2
    for _ in range(10):
        step()
    began, wall, count = d.cpu_seconds(), time.monotonic(), 0
    while d.cpu_seconds() - began < seconds:
        for _ in range(20):
            step()
        count += 20 * unit
    used, wall = d.cpu_seconds() - began, time.monotonic() - wall
    print(f"{name:48}{count / used:10,.0f} a CPU second{used / count * 1e6:9.1f} us   (daemon busy {used / wall:.0%})",
        flush=True)


def requests(d):
    with connect(d) as s:
        basic, pipelined = get(AUTH), get(AUTH) * 50
        rate(d, "GET of a value, kept alive, Basic", lambda: (s.sendall(basic), answer(s)))

        def fifty():
            s.sendall(pipelined)
            got = 0
            while got < 50:
                got += s.recv(65536).count(b"pppoe")
        rate(d, "the same, 50 pipelined", fifty, 50)
        state = {"until": 0.0}

        def login():
            if time.monotonic() > state["until"]:  # a nonce lives for a minute
                state["header"] = get(digest(challenged(s)))
                state["until"] = time.monotonic() + 30
            s.sendall(state["header"])
            answer(s)
        rate(d, "Digest login, kept alive", login)

    def whole():
        with connect(d) as s:
            s.sendall(get(digest(challenged(s))))
            answer(s)
    rate(d, "connection, challenge, Digest login, close", whole)
    with connect(d) as s:
        tree = get(AUTH, target="/conf")
        rate(d, "GET of the whole tree, kept alive", lambda: (s.sendall(tree), answer(s, b"\n)\n")))


def starts():
    took = []
    with daemon() as d:
        for _ in range(3 if SHORT else 21):
            d.stop()
            d.process.stdout.close()
            began = time.monotonic()
            d.start()
            with connect(d) as s:
                s.sendall(get(AUTH))
                answer(s)
                took.append((time.monotonic() - began) * 1000)
        print(f"start to first answer: {statistics.median(took):.1f} ms; then {kilobytes(d)} kB are resident")


def memory():
    for name, request, end in ("silent", b"", b""), ("behind a short answer", get(AUTH), b"pppoe"), (
            "behind the whole tree", get(AUTH, target="/conf"), b"\n)\n"):
        with daemon() as d, contextlib.ExitStack() as stack:
            with connect(d) as s:  # what the first request of its kind leaves is not the connections'
                s.sendall(request or get(AUTH))
                answer(s, end or b"pppoe")
            time.sleep(0.1)
            before = kilobytes(d)
            count = 350
            for _ in range(count):
                s = stack.enter_context(connect(d))
                time.sleep(0.001)  # the queue of what is not accepted is short
                if request:
                    s.sendall(request)
                    answer(s, end)
            time.sleep(0.2)
            print(f"an idle connection, {name}: {(kilobytes(d) - before) / count:.1f} kB")


def main():
    starts()
    memory()
    with daemon() as d:
        requests(d)


if __name__ == "__main__":
    main()
