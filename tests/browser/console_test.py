#!/usr/bin/python3
"""The browser console driven by headless Chromium: wks-host --http serves the page, the test uses
it as a person would (the console line, the settings, the parameters, the keyboard) and checks
what the page shows, including a change made by a plain TCP client at the same time."""
import argparse
import os
import signal
import socket
import sys
import tempfile
import time

try:
    from selenium import webdriver
    from selenium.common.exceptions import WebDriverException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import Select
except ImportError:
    sys.exit(f"{sys.executable} has no selenium: run this test with /usr/bin/python3 "
             "(Debian's python3-selenium, chromium and chromium-driver)")

from hostproc import Checks, Host

check = Checks()


def wait(condition, timeout=5.0):
    """condition()'s first true value within timeout, else its last value. The page rebuilds parts
    of itself on every frame, so an element found a moment ago may be gone: that is tried again."""
    deadline = time.monotonic() + timeout
    while True:
        try:
            value = condition()
        except WebDriverException:
            value = None
        if value or time.monotonic() > deadline:
            return value
        time.sleep(0.05)


def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--window-size=1280,900"):
        options.add_argument(argument)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_page_load_timeout(15)
    return driver


class Page:
    def __init__(self, driver):
        self.driver = driver

    def find(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css)

    def all(self, css):
        return self.driver.find_elements(By.CSS_SELECTOR, css)

    def state(self):
        status = self.all("#status")
        return status[0].get_attribute("data-state") if status else "no #status on the page"

    def value(self, path):
        return self.find(f'#tree [data-path="{path}"] .value').text

    def send(self, line):
        """Types line into the console and returns its replies as [(text, failed)] once they came."""
        before = len(self.all("#console-log .entry"))
        self.find("#console-input").send_keys(line, Keys.ENTER)
        entry = wait(lambda: len(self.all("#console-log .entry")) > before
                     and self.all("#console-log .entry")[before])
        if not entry or not wait(lambda: "pending" not in entry.get_attribute("class")):
            return None
        return [(reply.text, "failed" in reply.get_attribute("class").split())
                for reply in entry.find_elements(By.CSS_SELECTOR, ".reply")]


def console(page, host):
    driver = page.driver
    driver.get(host.url)
    check("the page connects", wait(lambda: page.state() == "connected"), page.state())

    paths = wait(lambda: [row.get_attribute("data-path") for row in page.all("#tree [data-path]")]) or []
    expected = ["Lamp", "Valve", "Station", "Station.Feeder", "Station.ResultsView.Length", "Toolbar.Start",
                "Tabs.Second.Value", "UI", "Managers", "Links", "KQBible", "Files", "Oven"]
    check("the tree lists the sample workspace's objects", all(path in paths for path in expected), paths)
    check("the tree keeps the workspace's order", paths.index("Lamp") < paths.index("Station")
          < paths.index("Station.Feeder") < paths.index("Toolbar"), paths)
    kinds = {path: page.find(f'#tree [data-path="{path}"]').get_attribute("data-kind")
             for path in ("Lamp", "Valve", "Station", "Station.ResultsView.Length", "Tabs", "Files")}
    check("the tree shows each object's kind", kinds == {"Lamp": "step", "Valve": "io", "Station": "container",
          "Station.ResultsView.Length": "result", "Tabs": "tabs", "Files": "files"}, kinds)
    values = [page.value(path) for path in ("Lamp", "Valve", "Station.ResultsView.Length", "Tabs")]
    check("the tree shows the objects' values", values == ["off", "1", "12.25", "First"], values)
    x = [page.find(f'#tree [data-path="{path}"] .name').location["x"]
         for path in ("Station", "Station.Feeder", "Station.ResultsView.Length", "Valve")]
    check("children are indented under their parents", x[0] < x[1] < x[2] and x[3] == x[0], x)

    replies = page.send("Lamp=1")
    check("an assignment from the console gets no reply", replies == [], replies)
    check("the tree follows the console (Lamp on)", wait(lambda: page.value("Lamp") == "on"), page.value("Lamp"))
    replies = page.send("Lamp?")
    check("a query's reply is shown under its line", replies == [("1", False)], replies)
    replies = page.send("Nobody?")
    check("a failed line is marked failed", replies == [("?", True)], replies)
    last = page.all("#console-log .entry")[-1].text
    check("a failure is said in words, not only in colour", "failed" in last.lower(), last)
    replies = page.send("?")
    check("a reply of several lines keeps its lines", replies == [("Var1=100\nVar2=Hello", False)], replies)

    check("a 0..1 range is a check box", page.find('#settings [data-item="1"]').get_attribute("type") == "checkbox")
    style = Select(page.find('#settings [data-item="2"]'))
    texts = [option.text for option in style.options]
    check("an enumeration is a choice of its texts", texts == ["Comma separated", "INI lines"]
          and style.first_selected_option.text == "INI lines", texts)
    style.select_by_visible_text("Comma separated")
    replies = page.send("?")
    check("the chosen Return Style answers comma-separated", replies == [("Var1=100,Var2=Hello", False)], replies)

    var1 = page.find('#parameters [data-parameter="0"]')
    check("the parameters are listed with their values", var1.get_attribute("value") == "100"
          and page.find('#parameters [data-parameter="1"]').get_attribute("value") == "Hello")
    var1.send_keys(Keys.CONTROL, "a")
    var1.send_keys("42", Keys.ENTER)
    replies = page.send("Var1?")
    check("a parameter set on the page is what the session reads", replies == [("Var1=42", False)], replies)
    var1 = page.find('#parameters [data-parameter="0"]')
    var1.send_keys(Keys.CONTROL, "a")
    var1.send_keys("many", Keys.ENTER)
    error = wait(lambda: [notice.text for notice in page.all("#console-log .notice.error")])
    check("a value that does not convert is refused, and said so",
          len(error) == 1 and var1.get_attribute("aria-invalid") == "true", error)
    page.send("Var2=World")
    check("the parameters follow the console",
          wait(lambda: page.find('#parameters [data-parameter="1"]').get_attribute("value") == "World"))

    with socket.create_connection(("127.0.0.1", host.tcp_port), timeout=5) as client:
        client.sendall(b"Lamp=0\n")
        client.recv(64)
    check("the tree follows a TCP client (Lamp off)", wait(lambda: page.value("Lamp") == "off"),
          page.value("Lamp"))

    line = page.find("#console-input")
    line.send_keys(Keys.ARROW_UP)
    recalled = [line.get_attribute("value")]
    line.send_keys(Keys.ARROW_UP)
    recalled.append(line.get_attribute("value"))
    line.send_keys(Keys.ARROW_DOWN, Keys.ARROW_DOWN)
    recalled.append(line.get_attribute("value"))
    check("ArrowUp recalls the lines sent, ArrowDown comes back",
          recalled == ["Var2=World", "Var1?", ""], recalled)

    replies = page.send("Break")
    ended = wait(lambda: "Session ended" in page.find("#console-log").text)
    check("Break ends the session, and the page says so", ended and replies == [], replies)
    check("the console line is disabled once the session ended",
          wait(lambda: not page.find("#console-input").is_enabled()))
    button = page.find("#reconnect")
    check("a reconnect button is offered", wait(button.is_displayed))
    button.click()
    check("reconnecting gives a new session", wait(lambda: page.state() == "connected")
          and page.send("Lamp?") == [("0", False)])


def layout(page):
    """Three panels side by side at 1280 px; one column at a phone's width."""
    def lefts():
        return [section.location["x"] for section in page.all("main > section")]
    wide = lefts()
    check("three panels side by side at 1280 px", len(wide) == 3 and wide[0] < wide[1] < wide[2], wide)
    page.driver.set_window_size(480, 900)
    narrow = wait(lambda: len(set(lefts())) == 1 and lefts())
    check("one column at a phone's width", narrow, lefts())
    page.driver.set_window_size(1280, 900)


def token(page, binary):
    """A host asking for a token: the page asks for it, a wrong one is refused, a right one admits."""
    with tempfile.NamedTemporaryFile("w", suffix=".token") as file:
        file.write("open sesame\n")
        file.flush()
        host = Host(binary, "--auth-file", file.name)
        try:
            page.driver.get(host.url)
            form = page.find("#auth")
            check("the page asks for the token", wait(form.is_displayed) and page.state() == "auth", page.state())
            page.find("#token").send_keys("wrong", Keys.ENTER)
            check("a wrong token is refused", wait(lambda: page.state() == "closed")
                  and page.all("#console-log .notice.error"), page.state())
            page.find("#reconnect").click()
            wait(form.is_displayed)
            page.find("#token").send_keys("open sesame", Keys.ENTER)
            check("the right token admits", wait(lambda: page.state() == "connected")
                  and wait(lambda: page.all('#tree [data-path="Lamp"]')))
            stored = page.driver.execute_script(
                "return [location.href, JSON.stringify(localStorage), JSON.stringify(sessionStorage), document.cookie]")
            check("the token is kept nowhere but in the page", not any("sesame" in text for text in stored), stored)
        finally:
            host.stop()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--host-binary", required=True)
    parser.add_argument("--screenshot", help="save a picture of the page here (and on a failure)")
    args = parser.parse_args()
    signal.signal(signal.SIGALRM, lambda *_: (_ for _ in ()).throw(TimeoutError("the test took too long")))
    signal.alarm(150)

    host = Host(args.host_binary, tcp=True)
    driver = None
    try:
        driver = browser()
        page = Page(driver)
        console(page, host)
        layout(page)
        if args.screenshot:
            os.makedirs(os.path.dirname(os.path.abspath(args.screenshot)), exist_ok=True)
            driver.save_screenshot(args.screenshot)
        token(page, args.host_binary)
    except Exception as error:
        check("the test ran to its end", False, repr(error))
    finally:
        if check.failed and driver and args.screenshot:
            driver.save_screenshot(args.screenshot)
        if driver:
            driver.quit()
        host.finish(check)
    return check.summary()


if __name__ == "__main__":
    sys.exit(main())
