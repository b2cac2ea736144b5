#!/usr/bin/python3
"""An instrument-control library nobody here wrote, driving wks-host over a raw socket.

Starts wks-host (the path given) on an ephemeral loopback port with the raw framing, which such
libraries expect (a query is answered by one line, a setting by nothing), and talks to it through
pyvisa with the pure-Python backend, as a test script for an instrument would.
"""
import re
import subprocess
import sys

import pyvisa


def main(program):
    server = subprocess.Popen(
        [program, "--no-prompt", "--listen", "127.0.0.1:0", "--framing", "raw", "--return-style", "csv"],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        port = None
        for line in server.stderr:
            found = re.search(r"listening on 127\.0\.0\.1:(\d+)", line)
            if found:
                port = int(found.group(1))
                break
        assert port, "wks-host did not say where it listens"
        manager = pyvisa.ResourceManager("@py")
        instrument = manager.open_resource(f"TCPIP0::127.0.0.1::{port}::SOCKET",
                                           read_termination="\n", write_termination="\n", timeout=5000)
        failures = []
        checks = [("Lamp?", "0"), ("Station.ResultsView?", "Length=12.25,Width=3.5"), ("Nobody?", "?")]
        for query, expected in checks:
            answer = instrument.query(query)
            if answer != expected:
                failures.append(f"{query!r}: {answer!r}, expected {expected!r}")
        instrument.write("Lamp=1")
        instrument.write("Var1=42")
        checks = [("Lamp?", "1"), ("Var1?", "Var1=42")]
        for query, expected in checks:
            answer = instrument.query(query)
            if answer != expected:
                failures.append(f"{query!r}: {answer!r}, expected {expected!r}")
        instrument.close()
        manager.close()
        for failure in failures:
            print(failure)
        return 1 if failures else 0
    finally:
        server.terminate()
        server.wait(timeout=10)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
