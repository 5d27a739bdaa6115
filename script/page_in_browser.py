#!/usr/bin/python3
"""Opens pages of awbcal in a real browser: script/page_in_browser.py AWBCAL FOLDER [PICTURES]

Makes a phone and a line in FOLDER, and pages of them. Every chart has to be drawn, nothing may be said on the console or
fetched, and the numbers on the pages have to be those of the JSON and CSV. With PICTURES, a folder, leaves pictures there.
"""
import base64, csv, io, json, pathlib, re, subprocess, sys

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

AWBCAL, FOLDER = sys.argv[1], pathlib.Path(sys.argv[2])
GOLDEN = "0.7539,0.5625"
SERIAL = "<script>alert(1)</script>&amp;"


def awbcal(*arguments, stdin=None):
    run = subprocess.run([AWBCAL, *map(str, arguments)], cwd=FOLDER, input=stdin, capture_output=True, text=True)
    assert run.returncode in (0, 1, 2), (arguments, run.stderr)
    return run.stdout


def browser(*, scripts=True):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1000,1100", "--hide-scrollbars",
                     "--disable-dev-shm-usage"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    if not scripts:
        options.add_experimental_option("prefs", {"profile.managed_default_content_settings.javascript": 2})
    return webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))


def open_page(driver, name):
    driver.get((FOLDER / name).as_uri())


# Of each chart: its caption, whether anything is drawn in it, and for every data set how many of its numbers lie
# within its axes.
CHARTS = """
return [...document.querySelectorAll('figure[data-chart]')].map(figure => {
  const canvas = figure.querySelector('canvas'), chart = Chart.getChart(canvas);
  const pixels = new Uint32Array(canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data.buffer);
  const within = (scale, value) => value === null || Number.isNaN(value) || (value >= scale.min && value <= scale.max);
  return { caption: figure.querySelector('figcaption').textContent, colours: new Set(pixels).size,
    outside: chart.data.datasets.flatMap((set, i) => {
      const meta = chart.getDatasetMeta(i), x = chart.scales[meta.xAxisID], y = chart.scales[meta.yAxisID];
      return set.data.filter(each => !(typeof each === 'object' && each !== null ?
        within(x, each.x) && within(y, each.y) : within(y, each)));
    }).length,
    points: chart.data.datasets.filter(set => set.type !== 'line').map(set => [set.label, set.data.length]) };
});
"""
TABLE = """
return [...document.querySelectorAll(arguments[0])].map(table =>
  [...table.tBodies[0].rows].map(row => [...row.cells].map(cell => cell.textContent)));
"""
LOADED = "const [page] = performance.getEntriesByType('navigation'); return page.loadEventEnd;"
FETCHED = "return performance.getEntriesByType('resource').map(each => each.name);"


def look_at(driver, name):
    """Opens a page in both colours; its charts."""
    for scheme in ("dark", "light"):
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                               {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        open_page(driver, name)
        charts = driver.execute_script(CHARTS)
        assert charts, f"{name}: no chart"
        for chart in charts:
            assert chart["colours"] > 10, f"{name}, {chart['caption']}: hardly anything is drawn, {scheme}"
            assert chart["outside"] == 0, f"{name}, {chart['caption']}: {chart['outside']} numbers are outside"
    assert driver.execute_script(FETCHED) == [], f"{name}: something was fetched"
    said = driver.get_log("browser")
    assert said == [], f"{name}: {said}"
    return charts


def numbers(cells):
    return [float(re.match(r"[-+0-9.]+", cell).group()) for cell in cells]


def check_unit(driver):
    look_at(driver, "unit.html")
    text = driver.execute_script("return document.body.innerText")
    verified = json.loads(awbcal("verify", "phone", "--json", "--limits", "line/limits.csv"))
    assert f"{verified['result']}: " in text
    for verdict in verified["verdicts"]:
        if verdict.get("source"):
            assert verdict["found"] in text, verdict
        if verdict.get("margin"):
            assert f"{verdict['margin']['delta']:.4f} from the golden sample" in text, verdict
    changes = driver.execute_script(TABLE, "figure[data-chart=change] table")
    maps = driver.execute_script(TABLE, "table.map")
    starts = re.findall(r"The (\w+) camera's start", text)
    assert starts == ["main", "front", "sub"], starts
    compared = 0
    for camera in starts:
        explained = json.loads(awbcal("explain", camera, "phone", "--json", "--golden", GOLDEN))
        for correction in explained["corrections"]:
            assert correction["sentence"] in text, correction
        tuning = {(each["block"], each["field"]): each for each in explained["tuning"]}
        points = [tuning["reference_points", f"reference_point_{i}_{ratio}"] for i in range(15) for ratio in ("rg", "bg")]
        if any(each["before"] != each["after"] for each in points):
            for i, row in enumerate(changes.pop(0)):
                rg, bg = points[2 * i], points[2 * i + 1]
                wanted = [rg["before"], rg["after"], rg["ratio"], bg["before"], bg["after"], bg["ratio"]]
                assert all(abs(a - b) < 6e-5 for a, b in zip(numbers(row[-6:]), wanted)), (camera, row)
                compared += 1
        led = [key for key in tuning if key[0] == "own_golden" and re.fullmatch(r"led_\d+_[xy]", key[1])]
        if any(tuning[key]["before"] != tuning[key]["after"] for key in led):
            for i, row in enumerate(changes.pop(0)):
                x, y = tuning["own_golden", f"led_{i}_x"], tuning["own_golden", f"led_{i}_y"]
                wanted = [x["before"], x["after"], x["ratio"], y["before"], y["after"], y["ratio"]]
                assert all(abs(a - b) < 6e-5 for a, b in zip(numbers(row[-6:]), wanted)), (camera, row)
                compared += 1
        meshes = {}
        for (block, field), each in tuning.items():
            if block == "mesh":
                _, _, at, _, channel, _, gain = field.split("_")
                meshes.setdefault(at, {}).setdefault(channel, []).append((each["before"], each["after"]))
        different = {json.dumps(mesh): mesh for mesh in meshes.values()
                     if any(before != after for channel in mesh.values() for before, after in channel)}
        for mesh in different.values():
            for channel in mesh.values():
                for when in (0, 1):
                    shown = [number for row in maps.pop(0) for number in numbers(row)]
                    assert len(shown) == 17 * 13
                    assert all(abs(a - b[when]) < 6e-3 for a, b in zip(shown, channel)), camera
                    compared += len(shown)
    assert not changes and not maps and compared > 10000, compared


def check_fleet(driver):
    charts = look_at(driver, "fleet.html")
    rows = list(csv.DictReader(io.StringIO(awbcal("fleet", "line/units", "--limits", "line/limits.csv", "--csv"))))
    measured = [row for row in rows if row["rg"] and row["verdict"] in ("good", "judged out of tolerance")]
    shown = [row for table in driver.execute_script(TABLE, "table[data-role=points]") for row in table]
    key = lambda name, rg, bg, passes: (name, round(float(rg), 4), round(float(bg), 4), passes)
    assert sorted(key(*row[:3], row[3] == "passes") for row in shown) == sorted(
        key(row["unit"], row["rg"], row["bg"], row["good"] == "1") for row in measured)
    circles = {tuple(numbers(row[1:])) for table in driver.execute_script(TABLE, "table[data-role=golden]") for row in table}
    assert circles == {tuple(round(float(row[name]), 4) for name in ("golden_rg", "golden_bg", "delta_limit"))
                       for row in measured}, circles
    bins = [row for table in driver.execute_script(TABLE, "table[data-role=bins]") for row in table]
    assert sum(int(row[1]) for row in bins) == len(measured)
    beyond = sum(int(row[1]) for row in bins if float(row[0].strip("> ").split("-")[0]) >= 100)
    assert beyond == sum(float(row["percent"]) > 100 for row in measured) > 0
    printed = re.sub(r" +", " ", awbcal("fleet", "line/units", "--limits", "line/limits.csv"))
    for table in driver.execute_script(TABLE, "table[data-role=rows]"):
        for row in table:
            assert " ".join(row) in printed, row
    assert {chart["caption"].split(",")[0] for chart in charts} >= {"main camera", "Yield of each day"}


def check_many(driver):
    """A hundred thousand units."""
    units = sorted(str(path) for path in (FOLDER / "line/units").iterdir())
    awbcal("fleet", "-", "--limits", "line/limits.csv", "--html", "many.html",
           stdin="\n".join((units * (100000 // len(units) + 1))[:100000]) + "\n")
    look_at(driver, "many.html")
    times = []
    for _ in range(3):
        open_page(driver, "many.html")
        times.append(driver.execute_script(LOADED))
    charts = driver.execute_script("return document.querySelectorAll('[data-step]').length")
    counted = sum(int(row[2]) for table in driver.execute_script(TABLE, "table[data-role=density]") for row in table)
    said = driver.execute_script("return [...document.querySelectorAll('figcaption')].map(each => each.textContent)")
    named = sum(int(match) for text in said for match in re.findall(r"(\d+) units, in squares", text))
    assert charts > 0 and counted == named > 300000, (charts, counted, named)
    print(f"page: 100000 units open in {min(times) / 1000:.2f} to {max(times) / 1000:.2f} s")
    assert max(times) < 3000, times


def check_strangers_text(driver):
    """A property that would be a script is a text."""
    properties = FOLDER / "phone/properties"
    before = properties.read_text()
    properties.write_text(before + f"ro.serialno={SERIAL}\n")
    awbcal("fleet", "phone", "--html", "strange.html", "--golden", "0.1,0.1")
    properties.write_text(before)
    look_at(driver, "strange.html")
    named = [row[0] for table in driver.execute_script(TABLE, "table[data-role=points]") for row in table]
    assert SERIAL in named, named
    assert driver.execute_script("return document.scripts.length") == 2


def check_without_scripts():
    driver = browser(scripts=False)
    open_page(driver, "fleet.html")
    tables = driver.find_elements("css selector", "figure table")
    assert len(tables) > 5 and all(table.is_displayed() for table in tables), "numbers are hidden"
    assert not any(canvas.is_displayed() for canvas in driver.find_elements("css selector", "canvas"))
    driver.quit()


def check_print(driver):
    for name in ("unit.html", "fleet.html"):
        open_page(driver, name)
        pdf = base64.b64decode(driver.execute_cdp_cmd("Page.printToPDF", {})["data"])
        assert len(pdf) > 50000 and driver.execute_script("return document.documentElement.className") == "scripted"


def take_pictures(driver, folder):
    driver.set_window_size(1000, 1000)
    for name, first in (("unit", "The main camera's start"), ("fleet", "R/G against B/G")):
        open_page(driver, f"{name}.html")
        driver.execute_script("const at = [...document.querySelectorAll('h2')].find(each => each.textContent === arguments[0]);"
                              "scrollTo(0, at.offsetTop - 8);", first)
        driver.save_screenshot(f"{folder}/{name}.png")


awbcal("demo", "--seed", "1", "--dir", "phone")
awbcal("demo", "--units", "2000", "--spread", "5", "--drift", "0.2", "--dir", "line")
awbcal("report", "phone", "--limits", "line/limits.csv", "--html", "unit.html")
awbcal("fleet", "line/units", "--limits", "line/limits.csv", "--html", "fleet.html")
awbcal("replay", pathlib.Path("examples/frames_d65_main.csv").resolve(), "--golden", GOLDEN, "--html", "frames.html")
chromium = browser()
check_unit(chromium)
check_fleet(chromium)
look_at(chromium, "frames.html")
check_many(chromium)
check_strangers_text(chromium)
check_print(chromium)
check_without_scripts()
if len(sys.argv) > 3:
    take_pictures(chromium, sys.argv[3])
chromium.quit()
print("page: drawn, silent, alone, and its numbers are those of the JSON and CSV")
