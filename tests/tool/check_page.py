#!/usr/bin/env python3
"""The page of `map --html` in a browser: search, tooltip and the chain of a stream show what is in the store.

  check_page.py TOOL WORK_DIR

Needs chromium, chromedriver and the module selenium (Debian: chromium, chromium-driver, python3-selenium).
"""
import json
import os
import shutil
import subprocess
import sys

try:
    from selenium import webdriver
except ImportError:  # it may be that of Debian's own interpreter alone
    if sys.executable == "/usr/bin/python3":
        raise
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

tool, work_dir = sys.argv[1], os.path.abspath(sys.argv[2])
chromium, driver_program = shutil.which("chromium"), shutil.which("chromedriver")
if not chromium or not driver_program:
    sys.exit("chromium or chromedriver is missing (Debian: chromium, chromium-driver)")

shutil.rmtree(work_dir, ignore_errors=True)
os.makedirs(work_dir)
store, page = os.path.join(work_dir, "a&<b>.store"), os.path.join(work_dir, "page.html")


def run(*words, given=b""):
    return subprocess.run([tool, *words], input=given, capture_output=True, check=True).stdout


# --- A store with a scattered chain and names that would act, if they were not only shown

IMAGE = b"<img src=x onerror=window.acted=1>"
SCRIPT = b"</script><script>window.acted=1//"
LINK = b"\"'><a href=https://example.invalid/ping>&amp;"
BYTES = b"\xff\xfe\xe2\x80\xaeodd"
HELD = {name: name.replace(b"/", b"@") for name in (SCRIPT, LINK)}  # a slash would be the end of a name
run("create", store)
run("mkdir", store, "folder")
for name in [IMAGE, *HELD.values(), BYTES, b"needle one", b"folder/the Needle", b"{{script}}"]:
    run("put", store, name, given=name * 300)
run("put", store, "removed", given=b"r" * 5000)
run("rm", store, "removed")
for _ in range(4):  # the first goes into the removed one's chain
    for name in ["chain", "folder/other"]:
        run("log", store, name, given=b"c" * 3000)
with open(store, "r+b") as file:
    content = file.read()
    for wanted, name in HELD.items():
        record = b"\xfc\xfc\xfc\xfc" + name + b"\0"
        assert content.count(record) == 1
        content = content.replace(record, b"\xfc\xfc\xfc\xfc" + wanted + b"\0")
    file.seek(0)
    file.write(content)
run("map", "--html", page, store)
records = json.loads(run("map", "--json", store))["records"]


def blocks_of(path):
    """Of the map, in the order of the chain: offset, used, capacity, next."""
    blocks = [item for item in records if item["kind"] == "blockHeader" and item["path"] == path]
    return [[item[key] for key in ("offset", "used", "capacity", "nextBlock")]
            for item in sorted(blocks, key=lambda item: item["position"])]


def check(driver):
    def until(condition, what):
        WebDriverWait(driver, 8, 0.05).until(lambda _: condition(), f"waited in vain: {what}")

    def script(text, *arguments):
        return driver.execute_script("return " + text, *arguments)

    def panel_title():
        return script("document.querySelector('#panel h2').textContent")

    def find(text):
        box = driver.find_element(By.ID, "search")
        box.clear()
        box.send_keys(text)

    def buttons():
        return script("[...document.querySelectorAll('#panel button')].map(b => b.textContent)")

    def table():
        rows = script("[...document.querySelectorAll('#panel tbody tr')].map("
                      "r => [...r.cells].map(c => c.textContent))")
        return [[int(cell.replace(",", "")) for cell in row] for row in rows]

    driver.get("file://" + page)
    until(lambda: panel_title() == "Look closer", "the page")
    streams = script("JSON.parse(document.getElementById('data').textContent).streams")
    names = [stream["name"] for stream in streams]
    assert script("document.title").startswith(os.path.basename(store)), script("document.title")

    # Search: what is found stands out, everything else steps back.
    find("NEEDLE")
    until(lambda: script("document.getElementById('count').textContent") == f"2 of {len(names)} streams", "the count")
    assert sorted(buttons()) == ["folder/the Needle", "needle one"], buttons()
    hit = script("[...new Set([...document.querySelectorAll('rect.hit')].map(r => Number(r.dataset.s)))]")
    assert {names[index] for index in hit} == {"needle one", "the Needle"}, hit
    opacity = ("[...document.querySelectorAll('#picture .band rect, #picture .tree rect')].every(r => "
               "getComputedStyle(r).opacity === (r.classList.contains('hit') ? '1' : '0.16'))")
    until(lambda: script(opacity), "the others dimmed")
    for part, shown in [("<img", IMAGE.decode()), ("/script>", SCRIPT.decode()), ("invalid", LINK.decode()),
                        ("\\xff", "\\xFF\\xFE\\xE2\\x80\\xAEodd"), ("{{", "{{script}}")]:
        find(part)
        until(lambda: buttons() == [shown], f"{shown} alone, not {buttons()}")
    driver.find_element(By.ID, "search").send_keys(Keys.ESCAPE)
    until(lambda: panel_title() == "Look closer" and not script("document.querySelectorAll('.hit').length"), "the end")
    driver.find_element(By.TAG_NAME, "body").click()
    driver.find_element(By.TAG_NAME, "body").send_keys("/")
    until(lambda: script("document.activeElement.id") == "search", "the focus")
    assert script("document.getElementById('search').value") == ""

    # A click, in either half of the picture, shows the chain.
    for path in ["chain", "folder/other", "folder", IMAGE.decode()]:
        wanted = blocks_of(path)
        index = names.index(path.rsplit("/", 1)[-1])
        for half in [".band", ".tree"]:
            driver.find_element(By.ID, "search").send_keys(Keys.ESCAPE)
            shapes = driver.find_elements(By.CSS_SELECTOR, f"{half} rect[data-s='{index}']")
            shape = max(shapes, key=lambda each: each.rect["width"])
            if half == ".tree" and path == "folder":
                ActionChains(driver).move_to_element_with_offset(
                    shape, 0, 4 - int(shape.rect["height"]) // 2).click().perform()
            else:
                shape.click()
            until(lambda: panel_title() == path, f"{path} in the panel, not {panel_title()}")
            assert table() == wanted, (path, table(), wanted)
            apart = sum(one[0] + one[2] != two[0] for one, two in zip(wanted, wanted[1:]))
            assert script("document.querySelectorAll('#chain > path').length") == apart, path
            drawn = script("[...new Set([...document.querySelectorAll('#chain rect')].map(r => Number(r.dataset.at)))]")
            assert sorted(drawn) == list(range(len(wanted))), drawn
    assert len(blocks_of("chain")) > 2

    # The tooltip, on the second block of the chain.
    offset, used, capacity, _ = blocks_of("folder/other")[1]
    shape = driver.find_element(By.CSS_SELECTOR, f".band rect[data-b='{offset}']")
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", shape)
    ActionChains(driver).move_to_element(shape).perform()
    told = f"folder/other\noffset {offset:,}, used {used:,}, capacity {capacity:,}"
    tip = "document.getElementById('tip')"
    until(lambda: script(f"!{tip}.hidden && {tip}.textContent === arguments[0]", told), told)

    assert script("window.acted === undefined && document.scripts.length === 2")
    assert not script("document.querySelectorAll('img, a, iframe, link, image').length")
    until(lambda: script("document.readyState") == "complete", "the end of loading")


def requests(driver):
    """Of the page: the browser begins with pages of its own."""
    for entry in driver.get_log("performance"):
        message = json.loads(entry["message"])["message"]
        if message["method"] != "Network.requestWillBeSent":
            continue
        if not message["params"]["documentURL"].startswith("chrome://"):
            yield message["params"]["request"]["url"]


options = webdriver.ChromeOptions()
options.binary_location = chromium
for flag in ["headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-background-networking",
             "disable-component-update", "disable-sync", "disable-dev-shm-usage", "window-size=1600,1500",
             "user-data-dir=" + os.path.join(work_dir, "profile")]:
    options.add_argument("--" + flag)
options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
browser = webdriver.Chrome(service=Service(driver_program), options=options)
try:
    check(browser)
    asked = [url for url in requests(browser) if url != "data:,"]
    assert len(asked) == 1 and asked[0].endswith("/page.html"), asked
    told = browser.get_log("browser")
    assert not told, told
finally:
    browser.quit()
