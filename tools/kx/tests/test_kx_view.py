"""kx view in headless Chromium against a two-arm kx_sim: the joints shown
follow the arm, Stop stops it, commands without the token are refused, and a
screenshot of the page is kept in the build folder."""
import json
import os
import re
import subprocess
import time
import urllib.error
import urllib.request

import ctypes

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

import kx_api
from conftest import KX, die_with_parent, free_port, kx, split, start_sim, stop


@pytest.fixture(scope="module")
def view():
    sim, addrs = start_sim(time_scale=1)
    # Port 0: the view takes a free port itself, so no other process can take it in between.
    proc = subprocess.Popen([KX, "view", *addrs, "--listen", "127.0.0.1:0"], stdout=subprocess.PIPE,
                            text=True, preexec_fn=die_with_parent)
    line = proc.stdout.readline()
    m = re.search(r"serving 2 arms on (http://127\.0\.0\.1:\d+)/ ", line)
    assert m, line
    yield m.group(1), addrs
    proc.terminate()
    assert proc.wait(timeout=15) == 0
    stop(sim)


@pytest.fixture(scope="module")
def browser():
    opts = webdriver.ChromeOptions()
    for arg in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1400,1000",
                "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--disable-gpu-sandbox"):
        opts.add_argument(arg)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
    driver.set_script_timeout(60)  # a loaded machine's software renderer can take seconds
    yield driver
    driver.quit()


def state(url):
    return json.loads(urllib.request.urlopen(url + "/api/state", timeout=5).read())


def post(url, body, headers=None, path="/api/command"):
    req = urllib.request.Request(url + path, data=json.dumps(body).encode(), method="POST",
                                 headers=headers or {})
    try:
        with urllib.request.urlopen(req, timeout=10) as r:
            return r.status, json.loads(r.read())
    except urllib.error.HTTPError as e:
        return e.code, json.loads(e.read())


def wait_until(check, what, deadline=15):
    end = time.monotonic() + deadline
    while time.monotonic() < end:
        if check():
            return
        time.sleep(0.05)
    pytest.fail(f"timed out waiting for {what}")


# Reads the joints shown for arm 1 and, right after, the server's state.
SHOWN_AND_STATE = """
const done = arguments[arguments.length - 1];
const shown = [...document.querySelectorAll('.jval[data-arm="1"]')].map(e => parseFloat(e.textContent));
fetch('/api/state').then(r => r.json()).then(s => done([shown, s.arms[0].joints]));
"""


def test_page_follows_the_arm_and_stops_it(view, browser):
    url, addrs = view
    browser.get(url + "/")
    wait_until(lambda: len(browser.find_elements(By.CSS_SELECTOR, ".arm")) == 2, "both arms on the page")
    assert "AVEN-QS" in browser.find_element(By.ID, "arm-1").text
    assert len(browser.find_elements(By.CSS_SELECTOR, '.jval[data-arm="2"]')) == 7

    # The state arrives over the WebSocket at 20 Hz or more.
    n0 = browser.execute_script("return window.kxStats.messages")
    time.sleep(1.0)
    assert browser.execute_script("return window.kxStats.messages") - n0 >= 20

    # A slow move of arm 1 (about 2 degrees a second, so that the page's lag of a frame or
    # two stays well inside the tolerance) started from outside the page.
    assert kx("movej", addrs[0], 60, 20, 0, 0, 0, 0, "--speed", 1, "--no-wait").returncode == 0
    wait_until(lambda: state(url)["arms"][0]["joints"][0] > 0.2, "arm 1 moving")
    seen = []
    for _ in range(15):
        shown, actual = browser.execute_async_script(SHOWN_AND_STATE)
        assert shown == pytest.approx(actual, abs=0.5)
        seen.append(actual[0])
        time.sleep(0.1)
    assert seen[-1] - seen[0] > 1 and state(url)["arms"][0]["status"] == "move_J", "arm 1 moved while compared"

    browser.find_element(By.ID, "stop-1").click()
    wait_until(lambda: state(url)["arms"][0]["status"] != "move_J", "arm 1 stopped")
    first = state(url)["arms"][0]["joints"]
    time.sleep(0.5)
    after = state(url)["arms"][0]
    assert after["joints"] == pytest.approx(first, abs=1e-3) and after["joints"][0] < 55
    shown, actual = browser.execute_async_script(SHOWN_AND_STATE)
    assert shown == pytest.approx(actual, abs=0.01)
    # Last: on a loaded machine a screenshot can take long enough for the move to end.
    browser.save_screenshot(os.path.join(os.environ.get("KX_ARTIFACTS", "."), "kx_view.png"))


def test_commands_need_the_token(view, browser):
    url, _ = view
    token = browser.execute_script("return window.KX.token")
    assert len(token) >= 16
    assert post(url, {"arm": 1, "action": "stop"})[0] == 403
    assert post(url, {}, path="/api/stop")[0] == 403
    assert post(url, {"arm": 1, "action": "stop", "token": "0" * len(token)})[0] == 403
    assert post(url, {"arm": 1, "action": "stop"}, {"X-KX-Token": token[:-1] + "x"})[0] == 403
    # A page whose host name was rebound to this machine cannot read the token either.
    with pytest.raises(urllib.error.HTTPError) as err:
        urllib.request.urlopen(urllib.request.Request(url + "/", headers={"Host": "attacker.example:80"}), timeout=5)
    assert err.value.code == 403
    # A page of another origin: its request carries no token, and it cannot read ours.
    other = browser.execute_async_script("""
const done = arguments[arguments.length - 1];
fetch(arguments[0] + '/api/command', {method: 'POST', mode: 'no-cors', body: '{"arm":"all","action":"stop"}'})
  .then(r => done(r.type), e => done(String(e)));""", url.replace("127.0.0.1", "localhost"))
    assert other in ("opaque", "TypeError: Failed to fetch")
    # The WebSocket also refuses a connection without the token.
    refused = browser.execute_async_script("""
const done = arguments[arguments.length - 1];
const ws = new WebSocket('ws://' + location.host + '/ws?token=wrong');
ws.onopen = () => done('open'); ws.onerror = () => done('refused');""")
    assert refused == "refused"
    # With the token, commands work: HTTP header, body, and over the WebSocket.
    assert post(url, {"arm": 2, "action": "clear"}, {"X-KX-Token": token}) == (200, {"ok": True, "result": 0})
    assert post(url, {"arm": "all", "action": "stop", "token": token})[0] == 200
    assert post(url, {}, {"X-KX-Token": token}, path="/api/stop") == (200, {"ok": True, "result": 0})
    reply = browser.execute_async_script("""
const done = arguments[arguments.length - 1];
const ws = new WebSocket('ws://' + location.host + '/ws?token=' + window.KX.token);
ws.onopen = () => ws.send(JSON.stringify({token: window.KX.token, arm: 2, action: 'jog', axis: '1', dir: '+'}));
ws.onmessage = (m) => { const msg = JSON.parse(m.data); if (msg.reply) { ws.close(); done(msg.reply); } };""")
    assert reply == {"ok": True, "result": 0}
    # The reply comes with the end of the motion; the state that shows it may be a push behind.
    wait_until(lambda: state(url)["arms"][1]["joints"][0] == pytest.approx(5, abs=0.05), "arm 2 jogged 5 degrees")
    # One jog of an arm at a time: a second one while the first runs is refused, not queued.
    from concurrent.futures import ThreadPoolExecutor
    jog = {"arm": 2, "action": "jog", "axis": "2", "dir": "+", "step": 10, "token": token}
    with ThreadPoolExecutor(2) as pool:
        codes = sorted(f.result()[0] for f in [pool.submit(post, url, jog) for _ in range(2)])
    assert codes == [200, 409]
    assert post(url, {"arm": 9, "action": "stop", "token": token})[0] == 400
    assert post(url, {"arm": 1, "action": "dance", "token": token})[0] == 400


def test_view_takes_the_push_back(view):
    """Another client points arm 2's realtime push elsewhere (taking over the
    command connection too): the view notices the silence and points it back."""
    url, addrs = view
    with kx_api.Arm(*split(addrs[1]), mode=kx_api.ffi.KX_DUAL_MODE_E) as arm:
        cfg = kx_api.ffi.kx_realtime_push_config_t()
        arm.get_realtime_push(ctypes.byref(cfg))
        cfg.port = free_port()
        arm.set_realtime_push(cfg)
    # The silence lasts only until the view's next look (a quarter of a second after
    # it reaches a second), too short to catch by polling on a loaded machine: the
    # view keeps it among the arm's events.
    wait_until(lambda: any(e["text"] == "state silent: push pointed back here" for e in state(url)["arms"][1]["events"]),
               "the view pointing arm 2's push back")
    # And states arrive again.
    samples = state(url)["arms"][1]["samples"]
    wait_until(lambda: state(url)["arms"][1]["online"] and state(url)["arms"][1]["samples"] > samples + 10,
               "arm 2 back")
