#!/usr/bin/python3
"""The viewer's page in headless Chromium: clicks, the F_number slider and the
ratio buttons each change the picture shown, and the picture shown is byte for
byte what /render answers for the same parameters. Saves a screenshot.

Exit status 77 (reported as skipped) where Chromium, its driver or Selenium
is missing."""

import argparse
import base64
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

SKIP = 77
CHROMIUM = "/usr/bin/chromium"
DRIVER = "/usr/bin/chromedriver"


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(SKIP)


try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError as e:
    skip(f"Selenium not importable ({e}); Debian package python3-selenium")


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def start_view(tool, args):
    proc = subprocess.Popen([tool, "view", "--port", "0"] + args, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)
    deadline = time.time() + 30
    line = ""
    while time.time() < deadline and "http://" not in line:
        ready, _, _ = select.select([proc.stdout], [], [], 1)
        if ready:
            line = proc.stdout.readline()
            if not line:
                break
    if "http://" not in line:
        proc.kill()
        raise Failure(f"no address from the viewer: {line!r} {proc.stderr.read()}")
    return proc, line[line.index("http://"):].strip()


def fetch(url):
    with urllib.request.urlopen(url, timeout=30) as response:
        return response.read()


# The picture the page shows: its parameters (data-url) and its bytes, read
# back from the page's own blob.
SHOWN_JS = """
const done = arguments[arguments.length - 1];
const img = document.getElementById("out");
fetch(img.src).then((r) => r.arrayBuffer()).then((buffer) => {
  let text = "";
  const bytes = new Uint8Array(buffer);
  for (let i = 0; i < bytes.length; i += 0x8000) text += String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000));
  done({url: img.dataset.url, seq: img.dataset.seq, b64: btoa(text)});
}).catch((e) => done({error: String(e)}));
"""

# Where the disparity map is nearest (the subject) and farthest (the far
# wall), in frame pixels, read with a canvas from /disparity.
EXTREMES_JS = """
const done = arguments[arguments.length - 1];
const image = new Image();
image.onload = () => {
  const canvas = document.createElement("canvas");
  canvas.width = image.width; canvas.height = image.height;
  const ctx = canvas.getContext("2d");
  ctx.drawImage(image, 0, 0);
  const data = ctx.getImageData(0, 0, image.width, image.height).data;
  const at = (x, y) => data[4 * (y * image.width + x)];
  let max = -1, min = 256, far = [0, 0];
  // Away from the borders, where the nearest and farthest layers are large.
  for (let y = 2; y < image.height - 2; y++) for (let x = 2; x < image.width - 2; x++) {
    const v = at(x, y);
    if (v > max) max = v;
    if (v < min) { min = v; far = [x, y]; }
  }
  // The subject: the centre of the nearest samples.
  let sx = 0, sy = 0, n = 0;
  for (let y = 0; y < image.height; y++) for (let x = 0; x < image.width; x++) {
    if (at(x, y) === max) { sx += x; sy += y; n++; }
  }
  done({w: image.width, h: image.height, near: [Math.round(sx / n), Math.round(sy / n)], far: far, max: max, min: min});
};
image.onerror = () => done({error: "disparity image"});
image.src = "/disparity?frame=0";
"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    for path, package in ((CHROMIUM, "chromium"), (DRIVER, "chromium-driver")):
        if not os.access(path, os.X_OK):
            skip(f"{path} missing; Debian package {package}")
    os.makedirs(args.out, exist_ok=True)

    proc, url = start_view(args.tool, ["--size", "960x540", "--focus", "8,8"])
    profile = tempfile.mkdtemp(prefix="pbview-chromium-")
    driver = None
    try:
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", f"--user-data-dir={profile}", "--window-size=1400,900"):
            options.add_argument(flag)
        driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        driver.set_script_timeout(30)
        wait = WebDriverWait(driver, 30)
        driver.get(url)

        def shown_after(previous_seq, expected_url):
            """Waits until the page shows a newer picture with these parameters."""
            def ready(d):
                img = d.find_element(By.ID, "out")
                return (img.get_attribute("data-seq") != previous_seq and
                        img.get_attribute("data-url") == expected_url)
            try:
                wait.until(ready)
            except Exception:
                img = driver.find_element(By.ID, "out")
                raise Failure(f"the page did not show {expected_url} (shows {img.get_attribute('data-url')}, "
                              f"error: {driver.find_element(By.ID, 'error').text!r})")
            shown = driver.execute_async_script(SHOWN_JS)
            check("error" not in shown, f"reading the shown picture: {shown.get('error')}")
            return shown["seq"], base64.b64decode(shown["b64"])

        seq, shown = shown_after("0", "/render?x=8&y=8&f=4&ratio=1&frame=0")
        check(shown == fetch(url.rstrip("/") + "/render?x=8&y=8&f=4&ratio=1&frame=0"),
              "first picture differs from /render")
        extremes = driver.execute_async_script(EXTREMES_JS)
        check("error" not in extremes and extremes["max"] > extremes["min"], f"disparity map: {extremes}")

        img = driver.find_element(By.ID, "out")
        scale_x = 960 / extremes["w"]
        scale_y = 540 / extremes["h"]

        def click_frame(fx, fy):
            """Clicks the picture at frame pixel (fx, fy) as displayed (scaled)."""
            rect = driver.execute_script("const r = arguments[0].getBoundingClientRect();"
                                         "return [r.width, r.height];", img)
            dx = (fx + 0.5) * rect[0] / 960 - rect[0] / 2
            dy = (fy + 0.5) * rect[1] / 540 - rect[1] / 2
            ActionChains(driver).move_to_element_with_offset(img, int(round(dx)), int(round(dy))).click().perform()

        def params():
            return driver.find_element(By.ID, "out").get_attribute("data-url")

        steps = []
        # 1. The subject, 2. the far wall: the focus follows the click.
        for name, point in (("subject", extremes["near"]), ("background", extremes["far"])):
            fx, fy = int((point[0] + 0.5) * scale_x), int((point[1] + 0.5) * scale_y)
            click_frame(fx, fy)
            wait.until(lambda d: params() != steps[-1][1] if steps else True)
            wait.until(lambda d: d.find_element(By.ID, "out").get_attribute("data-seq") != seq)
            target = params()
            got_x = int(target.split("x=")[1].split("&")[0])
            got_y = int(target.split("y=")[1].split("&")[0])
            # The displayed size differs from the frame's: the click maps back within a pixel or two.
            check(abs(got_x - fx) <= 2 and abs(got_y - fy) <= 2, f"{name}: clicked {fx},{fy}, page asked {target}")
            seq, picture = shown_after(seq, target)
            steps.append((name, target, picture))
            shown_next = picture
            check(shown_next != shown, f"{name}: the picture did not change")
            shown = shown_next

        # 3. The F_number slider, moved with the keyboard from 4 down to 1.
        slider = driver.find_element(By.ID, "f")
        driver.execute_script("arguments[0].focus();", slider)  # a click would move it
        for _ in range(6):
            slider.send_keys(Keys.ARROW_LEFT)
        expected = params().replace("f=4&", "f=1&")
        check(driver.find_element(By.ID, "f").get_attribute("value") == "1", "slider did not reach 1")
        seq, picture = shown_after(seq, expected)
        check(picture != shown, "F_number: the picture did not change")
        steps.append(("f-number", expected, picture))
        shown = picture

        # 4. The ratio: a button, then a digit key; ratio 8 is ruled out at 960x540.
        buttons = {b.text: b for b in driver.find_elements(By.CSS_SELECTOR, "#ratios button")}
        check(buttons["8"].get_attribute("disabled") is not None, "ratio 8 should be disabled at 960x540")
        check("ratio 8 needs" in (buttons["8"].get_attribute("title") or ""), "ratio 8 shows no reason")
        buttons["2"].click()
        expected = params().replace("ratio=1&", "ratio=2&")
        seq, picture = shown_after(seq, expected)
        check(picture != shown, "ratio 2: the picture did not change")
        steps.append(("ratio-2", expected, picture))
        shown = picture
        driver.find_element(By.TAG_NAME, "body").send_keys("4")
        expected = params().replace("ratio=2&", "ratio=4&")
        seq, picture = shown_after(seq, expected)
        check(picture != shown, "ratio 4: the picture did not change")
        steps.append(("ratio-4", expected, picture))

        # Every picture shown is what /render answers for its parameters.
        for name, target, picture in steps:
            check(picture == fetch(url.rstrip("/") + target), f"{name}: shown picture differs from {target}")
            check(picture[:8] == b"\x89PNG\r\n\x1a\n", f"{name}: not a PNG")

        # The weights over the output, for the screenshot.
        driver.find_element(By.CSS_SELECTOR, "#modes button[data-mode=overlay]").click()
        wait.until(lambda d: (d.find_element(By.ID, "weights-layer").get_attribute("data-url") or "").startswith(
            "/weights?"))
        time.sleep(0.3)
        driver.find_element(By.CSS_SELECTOR, "#modes button[data-mode=output]").click()
        shot = os.path.join(args.out, "viewer.png")
        driver.save_screenshot(shot)
        print(f"screenshot: {shot}")
        for name, target, _ in steps:
            print(f"ok {name}: {target}")
    finally:
        if driver is not None:
            driver.quit()
        shutil.rmtree(profile, ignore_errors=True)
        proc.send_signal(signal.SIGINT)
        try:
            status = proc.wait(timeout=20)
        except subprocess.TimeoutExpired:
            proc.kill()
            status = -1
    check(status == 0, f"viewer exited with {status}")


if __name__ == "__main__":
    try:
        main()
    except Failure as e:
        print(f"FAILED: {e}")
        sys.exit(1)
