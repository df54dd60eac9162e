"""The report page in a real browser: it loads without an error, plays, goes on at the same sample when
another sound is chosen, seeks, and shows each of its parts.

    browser.py COMMAND EXAMPLES FOLDER [SCREENSHOT]

Ends with 77, which stands for a test that was left out, where there is no Chromium.
"""

import base64
import itertools
import pathlib
import shutil
import subprocess
import sys
import time

from Browser import Browser

# Samples of what the page plays, from its own audio graph, while the sound heard changes to one that was
# loaded after the start.
RECORD = """new Promise((resolve) => {
  const { player } = report, context = player.context;
  const recorder = context.createScriptProcessor(4096, 1, 1), samples = [];
  player.output.connect(recorder);
  recorder.connect(context.destination);
  const late = player.tracks[1].buffer;
  player.tracks[1].buffer = null;
  let blocks = 0;
  recorder.onaudioprocess = (event) => {
    samples.push(...event.inputBuffer.getChannelData(0));
    if (++blocks === 2) player.add(1, late);
    if (blocks === 3) report.choice.choose(1, false);
    if (blocks < 6) return;
    recorder.onaudioprocess = null;
    const sounds = player.tracks.map((one) => [...one.buffer.getChannelData(0)]);
    resolve({ samples, first: sounds[0], second: sounds[1] });
  };
  player.play();
})"""


# The contrast of texts with the ground that they stand on (WCAG 2), the least of all.
CONTRAST = """(() => {
  const channels = (colour) => colour.match(/[\\d.]+/g).map(Number);
  const luminance = (colour) => channels(colour).slice(0, 3).map((v) => v / 255)
    .map((v) => (v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4))
    .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
  const ground = (e) => { const own = getComputedStyle(e).backgroundColor;
    return channels(own)[3] === 0 ? ground(e.parentElement) : own; };
  return Math.min(...[...document.querySelectorAll("h1, p, td, th, kbd, button, select, .name, .place, #time")].map((e) => {
    const both = [getComputedStyle(e).color, ground(e)].map(luminance).sort((a, b) => b - a);
    return (both[0] + 0.05) / (both[1] + 0.05);
  }));
})()"""


def command(program, *words):
    subprocess.run([program, *map(str, words)], check=True, stdout=subprocess.DEVNULL)


def make_page(program, examples, folder):
    """A mixture of two sounds of noise before a ring, its separation, and the page."""
    import random
    import wave

    array, mix, scene = folder / "array.sofa", folder / "mix.wav", examples / "two-talkers.json"
    for name, seed in (("a", 1), ("b", 2)):
        draw = random.Random(seed)
        with wave.open(str(folder / f"{name}.wav"), "wb") as file:
            file.setparams((1, 2, 16000, 0, "NONE", ""))
            file.writeframes(b"".join(draw.randrange(-3000, 3000).to_bytes(2, "little", signed=True)
                                      for _ in range(48000)))
    command(program, "tfdb", "geometry", array, "--circular", 4, 0.05, "--distances", 1.4)
    command(program, "mix", scene, "--tf", array, "--dry", folder / "a.wav", folder / "b.wav", "-o", mix)
    command(program, "separate", mix, "--tf", array, "--sources", scene, "-o", folder / "run", "--report",
            folder / "report.html")
    return folder / "report.html"


def distance(samples, sound):
    """The shift at which a sound fits samples best, and by how much it is off there at most."""
    def off(shift, step):
        return max(abs(x - y) for x, y in zip(samples[::step], sound[shift::step]))

    best = min(range(len(sound) - len(samples)), key=lambda shift: off(shift, 97))
    return best, off(best, 1)


def check(browser, page, screenshot):
    begin = time.monotonic()
    # Not every browser has it.
    browser.call("Page.addScriptToEvaluateOnNewDocument", source="delete AudioParam.prototype.cancelAndHoldAtTime")
    browser.call("Page.navigate", url=page.as_uri())
    while browser.run("document.body && document.body.dataset.ready") != "yes":
        assert time.monotonic() < begin + 20, f"the page is not ready: {browser.errors}"
        time.sleep(0.05)
    assert not browser.errors, browser.errors

    # Every part is there: five sounds, a waveform and a spectrogram of each, and all sections.
    sounds = ["mixture", "source 0", "source 1", "reference 0", "reference 1"]
    assert browser.run("[...document.querySelectorAll('.track')].map((e) => e.ariaLabel)") == sounds
    assert browser.run("report.waves.every((wave) => wave.getDuration() > 2.9)")
    assert browser.run("""[...document.querySelectorAll('img')].map((e) => e.decode().then(() =>
        e.naturalWidth > 100 && e.alt.length > 10)).reduce((a, b) => a.then((x) => x && b))""")
    for part in ("timeline", "scene", "patterns", "scores", "runs"):
        assert browser.run(f"document.getElementById('{part}').getBoundingClientRect().height > 20"), part
    assert browser.run("document.querySelectorAll('#score-tables tbody tr').length") == 2
    # Nothing that a person operates is without a name.
    assert browser.run("""[...document.querySelectorAll('button, input, select')]
        .every((e) => (e.ariaLabel || e.textContent || e.labels[0].textContent).trim())""")
    # In light and dark; a telephone, too, shows the page without scrolling sideways.
    for scheme, width in itertools.product(("light", "dark"), (1100, 390)):
        browser.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        browser.call("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1,
                     mobile=width < 600)
        assert browser.run("document.documentElement.scrollWidth <= innerWidth"), width
        assert browser.run(CONTRAST) >= 4.5, (scheme, browser.run(CONTRAST))
        if screenshot:
            shot = browser.call("Page.captureScreenshot", captureBeyondViewport=True)["data"]
            screenshot.with_suffix(f".{scheme}.{width}.png").write_bytes(base64.b64decode(shot))
    browser.call("Emulation.clearDeviceMetricsOverride")

    # What is heard goes on at the same sample when the other sound is chosen.
    heard = browser.run(RECORD)
    rate, samples = 16000, heard["samples"]
    before, off_before = distance(samples[2 * 4096:2 * 4096 + 2000], heard["first"])
    after, off_after = distance(samples[-2000:], heard["second"])
    assert off_before < 1e-3 and off_after < 1e-3, (off_before, off_after)
    assert after - before == len(samples) - 2000 - 2 * 4096, "the position jumps"
    browser.run("report.player.isPlaying && report.toggle()")

    # The keys choose, mute, seek; a click into the waveform or a spectrogram seeks.
    state = "[report.choice.last, [...report.choice.solo].length, report.choice.muted.size]"
    browser.key("3", "Digit3")
    assert browser.run(state) == [2, 1, 0]
    browser.key("$", "Digit4", shift=True)
    assert browser.run(state) == [3, 2, 0]
    browser.key("x")
    browser.key("m")
    assert browser.run(state) == [2, 1, 1]
    browser.key("Home")
    assert browser.run("report.player.position") == 0
    browser.key("ArrowRight")
    assert browser.run("report.player.position") == 2
    for selector in (".wave", ".spectrogram"):
        browser.click(selector, 0.25)
        position = browser.run("report.player.position")
        assert abs(position - 0.25 * browser.run("report.data.duration")) < 0.05, (selector, position)
    browser.click(".track:nth-child(2) button")
    assert browser.run("report.choice.last") == 1
    browser.click("#play")
    time.sleep(0.5)
    assert browser.run("report.player.isPlaying && report.player.position > 0.9")
    left = browser.run("parseFloat(document.querySelector('.playhead').style.left)")
    assert 25 < left < 100, left
    assert not browser.errors, browser.errors
    return rate


def main():
    program, examples, folder = (pathlib.Path(word) for word in sys.argv[1:4])
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    if not chromium:
        print("left out: there is no chromium (scripts/deps.sh --browser installs it)")
        sys.exit(77)
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    page = make_page(program, examples, folder)
    browser = Browser(chromium)
    try:
        check(browser, page, pathlib.Path(sys.argv[4]) if len(sys.argv) > 4 else None)
    finally:
        browser.close()


main()
