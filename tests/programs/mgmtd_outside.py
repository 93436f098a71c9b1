"""What the tests of mgmtd from outside share: a daemon on a copy of the sample, and rows of checks.

Their first two arguments are the program and the sample configuration.
"""
import base64
import contextlib
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

MGMTD, SAMPLE = sys.argv[1:3]
failures = []
USER, PASSWORD = "admin", "p\u00e4ss word:1"
AUTH = "Authorization: Basic " + base64.b64encode(f"{USER}:{PASSWORD}".encode()).decode()


def check(name, good, detail=""):
    print(("ok    " if good else "FAIL  ") + name + ("" if good else f": {detail!r:.600}"), flush=True)
    if not good:
        failures.append(name)


def eventually(done, seconds=20):
    """Whether it is so within some seconds."""
    until = time.monotonic() + seconds
    while not (good := done()) and time.monotonic() < until:
        time.sleep(0.05)
    return good


def set_password(path, user, password):
    subprocess.run([MGMTD, "-c", path, "--set-password", user], input=password.encode() + b"\n", check=True, timeout=60)


class Daemon:
    """mgmtd on a copy of the sample, on ports that the system chose."""

    def __init__(self, folder, *options, fresh=True):
        self.file = os.path.join(folder, "gateway.conf")
        if fresh:
            shutil.copy(SAMPLE, self.file)
            os.chmod(self.file, 0o600)
            set_password(self.file, USER, PASSWORD)
        self.start(*options)

    def start(self, *options):
        self.process = subprocess.Popen(
            [MGMTD, "-c", self.file, "--http", "127.0.0.1:0", "--line", "127.0.0.1:0", *options],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        assert self.process.stdout.readline() == "ready\n", "mgmtd did not start"
        self.ports = []  # of each --http
        while url := re.match(r"http://.*:(\d+)/", line := self.process.stdout.readline()):
            self.ports.append(int(url[1]))
        self.port = self.ports[0]
        self.line_port = int(line.rsplit(":", 1)[1])
        self.url = f"http://127.0.0.1:{self.port}"

    def stop(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        return self.process.wait(20)

    def curl(self, *words, user=f"{USER}:{PASSWORD}", scheme="--basic"):
        words = [*words[:-1], self.url + words[-1]]
        result = subprocess.run(["curl", "-s", "-S", "-g", "--max-time", "20", "-w", "\n%{http_code}", scheme, "-u", user,
                                 *words], capture_output=True, timeout=60)
        body, _, status = result.stdout.decode("utf-8", "replace").rpartition("\n")
        return int(status or 0), body

    def raw(self, data, wait=True, port=None):
        """Everything the daemon answers to these bytes, up to its close."""
        with socket.create_connection(("127.0.0.1", port or self.port), timeout=15) as s:
            with contextlib.suppress(OSError):
                s.sendall(data)
                if wait:
                    s.shutdown(socket.SHUT_WR)
            answer = b""
            with contextlib.suppress(OSError):
                while piece := s.recv(65536):
                    answer += piece
            return answer.decode("latin-1")

    def request(self, head, *headers, body=b"", host="localhost"):
        lines = [head, f"Host: {host}", *headers]
        return self.raw("\r\n".join(lines).encode("latin-1") + b"\r\n\r\n" + body)

    def cpu_seconds(self):
        fields = open(f"/proc/{self.process.pid}/stat").read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def alive(self):
        return self.process.poll() is None and self.curl("/conf/wan/0/mode?format=value") == (200, "pppoe")


@contextlib.contextmanager
def daemon(*options):
    with tempfile.TemporaryDirectory() as folder:
        d = Daemon(folder, *options)
        try:
            yield d
        finally:
            if d.process.poll() is None:
                d.process.kill()
                d.process.wait()
            d.process.stdout.close()


def status(answer):
    return [int(n) for n in re.findall(r"^HTTP/1\.1 (\d+) ", answer, re.M)]
