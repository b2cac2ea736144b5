"""Starts wks-host with its browser console on a free loopback port, for the browser tests."""
import queue
import re
import subprocess
import sys
import threading
import time


class Host:
    """wks-host serving the sample workspace: --http on a port of its choice, and with tcp=True a
    --listen port too. Standard error is read all along, so the host never blocks on it."""

    def __init__(self, binary, *options, tcp=False, timeout=15):
        command = [binary, "--no-prompt", "--http", "127.0.0.1:0", *options]
        if tcp:
            command += ["--listen", "127.0.0.1:0"]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, text=True)
        self.log = []
        lines = queue.Queue()
        threading.Thread(target=self._read, args=(lines,), daemon=True).start()
        self.http_port = self.tcp_port = None
        listening = []
        deadline = time.monotonic() + timeout
        while self.http_port is None or (tcp and self.tcp_port is None):
            try:
                line = lines.get(timeout=max(0.01, deadline - time.monotonic()))
            except queue.Empty:
                line = None
            if line is None:
                self.stop()
                raise RuntimeError("wks-host did not say where it serves:\n" + "".join(self.log))
            found = re.search(r"http console on http://127\.0\.0\.1:(\d+)/", line)
            if found:
                self.http_port = int(found.group(1))
            found = re.search(r"listening on 127\.0\.0\.1:(\d+)", line)
            if found:
                listening.append(int(found.group(1)))
            # The console's own port may be logged as listening too: the TCP port is another one.
            self.tcp_port = next((port for port in listening if port != self.http_port), None)
        self.url = f"http://127.0.0.1:{self.http_port}/"

    def _read(self, lines):
        for line in self.process.stderr:
            self.log.append(line)
            lines.put(line)
        lines.put(None)

    def stop(self):
        """Stops the host as a service manager does (SIGTERM) and returns its exit status: 0 when it
        closed every tab and ended cleanly (in a sanitized build, also without a finding)."""
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        return self.process.returncode

    def finish(self, check):
        """Stops the host and checks that it ended cleanly; when any check failed, shows the end of
        what it logged."""
        check("wks-host stops cleanly on SIGTERM", self.stop() == 0, f"status {self.process.returncode}")
        if check.failed:
            sys.stdout.write("wks-host said:\n" + "".join(self.log[-20:]))


class Checks:
    """Prints one line per check and the closing count."""

    def __init__(self):
        self.passed = self.failed = 0

    def __call__(self, name, ok, detail=""):
        if ok:
            self.passed += 1
            print(f"ok   {name}", flush=True)
        else:
            self.failed += 1
            print(f"FAIL {name}" + (f": {detail}" if detail else ""), flush=True)
        return ok

    def summary(self):
        print(f"{self.passed} passed, {self.failed} failed", flush=True)
        return 1 if self.failed else 0
