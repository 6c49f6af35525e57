#!/usr/bin/python3
"""The control page of a playing qva in a real headless browser: signs in with the token, types a name,
presses the trigger, and checks through the API and the snapshots that the composition changed.

Usage: control_page_test.py QVA EXAMPLES_FOLDER. Exits 77 (skipped) without chromium, chromedriver or
selenium."""

import json
import re
import shutil
import subprocess
import sys
import threading
import time
import urllib.request

SKIPPED = 77
TOKEN = "stage-door"


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    skip("python3-selenium is not installed")


def wait_until(test, seconds=15, what="the condition"):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        result = test()
        if result:
            return result
        time.sleep(0.05)
    raise AssertionError(f"timed out waiting for {what}")


class PlayingQva:
    """qva play with its control server on a port it picks; stopped when the test ends."""

    def __init__(self, qva, examples):
        self.process = subprocess.Popen(
            [qva, "play", f"{examples}/lower-third.qvc", "--size", "480x270", "--control", "0",
             "--control-token", TOKEN],
            stderr=subprocess.PIPE, text=True)
        self.errors = []
        self.port = None
        found = threading.Event()

        def read():
            for line in self.process.stderr:
                self.errors.append(line)
                match = re.search(r"control page at http://[^:]+:(\d+)/", line)
                if match:
                    self.port = int(match.group(1))
                    found.set()
            found.set()

        threading.Thread(target=read, daemon=True).start()
        if not found.wait(60) or self.port is None:
            self.stop()
            skip("qva play did not start (no OpenGL?): " + "".join(self.errors))

    def request(self, path, method="GET", body=None):
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.port}{path}", method=method,
            data=None if body is None else json.dumps(body).encode(),
            headers={"Authorization": f"Bearer {TOKEN}", "Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=10) as response:
            return response.read()

    def state(self):
        return json.loads(self.request("/api/state"))

    def snapshot(self):
        # Thumbnails are made a few times a second at most: wait for a fresh one.
        time.sleep(0.3)
        return self.request("/api/snapshot.png")

    def stop(self):
        self.process.terminate()
        self.process.wait(30)


def named(entries, name):
    return next(entry["value"] for entry in entries if entry["name"] == name)


def main():
    qva, examples = sys.argv[1], sys.argv[2]
    chromium = shutil.which("chromium")
    chromedriver = shutil.which("chromedriver")
    if not chromium or not chromedriver:
        skip("chromium and chromedriver are not installed")
    playing = PlayingQva(qva, examples)
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    browser = webdriver.Chrome(service=Service(chromedriver), options=options)
    try:
        # The address with the token signs the browser in; the page's requests carry the cookie after.
        browser.get(f"http://127.0.0.1:{playing.port}/?token={TOKEN}")
        wait = WebDriverWait(browser, 20)
        name_field = wait.until(lambda page: page.find_element(By.CSS_SELECTOR, 'input[data-input="name"]'))
        wait.until(lambda page: page.find_element(By.ID, "connection").text == "live")
        wait.until(lambda page: page.execute_script(
            "return document.getElementById('preview').naturalWidth") > 0)
        pacing = browser.execute_script(
            "return [...document.querySelectorAll('#pacing dt')].map((term) => term.textContent)")
        assert pacing[:2] == ["Shown", "Late"], pacing

        # Held at its stop frame, the output is still: two snapshots agree.
        wait_until(lambda: named(playing.state()["outputs"], "waiting") is True, what="the stop frame")
        before = playing.snapshot()
        assert playing.snapshot() == before, "the output moves while held at its stop frame"

        # As an operator does: into the field, select what is there, type over it.
        name_field.click()
        name_field.send_keys(Keys.CONTROL + "a")
        name_field.send_keys("Ada Lovelace", Keys.ENTER)
        wait_until(lambda: named(playing.state()["inputs"], "name") == "Ada Lovelace", what="the name")
        wait_until(lambda: playing.snapshot() != before, what="a frame with the new name")

        browser.find_element(By.CSS_SELECTOR, 'button.trigger[data-input="takeOff"]').click()
        wait_until(lambda: named(playing.state()["outputs"], "waiting") is False, what="the trigger to take")
        # The press was released, so that the next stop frame waits again.
        wait_until(lambda: named(playing.state()["inputs"], "takeOff") is False, what="the trigger's release")
        message = browser.find_element(By.ID, "message").text
        assert message == "", message
        print("the page changed the composition: name typed, trigger pressed")
        return 0
    finally:
        browser.quit()
        playing.stop()


if __name__ == "__main__":
    sys.exit(main())
