#!/usr/bin/python3
"""The viewer's page in headless Chromium: clicks, the F_number slider and the
ratio controls each change the picture shown, and each picture shown is byte
for byte what /render answers for the same parameters. Saves a screenshot.
Exits 77 (skipped) where Chromium, its driver or Selenium is missing."""

import argparse, base64, os, shutil, signal, subprocess, sys, tempfile, urllib.request

CHROMIUM, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(77)


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


# The picture the page shows, read back from its own blob: parameters and bytes.
SHOWN_JS = """
const done = arguments[arguments.length - 1], img = document.getElementById("out");
fetch(img.src).then((r) => r.arrayBuffer()).then((buffer) => {
  const bytes = new Uint8Array(buffer);
  let text = "";
  for (let i = 0; i < bytes.length; i += 0x8000) text += String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000));
  done({url: img.dataset.url, seq: img.dataset.seq, b64: btoa(text)});
}).catch((e) => done({error: String(e)}));
"""

# From /disparity: the centre of the nearest samples (the subject) and a
# farthest sample away from the borders (the far wall), in map pixels.
EXTREMES_JS = """
const done = arguments[arguments.length - 1], image = new Image();
image.onload = () => {
  const w = image.width, h = image.height, canvas = document.createElement("canvas");
  canvas.width = w; canvas.height = h;
  const ctx = canvas.getContext("2d");
  ctx.drawImage(image, 0, 0);
  const data = ctx.getImageData(0, 0, w, h).data, at = (x, y) => data[4 * (y * w + x)];
  let max = -1, min = 256, far = [0, 0], sx = 0, sy = 0, n = 0;
  for (let y = 2; y < h - 2; y++) for (let x = 2; x < w - 2; x++) {
    max = Math.max(max, at(x, y));
    if (at(x, y) < min) { min = at(x, y); far = [x, y]; }
  }
  for (let y = 0; y < h; y++) for (let x = 0; x < w; x++) if (at(x, y) === max) { sx += x; sy += y; n++; }
  done({w: w, h: h, near: [Math.round(sx / n), Math.round(sy / n)], far: far, max: max, min: min});
};
image.onerror = () => done({error: "disparity image"});
image.src = "/disparity?frame=0";
"""


def run(driver, url, out_dir):
    wait = WebDriverWait(driver, 30)
    driver.get(url)
    img = driver.find_element(By.ID, "out")
    params = lambda: img.get_attribute("data-url")
    state = {"seq": "0", "picture": None}
    steps = []

    def shown(name, expected):
        """Waits for a newer picture with these parameters; it must differ from the last one."""
        try:
            wait.until(lambda d: img.get_attribute("data-seq") != state["seq"] and params() == expected)
        except Exception:
            raise Failure(f"{name}: the page did not show {expected} (shows {params()}, "
                          f"error: {driver.find_element(By.ID, 'error').text!r})")
        got = driver.execute_async_script(SHOWN_JS)
        check("error" not in got, f"{name}: reading the shown picture: {got.get('error')}")
        picture = base64.b64decode(got["b64"])
        check(picture != state["picture"], f"{name}: the picture did not change")
        state.update(seq=got["seq"], picture=picture)
        steps.append((name, expected, picture))

    shown("start", "/render?x=8&y=8&f=4&ratio=1&frame=0")
    ext = driver.execute_async_script(EXTREMES_JS)
    check("error" not in ext and ext["max"] > ext["min"], f"disparity map: {ext}")

    # 1. The subject, 2. the far wall: the click, mapped back from the
    # displayed size, sets the focus within a pixel or two.
    for name, point in (("subject", ext["near"]), ("background", ext["far"])):
        fx, fy = int((point[0] + 0.5) * 960 / ext["w"]), int((point[1] + 0.5) * 540 / ext["h"])
        w, h = driver.execute_script("const r = arguments[0].getBoundingClientRect(); return [r.width, r.height];", img)
        before = params()
        ActionChains(driver).move_to_element_with_offset(
            img, round((fx + 0.5) * w / 960 - w / 2), round((fy + 0.5) * h / 540 - h / 2)).click().perform()
        wait.until(lambda d: params() != before)
        query = dict(p.split("=") for p in params().split("?")[1].split("&"))
        check(abs(int(query["x"]) - fx) <= 2 and abs(int(query["y"]) - fy) <= 2,
              f"{name}: clicked {fx},{fy}, page asked {params()}")
        shown(name, params())

    # 3. The F_number slider, moved with the keyboard from 4 down to 1 (a click would move it).
    slider = driver.find_element(By.ID, "f")
    driver.execute_script("arguments[0].focus();", slider)
    for _ in range(6):
        slider.send_keys(Keys.ARROW_LEFT)
    check(slider.get_attribute("value") == "1", "slider did not reach 1")
    shown("f-number", params().replace("f=4&", "f=1&"))

    # 4. The ratio: a button, then a digit key; ratio 8 is ruled out at 960x540.
    buttons = {b.text: b for b in driver.find_elements(By.CSS_SELECTOR, "#ratios button")}
    check(buttons["8"].get_attribute("disabled") is not None, "ratio 8 should be disabled at 960x540")
    check("ratio 8 needs" in (buttons["8"].get_attribute("title") or ""), "ratio 8 shows no reason")
    buttons["2"].click()
    shown("ratio-2", params().replace("ratio=1&", "ratio=2&"))
    driver.find_element(By.TAG_NAME, "body").send_keys("4")
    shown("ratio-4", params().replace("ratio=2&", "ratio=4&"))

    # Every picture shown is what /render answers for its parameters.
    for name, target, picture in steps:
        with urllib.request.urlopen(url.rstrip("/") + target, timeout=30) as response:
            check(picture == response.read(), f"{name}: shown picture differs from {target}")
        check(picture[:8] == b"\x89PNG\r\n\x1a\n", f"{name}: not a PNG")
        print(f"ok {name}: {target}")
    shot = os.path.join(out_dir, "viewer.png")
    check(driver.save_screenshot(shot), "no screenshot")
    print(f"screenshot: {shot}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    for path, package in ((CHROMIUM, "chromium"), (DRIVER, "chromium-driver")):
        if not os.access(path, os.X_OK):
            skip(f"{path} missing; Debian package {package}")
    os.makedirs(args.out, exist_ok=True)
    proc = subprocess.Popen([args.tool, "view", "--port", "0", "--size", "960x540", "--focus", "8,8"],
                            stdout=subprocess.PIPE, text=True)
    line = proc.stdout.readline()  # the address, or "" when the viewer failed to start
    profile = tempfile.mkdtemp(prefix="pbview-chromium-")
    driver = None
    try:
        check("http://" in line, f"no address from the viewer: {line!r}")
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-dev-shm-usage",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     f"--user-data-dir={profile}", "--window-size=1400,900"):
            options.add_argument(flag)
        driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        driver.set_script_timeout(30)
        run(driver, line[line.index("http://"):].strip(), args.out)
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
