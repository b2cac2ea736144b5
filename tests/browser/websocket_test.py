#!/usr/bin/python3
"""The browser console's WebSocket and HTTP side, spoken to directly: the handshake's Origin check,
the token, frames that are refused, many lines and many tabs at once, and the paths served."""
import argparse
import http.client
import json
import pathlib
import signal
import socket as sockets
import sys
import tempfile
import time

try:
    import websocket
except ImportError:
    sys.exit(f"{sys.executable} has no websocket module: run this test with /usr/bin/python3 (Debian's python3-websocket)")

from hostproc import Checks, Host

check = Checks()
WEB = pathlib.Path(__file__).resolve().parents[2] / "host" / "app" / "web"
CSP = ("default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data:; "
       "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")


def receive(tab, timeout=5.0):
    """The next frame as a dict, "closed" once the server closed the socket, None after timeout."""
    tab.settimeout(timeout)
    try:
        opcode, data = tab.recv_data()
    except websocket.WebSocketTimeoutException:
        return None
    except (websocket.WebSocketConnectionClosedException, ConnectionError):
        return "closed"
    if opcode == websocket.ABNF.OPCODE_CLOSE:
        return "closed"
    return json.loads(data)


def until(tab, kind, timeout=5.0):
    """The next frame of type kind, skipping the others (tree and pages come whenever they like)."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        frame = receive(tab, max(0.01, deadline - time.monotonic()))
        if frame is None or frame == "closed" or frame["type"] == kind:
            return frame
    return None


def rest(tab, timeout=5.0):
    """Every frame until the server closes the socket, and whether it did."""
    frames = []
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        frame = receive(tab, max(0.01, deadline - time.monotonic()))
        if frame is None:
            break
        if frame == "closed":
            return frames, True
        frames.append(frame)
    return frames, False


def closed_with(tab, timeout=5.0):
    """The close code the server sent, skipping the frames before it; None when it sent none."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        tab.settimeout(max(0.01, deadline - time.monotonic()))
        try:
            opcode, data = tab.recv_data()
        except (websocket.WebSocketException, ConnectionError, OSError):
            return None
        if opcode == websocket.ABNF.OPCODE_CLOSE:
            return int.from_bytes(data[:2], "big")
    return None


def logged(host, text, timeout=5.0):
    """The host's log lines holding text, once there is one (the log is read by a thread of its own)."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline and not any(text in line for line in host.log):
        time.sleep(0.02)
    return [line for line in host.log if text in line]


def peer(socket):
    return "127.0.0.1:%d" % socket.sock.getsockname()[1]


def tab(host, **options):
    """A new tab: the socket and the server's hello."""
    socket = websocket.create_connection(f"ws://127.0.0.1:{host.http_port}/ws", timeout=5, **options)
    return socket, receive(socket)


def ready_tab(host):
    socket, hello = tab(host)
    assert hello and hello.get("type") == "hello", hello
    assert until(socket, "ready") == {"type": "ready"}
    return socket


def send(socket, **frame):
    socket.send(json.dumps(frame))


def ask(socket, text, id=1):
    send(socket, type="line", id=id, text=text)
    reply = until(socket, "reply")
    return isinstance(reply, dict) and (reply["replies"], reply["failed"], reply["id"] == id)


def handshake(host):
    socket, hello = tab(host)
    check("a tab is greeted, needs no token here", hello and hello["type"] == "hello" and hello["auth"] is False
          and isinstance(hello.get("version"), str), hello)
    frames = [until(socket, kind) for kind in ("ready", "tree", "pages")]
    objects = {item["path"]: item for item in (frames[1] or {}).get("objects", [])}
    check("ready, then the tree and the pages", frames[0] == {"type": "ready"} and "Station.Feeder" in objects
          and frames[2] and frames[2]["items"] and frames[2]["parameters"], frames)
    lamp, feeder = objects.get("Lamp", {}), objects.get("Station.Feeder", {})
    check("tree objects carry path, name, depth, kind and value",
          lamp == {"path": "Lamp", "name": "Lamp", "depth": 0, "kind": "step", "value": "off"}
          and feeder.get("depth") == 1 and feeder.get("name") == "Feeder", [lamp, feeder])
    socket.close()

    for origin in ("http://evil.example", f"http://127.0.0.1:{host.http_port + 1}", "null"):
        try:
            socket, hello = tab(host, origin=origin)
            socket.close()
            refused = None
        except websocket.WebSocketBadStatusException as error:
            refused = error.status_code
        check(f"the handshake refuses the Origin {origin}", refused and 400 <= refused < 500, refused)

    # A name made to point at 127.0.0.1 (DNS rebinding) matches its own Origin, and is still refused.
    def named(name):
        url = f"ws://127.0.0.1:{host.http_port}/ws"
        socket = websocket.create_connection(url, timeout=5, host=name, origin="http://" + name)
        return socket, receive(socket)

    try:
        socket, hello = named(f"rebound.example:{host.http_port}")
        socket.close()
        refused = None
    except websocket.WebSocketBadStatusException as error:
        refused = error.status_code
    check("the handshake refuses a Host that is a name other than localhost", refused == 403, refused)
    socket, hello = named(f"localhost:{host.http_port}")
    check("and takes localhost", hello and hello.get("type") == "hello", hello)
    socket.close()
    deadline = time.monotonic() + 2  # the host's log is read by a thread of its own
    while time.monotonic() < deadline and not any("refused a console socket" in line for line in host.log):
        time.sleep(0.01)
    logged = [line for line in host.log if "refused a console socket" in line]
    check("refusals are logged at most once a second", 1 <= len(logged) <= 2, logged)


def replies(host):
    socket = ready_tab(host)
    check("a query's reply", ask(socket, "Lamp?", 7) == (["0"], [False], True))
    check("a failed line's reply is marked failed", ask(socket, "Nobody?", 8) == (["?"], [True], True))
    check("an assignment has no reply", ask(socket, "Var2=Hello", 9) == ([], [], True))
    check("a reply of several lines is one reply", ask(socket, "Station.ResultsView?")
          == (["Length=12.25\nWidth=3.5"], [False], True))

    other = ready_tab(host)
    ask(socket, "Lamp=1")
    frame = until(other, "values", 3)
    # (The file collection turns idle by itself a while after the start: it may come along.)
    changed = frame and [item for item in frame["objects"] if item["path"] != "Files"]
    check("another tab gets the value that changed, and only that", changed == [{"path": "Lamp", "value": "on"}], frame)
    ask(socket, "Lamp=0")

    send(socket, type="control", item=2, value=0)
    style = None
    deadline = time.monotonic() + 3
    while (style or {}).get("value") != 0 and time.monotonic() < deadline:
        pages = until(socket, "pages", deadline - time.monotonic())
        style = pages and next(item for item in pages["items"] if item["id"] == 2)
    check("a control frame sets the property table, and the pages say so", style and style["value"] == 0, style)
    check("and the session answers by it", ask(socket, "?") == (["Var1=100,Var2=Hello"], [False], True))
    send(socket, type="control", item=2, value=1)

    send(socket, type="parameter", index=0, value="not a number")
    error = until(socket, "error")
    check("a parameter value that does not convert is refused", error and error.get("text"), error)
    check("and the tab goes on", ask(socket, "Var1?") == (["Var1=100"], [False], True))
    send(socket, type="parameter", index=18446744073709551615, value="1")
    error = until(socket, "error")
    check("an index beyond 64 bits is named as sent", error and error.get("text") == "no parameter 18446744073709551615",
          error)
    send(socket, type="parameter", index=0, value="42")
    check("a parameter value that converts is set", ask(socket, "Var1?") == (["Var1=42"], [False], True))
    other.close()
    socket.close()


def refusals(host):
    socket, other = ready_tab(host), ready_tab(host)
    socket.sock.sendall(b"\xf3\x80\x00\x00\x00\x00")  # reserved bits and a reserved opcode: not a WebSocket frame
    frames, closed = rest(socket)
    check("a malformed frame closes its socket", closed, frames)
    check("another tab keeps working", ask(other, "Lamp?", 5) == (["0"], [False], True))

    socket = ready_tab(host)
    socket.send("Lamp=1")
    frames, closed = rest(socket)
    check("a frame that is not JSON is refused and closes its socket",
          closed and [frame["type"] for frame in frames if frame["type"] == "error"] == ["error"], frames)

    socket = ready_tab(host)
    send(socket, type="line", id=3, text="Break")
    frames, closed = rest(socket)
    reply = next((frame for frame in frames if frame["type"] == "reply"), None)
    check("Break ends the session and closes the socket",
          closed and reply and reply["id"] == 3 and reply["ended"] is True, frames)
    answer = ask(other, "Lamp?", 6)
    check("the other tab's session goes on", answer == (["0"], [False], True), answer)
    other.close()


def volume(host):
    socket = ready_tab(host)
    for k in range(500):
        send(socket, type="line", id=2 * k, text=f"Var1={k}")
        send(socket, type="line", id=2 * k + 1, text="Var1?")
    got = []
    deadline = time.monotonic() + 60
    while len(got) < 1000 and time.monotonic() < deadline:
        frame = until(socket, "reply", deadline - time.monotonic())
        if not isinstance(frame, dict):
            break
        got.append(frame)
    ids = [frame["id"] for frame in got]
    check("a thousand lines get a thousand replies in order", ids == list(range(1000)), f"{len(ids)} replies")
    wrong = [frame for frame in got if frame["id"] % 2 and frame["replies"] != [f"Var1={frame['id'] // 2}"]]
    check("each reply answers its own line", len(got) == 1000 and not wrong, wrong[:3])
    send(socket, type="line", id=1000, text="Var1=100")
    until(socket, "reply")
    socket.close()

    queries = ["Lamp?", "Valve?", "Station.ResultsView?", "Station.ResultsView.Length?", "Nobody?",
               "Tabs.Second.Value?", "Var2?", "Station.ResultsView.Width?", "?", "Tabs.First.Value?"]
    reference = ready_tab(host)
    expected = [ask(reference, query)[:2] for query in queries]
    reference.close()
    tabs = [ready_tab(host) for _ in range(10)]
    for round in range(10):
        for number, socket in enumerate(tabs):
            send(socket, type="line", id=number * 100 + round, text=queries[(number + round) % 10])
    wrong = []
    for number, socket in enumerate(tabs):
        for round in range(10):
            frame = until(socket, "reply")
            want = expected[(number + round) % 10]
            if not isinstance(frame, dict) or frame["id"] != number * 100 + round \
                    or (frame["replies"], frame["failed"]) != want:
                wrong.append((number, round, frame, want))
        socket.close()
    check("ten tabs at once each get their own replies", not wrong, wrong[:3])


def token(binary):
    with tempfile.NamedTemporaryFile("w", suffix=".token") as file:
        file.write("open sesame\n")
        file.flush()
        host = Host(binary, "--auth-file", file.name)
        try:
            socket, hello = tab(host)
            check("with --auth-file the hello asks for a token", hello and hello.get("auth") is True, hello)
            send(socket, type="auth", token="open sesam")
            frames, closed = rest(socket)
            check("a wrong token gets an error and the socket closes, and nothing else",
                  closed and [frame["type"] for frame in frames] == ["error"], frames)
            socket, hello = tab(host)
            send(socket, type="auth", token="open sesame\nLamp=1")
            frames, closed = rest(socket)
            check("a token with a line end in it is refused", closed and [frame["type"] for frame in frames] == ["error"],
                  frames)
            socket, hello = tab(host)
            send(socket, type="line", id=1, text="Lamp?")
            frames, closed = rest(socket, 2)
            check("a line before the token is not answered",
                  not any(frame["type"] in ("reply", "tree", "pages") for frame in frames), frames)
            socket, hello = tab(host)
            send(socket, type="auth", token="open sesame")
            check("the right token gets ready", until(socket, "ready") == {"type": "ready"})
            check("and the session", ask(socket, "Lamp?") == (["0"], [False], True))
            socket.close()
            deadline = time.monotonic() + 5
            while time.monotonic() < deadline and sum("console tab" in line and "disconnected" in line for line in host.log) < 4:
                time.sleep(0.05)
            ended = [line for line in host.log if "console tab" in line and "disconnected" in line]
            check("every tab's end is logged, a refusal with its reason, a wrong token as a warning",
                  len(ended) == 4 and sum("warning: console tab" in line and "refused: authentication failed" in line
                                          for line in ended) == 2, ended)
        finally:
            host.stop()


def limits(binary):
    """A frame takes any line within --max-line, however much escaping makes of it; a longer line
    gets the error frame; a frame longer than any line needs closes the tab, and the log says why."""
    host = Host(binary)
    try:
        socket = ready_tab(host)
        answer = ask(socket, "Var2=" + '"' * 50000)
        check("a line within --max-line that escaping doubles is answered", answer and answer[2], answer)
        socket.close()
    finally:
        host.stop()
    host = Host(binary, "--max-line", "1000000")
    try:
        socket = ready_tab(host)
        answer = ask(socket, "Var2=" + "x" * 999995)
        check("with --max-line 1000000 a line of 1,000,000 bytes is answered", answer == ([], [], True), answer)
        send(socket, type="line", id=2, text="Var2=" + "x" * 999996)
        frames, closed = rest(socket)
        check("a line over --max-line gets the error frame, and the tab closes",
              closed and [frame.get("text") for frame in frames if frame["type"] == "error"] == ["line too long"], frames)
    finally:
        host.stop()
    host = Host(binary, "--max-output", "1024")
    try:
        socket = ready_tab(host)
        tree = until(socket, "tree")
        check("a first tree larger than --max-output is sent, and the tab goes on",
              len(json.dumps(tree)) > 1024 and ask(socket, "Lamp?") == (["0"], [False], True), tree)
        socket.close()
    finally:
        host.stop()
    host = Host(binary, "--max-line", "1000")
    try:
        socket = ready_tab(host)
        name = peer(socket)
        send(socket, type="line", id=1, text="x" * 20000)
        # The host stops reading at the frame's header: the rest of it resets the connection, and
        # its close frame (1009) may not arrive. The log says why.
        ended = logged(host, "console tab %s disconnected" % name)
        check("a frame longer than any line needs closes the tab, and the log says why", ended and ended[0].rstrip()
              .endswith("refused: a frame of more than 10096 bytes (--max-line 1000)"), ended)
    finally:
        host.stop()


def timeouts(binary):
    """--idle-timeout closes a silent tab and one that never gives its token; --stall-timeout and
    --max-output drop a tab that reads none of its frames."""
    with tempfile.NamedTemporaryFile("w", suffix=".token") as file:
        file.write("open sesame\n")
        file.flush()
        host = Host(binary, "--auth-file", file.name, "--idle-timeout", "1")
        try:
            tabs = [tab(host)[0] for _ in range(3)]
            waiting, silent, talking = tabs
            for socket in (silent, talking):
                send(socket, type="auth", token="open sesame")
                until(socket, "ready")
            names = [peer(socket) for socket in tabs]
            answered = all(ask(talking, "Lamp?") == (["0"], [False], True) for _ in range(12) if not time.sleep(0.25))
            check("a tab that keeps talking stays, past --idle-timeout", answered)
            error = until(waiting, "error")
            check("a tab that gives no token is told so", error and error.get("text") == "no token within 1 s", error)
            check("the silent tab is closed (1000)", closed_with(silent) == 1000)
            ended = [logged(host, "console tab %s disconnected" % name, 1) for name in names]
            check("and closed, as is the silent one, each logged with its reason",
                  ended[0] and ended[0][0].rstrip().endswith("refused: no token within 1 s")
                  and ended[1] and ended[1][0].rstrip().endswith("idle timeout") and not ended[2], ended)
        finally:
            host.stop()
    for options, reason in ((("--stall-timeout", "1"), "dropped: it does not read its answers"),
                            (("--max-output", "1000000"), "dropped: more than 1000000 bytes of frames unread (--max-output)")):
        host = Host(binary, *options)
        try:
            socket = websocket.create_connection(f"ws://127.0.0.1:{host.http_port}/ws", timeout=5,
                                                 sockopt=((sockets.SOL_SOCKET, sockets.SO_RCVBUF, 4096),))
            name = peer(socket)
            try:
                send(socket, type="line", id=0, text="Var2=" + "x" * 60000)
                for id in range(1, 150):  # 9 MB of answers, never read: more than the sockets hold
                    send(socket, type="line", id=id, text="Var2?")
            except (websocket.WebSocketException, ConnectionError):
                pass  # dropped already
            ended = logged(host, "console tab %s disconnected" % name, 10)
            check(f"a tab that reads nothing is dropped with {options[0]}",
                  ended and ended[0].rstrip().endswith(reason), ended)
            socket.close()
        finally:
            host.stop()
    # What it is sent is small and the kernel takes it all: only the unanswered pings tell.
    host = Host(binary, "--stall-timeout", "1")
    try:
        silent = websocket.create_connection(f"ws://127.0.0.1:{host.http_port}/ws", timeout=5)
        name = peer(silent)
        talker = ready_tab(host)
        for round in range(40):
            ask(talker, "Lamp=%d" % (round % 2))
            if logged(host, "console tab %s disconnected" % name, 0.1):
                break
        ended = logged(host, "console tab %s disconnected" % name, 1)
        check("a tab that reads none of its small frames is dropped all the same",
              ended and ended[0].rstrip().endswith("dropped: it does not read its answers"), ended)
        silent.close()
        talker.close()
    finally:
        host.stop()


def state(binary):
    """What a tab sets is kept by --state: the next host starts with it. SIGTERM with the tab open
    tells it the host goes away, and its end is logged."""
    with tempfile.TemporaryDirectory() as folder:
        file = str(pathlib.Path(folder) / "state.wks")
        host = Host(binary, "--state", file)
        socket = ready_tab(host)
        name = peer(socket)
        send(socket, type="control", item=2, value=0)
        send(socket, type="parameter", index=1, value="kept")
        check("a tab's settings apply at once", ask(socket, "?") == (["Var1=100,Var2=kept"], [False], True))
        host.process.terminate()
        check("a tab open when the host stops gets going away (1001)", closed_with(socket) == 1001)
        check("the host stops cleanly", host.stop() == 0)
        ended = logged(host, "console tab %s disconnected" % name, 1)
        check("the tab's end is logged as the service's stop",
              len(ended) == 1 and ended[0].rstrip().endswith("the service stops"), ended)
        host = Host(binary, "--state", file)
        try:
            socket = ready_tab(host)
            check("and are there after a restart", ask(socket, "?") == (["Var1=100,Var2=kept"], [False], True))
            socket.close()
        finally:
            host.stop()


def others(binary):
    """A change made over TCP reaches a tab that was open, also when another tab came in the
    meantime (the newcomer gets the new state at once; the others must not be forgotten)."""
    host = Host(binary, tcp=True)
    try:
        first = ready_tab(host)
        rest(first, 0.5)
        with sockets.create_connection(("127.0.0.1", host.tcp_port), timeout=5) as client:
            client.sendall(b"Var2=elsewhere\n")
            client.recv(64)
        second = ready_tab(host)
        seen, deadline = False, time.monotonic() + 2
        while not seen and time.monotonic() < deadline:
            frame = until(first, "pages", deadline - time.monotonic())
            seen = isinstance(frame, dict) and "elsewhere" in json.dumps(frame)
        check("a change made elsewhere reaches a tab that was open when another came", seen)
        first.close()
        second.close()
    finally:
        host.stop()


def paths(host):
    def get(path):
        connection = http.client.HTTPConnection("127.0.0.1", host.http_port, timeout=5)
        connection.request("GET", path)
        response = connection.getresponse()
        result = response.status, response.getheader("Content-Type") or "", response.getheader(
            "Content-Security-Policy"), response.read()
        connection.close()
        return result

    for path, name, kind in (("/", "index.html", "text/html"), ("/app.css", "app.css", "text/css"),
                             ("/app.js", "app.js", "javascript"), ("/app.js?v=2", "app.js", "javascript")):
        status, content_type, policy, body = get(path)
        check(f"{path} is served as {name}", status == 200 and kind in content_type
              and body == (WEB / name).read_bytes(), (status, content_type, len(body)))
        check(f"{path} carries the content security policy", policy == CSP, policy)
    for path in ("/nope", "/index.htm", "/app.js.map", "/app.js/", "/web/app.js", "/../README.md", "/%2e%2e/README.md"):
        status = get(path)[0]
        check(f"{path} is not found", status == 404, status)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--host-binary", required=True)
    args = parser.parse_args()
    signal.signal(signal.SIGALRM, lambda *_: (_ for _ in ()).throw(TimeoutError("the test took too long")))
    signal.alarm(150)
    host = Host(args.host_binary)
    try:
        for part in (handshake, replies, refusals, volume, paths):
            part(host)
        token(args.host_binary)
        others(args.host_binary)
        state(args.host_binary)
        limits(args.host_binary)
        timeouts(args.host_binary)
    except Exception as error:
        check("the test ran to its end", False, repr(error))
    finally:
        host.finish(check)
    return check.summary()


if __name__ == "__main__":
    sys.exit(main())
