#!/usr/bin/env python3
"""Drives relay from outside, with curl, socat and sockets of its own. One printed row each. With the word "slow" behind
the program: the long trials instead. Exit code 77 when a tool is missing and the rest is well."""

import atexit
import contextlib
import hashlib
import http.server
import os
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

RELAY = sys.argv[1]
SLOW = "slow" in sys.argv[2:]
LIMIT = 20  # seconds, of everything that is waited for
faults, missing = 0, []


def row(name, found, expected=True):
    global faults
    faults += found != expected
    print(f"{'ok   ' if found == expected else 'FAULT'}  {name:48}  {found}" +
          ("" if found == expected else f", expected {expected}"), flush=True)


def until(condition, limit=LIMIT):
    end = time.monotonic() + limit
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.02)
    return False


class Server:
    """A listening socket of this host; serve(connection) runs in a thread for each connection."""

    def __init__(self, serve, family=socket.AF_INET):
        self.listener = socket.create_server(("::1" if family == socket.AF_INET6 else "127.0.0.1", 0), family=family,
                                             backlog=1024)
        self.port = self.listener.getsockname()[1]
        self.serve = serve
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        while True:
            connection, _ = self.listener.accept()
            threading.Thread(target=self.one, args=(connection,), daemon=True).start()

    def one(self, connection):
        with contextlib.suppress(OSError), connection:
            self.serve(connection)


class Relay:
    """The program between its start and its end, with what it reports."""

    def __init__(self, *words):
        self.err = tempfile.TemporaryFile()
        self.process = subprocess.Popen([RELAY, *words], stdout=subprocess.DEVNULL, stderr=self.err)
        atexit.register(self.process.kill)
        count = len([word for word in words if word[-1].isdigit() and ":" in word]) // 2
        until(lambda: len(self.ports()) == count or self.process.poll() is not None)

    def reports(self):
        # Never seek: the program writes where this offset stands.
        return os.pread(self.err.fileno(), os.fstat(self.err.fileno()).st_size, 0).decode()

    def ports(self):
        return [int(port) for port in re.findall(r"listening on .*:(\d+)\n", self.reports())]

    def counters(self):
        wanted = self.reports().count("to clients") + len(self.ports())
        self.process.send_signal(signal.SIGUSR1)
        until(lambda: len(re.findall(r"to clients \d+\n", self.reports())) == wanted)
        line = self.counter_lines()[-1]
        names = ["accepted", "open", "refused", "failed", "bytes to the server", "to clients"]
        return {name: int(re.search(name + r" (\d+)", line)[1]) for name in names}

    def counter_lines(self):
        return [line for line in self.reports().splitlines() if ", to clients " in line]

    def cpu(self):
        with open(f"/proc/{self.process.pid}/stat") as stat:
            fields = stat.read().rsplit(")")[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def end(self, signo=signal.SIGTERM):
        if self.process.poll() is None and signo:
            self.process.send_signal(signo)
        try:
            return self.process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return "still there"


def connect(port, address="127.0.0.1"):
    return socket.create_connection((address, port), timeout=LIMIT)


def receive(connection, length=1 << 40):
    data = bytearray()
    with contextlib.suppress(ConnectionResetError):
        while len(data) < length and (piece := connection.recv(min(65536, length - len(data)))):
            data += piece
    return bytes(data)


def echo(connection):
    while piece := connection.recv(65536):
        connection.sendall(piece)


def echo_at_end(connection):
    connection.sendall(receive(connection))


def hang(connection):
    time.sleep(60)


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def at(server):
    return f"127.0.0.1:{server.port}"


def command_line():
    def run(*words):
        return subprocess.run([RELAY, *words], capture_output=True, text=True, timeout=LIMIT)

    row("--help", (run("--help").returncode, run("-h").stdout.startswith("usage: relay ")), (0, True))
    row("--version", run("--version").stdout.startswith("relay "))
    for words in ([], ["127.0.0.1:0"], ["127.0.0.1:0", "127.0.0.1:0"], ["localhost:0", "127.0.0.1:1"],
                  ["127.0.0.1", "127.0.0.1:1"], ["::1:0", "127.0.0.1:1"], ["127.0.0.1:65536", "127.0.0.1:1"],
                  ["127.0.0.1:0", "127.0.0.1:1x"], ["127.0.0.1:0", "[fe80::1%lo]:1"],
                  ["--max", "0", "127.0.0.1:0", "127.0.0.1:1"],
                  ["--idle", "-1", "127.0.0.1:0", "127.0.0.1:1"], ["--drain", "x", "127.0.0.1:0", "127.0.0.1:1"],
                  ["--high-water", "9999999999", "127.0.0.1:0", "127.0.0.1:1"], ["--max"], ["--frob"]):
        result = run(*words)
        row("misuse: " + " ".join(words), (result.returncode, "usage: relay " in result.stderr), (2, True))
    taken = socket.create_server(("127.0.0.1", 0))
    result = run(f"127.0.0.1:{taken.getsockname()[1]}", "127.0.0.1:1")
    row("an address in use", (result.returncode, "relay: cannot listen on" in result.stderr), (3, True))


def has(tool):
    found = shutil.which(tool)
    if not found:
        missing.append(tool)
    return found


def foreign_clients():
    folder = tempfile.TemporaryDirectory()
    content = os.urandom(20_000_000)
    with open(os.path.join(folder.name, "file"), "wb") as file:
        file.write(content)

    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *arguments):
            super().__init__(*arguments, directory=folder.name)

        def log_message(self, *_):
            pass

    web = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=web.serve_forever, daemon=True).start()
    place, echoing = f"127.0.0.1:{web.server_address[1]}", Server(echo_at_end)
    relay = Relay("127.0.0.1:0", place, "[::1]:0", place, "127.0.0.1:0", at(echoing))
    four, six, to_echo = relay.ports()
    if has("curl"):
        for url in (f"http://127.0.0.1:{four}/file", f"http://[::1]:{six}/file"):
            run = subprocess.run(["curl", "-q", "-s", "--max-time", str(LIMIT), url], capture_output=True)
            row("curl " + url.split("/")[2].rsplit(":", 1)[0], (run.returncode, run.stdout == content), (0, True))
    if has("socat"):
        # The end of the input must reach the server, and its answer must come back after that.
        run = subprocess.run(["socat", "-t", str(LIMIT), "-", f"TCP:127.0.0.1:{to_echo}"], input=content,
                             capture_output=True, timeout=LIMIT)
        row("socat, piped", (run.returncode, run.stdout == content), (0, True))
    row("ends when nothing is open", relay.end(), 0)
    folder.cleanup()


def limits_and_counters():
    echoing = Server(echo)
    relay = Relay("--max", "2", "127.0.0.1:0", at(echoing))
    first, second = connect(relay.ports()[0]), connect(relay.ports()[0])
    for connection in (first, second):
        connection.sendall(b"hello")
        row("--max 2: within it", receive(connection, 5), b"hello")
    row("--max 2: over it", receive(connect(relay.ports()[0])), b"")
    second.close()
    row("closed by the client", until(lambda: relay.counters()["open"] == 1))
    third = connect(relay.ports()[0])
    third.sendall(b"again")
    row("--max 2: within it again", receive(third, 5), b"again")
    row("counters", relay.counters(), {"accepted": 4, "open": 2, "refused": 1, "failed": 0, "bytes to the server": 15,
                                       "to clients": 15})
    first.close()
    third.close()
    row("SIGINT", relay.end(signal.SIGINT), 0)

    closed = socket.create_server(("127.0.0.1", 0))
    gone = closed.getsockname()[1]
    closed.close()
    relay = Relay("127.0.0.1:0", f"127.0.0.1:{gone}")
    row("nobody at CONNECT", receive(connect(relay.ports()[0])), b"")
    row("nobody at CONNECT, counted", relay.counters()["failed"], 1)
    row("nobody at CONNECT, warned", f"warn: relay: cannot connect to 127.0.0.1:{gone}: " in relay.reports())
    relay.end()


def idle():
    relay = Relay("--idle", "1", "127.0.0.1:0", at(Server(echo)))
    silent, busy = connect(relay.ports()[0]), connect(relay.ports()[0])
    start = time.monotonic()
    threading.Thread(target=lambda: [busy.sendall(b"x") or time.sleep(0.3) for _ in range(8)], daemon=True).start()
    receive(silent)
    took = time.monotonic() - start
    row("--idle 1: a silent connection", 0.8 < took < 5)
    row("--idle 1: a busy one", receive(busy, 8), b"x" * 8)
    relay.end()


def drain():
    row("SIGTERM: what is open finishes", drain_with("10", lambda c: (c.sendall(b"tail"), receive(c, 4), c.close())[1]),
        (b"tail", 0, True))
    row("SIGTERM: the drain time is over", drain_with("1", receive), (b"", 1, True))
    row("SIGTERM: no drain time", drain_with("0", receive), (b"", 1, True))
    relay = Relay("--drain", "60", "127.0.0.1:0", at(Server(hang)))
    connection = connect(relay.ports()[0])
    until(lambda: relay.counters()["open"] == 1)
    relay.process.send_signal(signal.SIGTERM)
    until(lambda: refuses(relay.ports()[0]))
    row("SIGTERM, again", (relay.end(), receive(connection)), (1, b""))


def refuses(port):
    try:
        connect(port).close()
        return False
    except OSError:
        return True


def drain_with(seconds, act):
    """What `act` makes of a connection after SIGTERM, the exit status, and whether new clients were refused."""
    relay = Relay("--drain", seconds, "127.0.0.1:0", at(Server(echo)))
    port = relay.ports()[0]
    connection = connect(port)
    connection.sendall(b"head")
    receive(connection, 4)
    relay.process.send_signal(signal.SIGTERM)
    refused = until(lambda: refuses(port))
    return act(connection), relay.end(0), refused


def hostile_peers():
    relay = Relay("127.0.0.1:0", at(Server(lambda c: [c.sendall(bytes(65536)) for _ in range(10000)])),
                  "127.0.0.1:0", at(Server(reset)), "127.0.0.1:0", at(Server(echo)))
    port, to_reset, to_echo = relay.ports()
    # A reader that reads nothing: what waits for it is bounded.
    stuck = connect(port)
    time.sleep(1)
    before = relay.cpu()
    time.sleep(1)
    row("a stuck reader costs no time", relay.cpu() - before < 0.1)
    row("a stuck reader's bytes are bounded", int(re.findall(r"to clients (\d+)", all_counters(relay))[0]) < 40_000_000)
    with open(f"/proc/{relay.process.pid}/status") as status:
        row("memory, KiB, under 20000", int(re.search(r"VmRSS:\s+(\d+)", status.read())[1]) < 20000)
    stuck.close()
    # Clients that vanish in the middle, by reset and by close, before and after their bytes.
    for i in range(200):
        connection = connect((port, to_echo, to_reset)[i % 3])
        with contextlib.suppress(OSError):
            if i % 2:
                connection.sendall(b"x" * 1000)
            if i % 3 == 0:  # the one that sends by itself
                connection.recv(100)
        if i % 4 < 2:
            reset(connection)
        connection.close()
    row("200 vanished clients are forgotten", until(lambda: not re.search(r"open [1-9]", all_counters(relay))))
    before = relay.cpu()
    time.sleep(1)
    row("and cost no time", relay.cpu() - before < 0.05)
    row("ends", relay.end(), 0)


def all_counters(relay):
    relay.counters()
    return "\n".join(relay.counter_lines()[-len(relay.ports()):])


def one_gibibyte():
    block = os.urandom(1 << 20)
    expected = hashlib.sha256()
    for i in range(1024):
        expected.update(i.to_bytes(4, "big") + block[4:])

    def serve(connection):
        for i in range(1024):
            connection.sendall(i.to_bytes(4, "big") + block[4:])

    for size in ("65536", "0"):
        relay = Relay("--high-water", size, "127.0.0.1:0", at(Server(serve)))
        connection, found, start = connect(relay.ports()[0]), hashlib.sha256(), time.monotonic()
        while piece := connection.recv(1 << 18):
            found.update(piece)
        took = time.monotonic() - start
        row(f"1 GiB, --high-water {size}", found.digest() == expected.digest())
        print(f"       {1024 / took:.0f} MiB/s, the relay's processor time {relay.cpu():.2f} s")
        relay.end()


def a_thousand_at_once():
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit[1], limit[1]))
    threading.stack_size(1 << 18)
    relay = Relay("127.0.0.1:0", at(Server(echo)))
    connections, wrong = [], 0
    start = time.monotonic()
    for i in range(1000):
        connections.append(connect(relay.ports()[0]))
        connections[-1].sendall(b"%d\n" % i)
    for i, connection in enumerate(connections):
        wrong += receive(connection, len(b"%d\n" % i)) != b"%d\n" % i
    row("1,000 connections, wrong answers", wrong, 0)
    print(f"       {time.monotonic() - start:.1f} s")
    row("all open", relay.counters()["open"], 1000)
    before = relay.cpu()
    time.sleep(1)
    row("and idle", relay.cpu() - before < 0.1)
    for i, connection in enumerate(connections):
        if i % 2:
            reset(connection)
        connection.close()
    row("all gone", until(lambda: relay.counters()["open"] == 0))
    row("ends", relay.end(), 0)


for trial in ([one_gibibyte, a_thousand_at_once] if SLOW else
              [command_line, foreign_clients, limits_and_counters, idle, drain, hostile_peers]):
    trial()
if missing:
    print("left out for want of: " + " ".join(missing))
sys.exit(1 if faults else 77 if missing else 0)
