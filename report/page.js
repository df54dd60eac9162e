"use strict";

// Plays several sounds of one length at the same position. All of them run all the time, each through
// a gain of its own: what is heard changes without a gap and without a click. Sounds may be added while it
// plays.
class Player {
  static FADE = 0.01; // seconds
  static AHEAD = 0.02; // seconds from a start to the first sample

  // duration: seconds
  constructor(context, count, duration) {
    this.context = context;
    this.duration = duration;
    this.output = context.createGain();
    this.output.connect(context.destination);
    this.tracks = Array.from({ length: count }, () => this.emptyTrack());
    this.offset = 0; // seconds; where it stands, or stood when it was started
    this.fades = new Map(); // the last one of each parameter
    this.started = null; // the context's time of the first sample; null: it stands
  }

  emptyTrack() {
    const gain = this.context.createGain();
    gain.gain.value = 0;
    gain.connect(this.output);
    return { buffer: null, gain, source: null };
  }

  add(i, buffer) {
    const track = this.tracks[i];
    track.buffer = buffer;
    if (this.isPlaying) this.start(track, Math.max(this.started, this.context.currentTime + Player.AHEAD));
  }

  // time: the context's, a whole number of samples after the others started
  start(track, time) {
    track.source = this.context.createBufferSource();
    track.source.buffer = track.buffer;
    track.source.connect(track.gain);
    track.source.start(time, Math.min(this.offset + time - this.started, track.buffer.duration));
  }

  get isPlaying() {
    return this.started !== null;
  }

  get position() {
    if (!this.isPlaying) return this.offset;
    const elapsed = Math.max(0, this.context.currentTime - this.started);
    return Math.min(this.duration, this.offset + elapsed);
  }

  play() {
    if (this.isPlaying) return;
    this.context.resume();
    if (this.offset >= this.duration) this.offset = 0;
    this.started = this.context.currentTime + Player.AHEAD;
    this.fade(this.output.gain, 1, this.started, 0);
    for (const track of this.tracks) {
      if (track.buffer) this.start(track, this.started);
    }
  }

  pause() {
    if (!this.isPlaying) return;
    this.offset = this.position;
    this.started = null;
    const now = this.context.currentTime;
    this.fade(this.output.gain, 0, now);
    for (const track of this.tracks) track.source?.stop(now + Player.FADE);
  }

  seek(seconds) {
    const goesOn = this.isPlaying;
    this.pause();
    this.offset = Math.min(this.duration, Math.max(0, seconds));
    if (goesOn) this.play();
  }

  // gains: a factor for each sound
  hear(gains) {
    gains.forEach((gain, i) => this.fade(this.tracks[i].gain.gain, gain, this.context.currentTime));
  }

  // From where the last fade has come, unless told otherwise. Not every browser says where that is.
  fade(parameter, value, time, from) {
    const last = this.fades.get(parameter) ?? { from: parameter.value, to: parameter.value, time: 0 };
    const share = Math.min(1, Math.max(0, (time - last.time) / Player.FADE));
    from ??= last.from + (last.to - last.from) * share;
    this.fades.set(parameter, { from, to: value, time });
    parameter.cancelScheduledValues(time);
    parameter.setValueAtTime(from, time);
    parameter.linearRampToValueAtTime(value, time + Player.FADE);
  }
}

// Which sounds are heard: those chosen alone ("solo") and not muted.
class Choice {
  constructor(count, changed) {
    this.solo = new Set([0]);
    this.muted = new Set();
    this.last = 0; // chosen last
    this.before = Math.min(1, count - 1); // and before it
    this.changed = changed;
  }

  isHeard(i) {
    return this.solo.has(i) && !this.muted.has(i);
  }

  choose(i, beside) {
    if (i !== this.last) this.before = this.last;
    this.last = i;
    if (!beside) {
      this.solo = new Set([i]);
      this.muted.delete(i);
    } else if (this.solo.has(i) && this.solo.size > 1) {
      this.solo.delete(i);
    } else {
      this.solo.add(i);
    }
    this.changed();
  }

  mute(i) {
    if (!this.muted.delete(i)) this.muted.add(i);
    this.changed();
  }
}

const element = (id) => document.getElementById(id);

function make(parent, tag, properties = {}, text = "") {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) node.setAttribute(name, value);
  node.textContent = text;
  parent.append(node);
  return node;
}

function bytesOf(base64) {
  const text = atob(base64);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) bytes[i] = text.charCodeAt(i);
  return bytes.buffer;
}

function clock(seconds) {
  const minutes = Math.floor(seconds / 60);
  return `${minutes}:${(seconds - 60 * minutes).toFixed(1).padStart(4, "0")}`;
}

// The largest modulus of each of `count` equal parts.
function peaksOf(samples, count) {
  const peaks = new Float32Array(count);
  const step = samples.length / count;
  for (let i = 0; i < count; ++i) {
    const end = Math.min(samples.length, Math.ceil((i + 1) * step));
    for (let n = Math.floor(i * step); n < end; ++n) {
      const modulus = Math.abs(samples[n]);
      if (modulus > peaks[i]) peaks[i] = modulus;
    }
  }
  return peaks;
}

// The root of the mean power where there is sound.
function loudnessOf(samples) {
  let sum = 0;
  let count = 0;
  for (const sample of samples) {
    if (Math.abs(sample) < 1e-4) continue;
    sum += sample * sample;
    ++count;
  }
  return count > 0 ? Math.sqrt(sum / count) : 0;
}

class Report {
  constructor(data) {
    this.data = data;
    this.playheads = [];
    this.waves = [];
    this.rows = data.tracks.map((track, i) => this.addTrack(track, i));
    this.choice = new Choice(data.tracks.length, () => this.update());
    element("notes").textContent = `${data.sound_note} ${data.level_note}`;
    this.addTimeline();
    this.addScene();
    this.addPatterns();
    this.addScores();
    this.addRuns();
  }

  addTrack(track, i) {
    const row = make(element("tracks"), "div", { class: "track", role: "group", "aria-label": track.name });
    const about = make(row, "div");
    make(about, "div", { class: "name" }, i < 9 ? `${i + 1}  ${track.name}` : track.name);
    make(about, "div", { class: "place" }, track.place);
    const buttons = make(about, "div", { class: "buttons" });
    const solo = make(buttons, "button", { type: "button", disabled: "", "aria-label": `Hear ${track.name}` }, "Hear");
    const mute = make(buttons, "button", { type: "button", disabled: "", "aria-label": `Mute ${track.name}` }, "Mute");
    solo.addEventListener("click", (event) => this.choice.choose(i, event.shiftKey || event.ctrlKey));
    mute.addEventListener("click", () => this.choice.mute(i));
    const views = make(row, "div", { class: "views" });
    const wave = make(views, "div", { class: "wave" });
    const frame = make(views, "div", { class: "spectrogram" });
    const share = (seconds) => `${(100 * seconds) / this.data.duration}%`;
    make(frame, "img", {
      style: `left:${share(track.spectrogram_begin)};width:${share(track.spectrogram_length)}`,
      alt: `Spectrogram of ${track.name}, 0 to ${this.data.sampling_rate / 2000} kHz`,
      src: `data:image/png;base64,${track.spectrogram}`,
    });
    frame.addEventListener("click", (event) => {
      const box = frame.getBoundingClientRect();
      this.seek(((event.clientX - box.left) / box.width) * this.data.duration);
    });
    make(views, "span", { class: "axis" }, `0–${this.data.sampling_rate / 2000} kHz`);
    this.addPlayhead(views);
    return { row, solo, mute, wave };
  }

  addPlayhead(parent) {
    this.playheads.push(make(parent, "div", { class: "playhead" }));
  }

  addTimeline() {
    for (const track of this.data.tracks.filter((one) => one.kind === "source")) {
      const row = make(element("timeline"), "div", { class: "row" });
      make(row, "div", {}, track.name);
      const times = track.active.map(([begin, end]) => `${begin.toFixed(2)} to ${end.toFixed(2)} s`);
      const bars = make(row, "div", {
        class: "bars",
        role: "img",
        "aria-label": `${track.name} is active: ${times.join(", ") || "never"}`,
      });
      for (const [begin, end] of track.active) {
        const left = (100 * begin) / this.data.duration;
        const width = (100 * (end - begin)) / this.data.duration;
        make(bars, "div", { class: "bar", style: `left:${left}%;width:${width}%` });
      }
      this.addPlayhead(bars);
    }
  }

  addScene() {
    if (!this.data.scene) return;
    make(element("scene"), "img", {
      class: "picture",
      alt: "The scene from above, and who is active when",
      src: `data:image/svg+xml;base64,${this.data.scene}`,
    });
  }

  addPatterns() {
    const runs = this.data.runs.filter((run) => run.patterns.length > 0);
    if (runs.length === 0) return;
    element("patterns").hidden = false;
    const chosenRun = element("pattern-run");
    const chosenSource = element("pattern-source");
    runs.forEach((run, i) => make(chosenRun, "option", { value: i }, run.name));
    const listSources = () => {
      this.patterns = runs[chosenRun.value].patterns;
      const before = chosenSource.value;
      const ids = [...new Set(this.patterns.map((pattern) => String(pattern.source)))];
      chosenSource.replaceChildren();
      for (const id of ids) make(chosenSource, "option", { value: id }, id);
      if (ids.includes(before)) chosenSource.value = before;
      this.showPattern(true);
    };
    chosenRun.addEventListener("change", listSources);
    chosenSource.addEventListener("change", () => this.showPattern(true));
    listSources();
  }

  // The chosen source's latest picture that is not after the playhead, else its first one.
  showPattern(anew) {
    if (!this.patterns) return;
    const id = Number(element("pattern-source").value);
    const now = this.player ? this.player.position : 0;
    const all = this.patterns.filter((pattern) => pattern.source === id);
    const pattern = all.filter((one) => one.time <= now + 1e-6).at(-1) ?? all[0];
    if (!anew && pattern === this.shownPattern) return;
    this.shownPattern = pattern;
    const image = element("pattern");
    image.alt = `Gain by direction for source ${id}, from ${pattern.time.toFixed(2)} s on`;
    image.src = `data:image/svg+xml;base64,${pattern.svg}`;
  }

  addScores() {
    const runs = this.data.runs.filter((run) => run.scores.length > 0);
    if (runs.length === 0) return;
    element("scores").hidden = false;
    element("score-note").textContent = this.data.score_note;
    for (const run of runs) {
      make(element("score-tables"), "h3", {}, run.name);
      const scroll = { class: "scroll", tabindex: 0, role: "group", "aria-label": `Scores of ${run.name}` };
      const table = make(make(element("score-tables"), "div", scroll), "table");
      const head = make(make(table, "thead"), "tr");
      for (const text of this.data.score_heads) make(head, "th", { scope: "col" }, text);
      const body = make(table, "tbody");
      for (const scores of run.scores) {
        const row = make(body, "tr");
        for (const text of scores) make(row, "td", {}, text);
      }
    }
  }

  addRuns() {
    for (const run of this.data.runs) {
      make(element("runs"), "h3", {}, run.name);
      for (const warning of run.warnings) make(element("runs"), "p", { class: "warning" }, `Warning: ${warning}`);
      const body = make(make(element("runs"), "table", { class: "facts" }), "tbody");
      for (const [name, value] of run.facts) {
        const row = make(body, "tr");
        make(row, "td", {}, name);
        make(row, "td", {}, value);
      }
    }
  }

  // The first sound can be heard while the others are loaded.
  async load() {
    const { tracks, duration, sampling_rate } = this.data;
    this.player = new Player(new AudioContext({ sampleRate: sampling_rate }), tracks.length, duration);
    this.loudness = tracks.map(() => 0);
    await this.loadSound(0);
    this.listenToPerson();
    this.follow();
    let next = 1;
    const loadMore = async () => {
      while (next < tracks.length) await this.loadSound(next++);
    };
    await Promise.all([loadMore(), loadMore()]);
    element("state").textContent = "";
    document.body.dataset.ready = "yes";
  }

  async loadSound(i) {
    const { tracks, duration, peak } = this.data;
    element("state").textContent = `Loading sound ${i + 1} of ${tracks.length} …`;
    const buffer = await this.player.context.decodeAudioData(bytesOf(tracks[i].sound));
    tracks[i].sound = null;
    const samples = buffer.getChannelData(0);
    this.loudness[i] = loudnessOf(samples);
    const wave = WaveSurfer.create({
      container: this.rows[i].wave,
      height: 56,
      peaks: [peaksOf(samples, 1600).map((one) => one / peak)],
      duration,
      ...this.waveColours(),
      cursorWidth: 0,
    });
    wave.on("interaction", (seconds) => this.seek(seconds));
    wave.setTime(this.player.position);
    this.waves.push(wave);
    this.rows[i].solo.disabled = this.rows[i].mute.disabled = false;
    this.player.add(i, buffer);
    this.update();
  }

  waveColours() {
    const style = getComputedStyle(document.documentElement);
    return { waveColor: style.getPropertyValue("--wave"), progressColor: style.getPropertyValue("--accent") };
  }

  listenToPerson() {
    const slider = element("position");
    slider.max = this.data.duration;
    slider.disabled = element("play").disabled = false;
    slider.addEventListener("input", () => this.seek(Number(slider.value)));
    element("play").addEventListener("click", () => this.toggle());
    element("loudness").addEventListener("change", () => this.update());
    document.addEventListener("keydown", (event) => this.key(event));
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      for (const wave of this.waves) wave.setOptions(this.waveColours());
    });
  }

  key(event) {
    const target = event.target;
    if (event.altKey || event.metaKey || event.ctrlKey || target.matches("select, input[type=checkbox]")) return;
    const digit = /^Digit([1-9])$/.exec(event.code);
    const { choice, player } = this;
    if (digit) {
      const i = Number(digit[1]) - 1;
      if (i < this.rows.length) choice.choose(i, event.shiftKey);
    } else if (event.key === " " && !target.matches("button, summary")) this.toggle();
    else if (event.key === "ArrowUp") choice.choose(Math.max(0, choice.last - 1), false);
    else if (event.key === "ArrowDown") choice.choose(Math.min(this.rows.length - 1, choice.last + 1), false);
    else if (event.key === "x") choice.choose(choice.before, false);
    else if (event.key === "m") choice.mute(choice.last);
    else if (event.key === "ArrowLeft") this.seek(player.position - 2);
    else if (event.key === "ArrowRight") this.seek(player.position + 2);
    else if (event.key === "Home") this.seek(0);
    else return;
    event.preventDefault();
  }

  toggle() {
    if (this.player.isPlaying) this.player.pause();
    else this.player.play();
    this.update();
  }

  seek(seconds) {
    this.player.seek(seconds);
    this.show();
  }

  update() {
    const { choice, player } = this;
    const loudest = Math.max(...this.loudness);
    const same = element("loudness").checked;
    // Quieter ones are raised by 20 dB at most, and all lowered so that none clips.
    const factors = this.loudness.map((one) => (same && one > 0 ? Math.min(10, loudest / one) / 2 : 1));
    player.hear(factors.map((factor, i) => (choice.isHeard(i) ? factor : 0)));
    this.rows.forEach(({ row, solo, mute }, i) => {
      row.classList.toggle("heard", choice.isHeard(i));
      solo.setAttribute("aria-pressed", choice.solo.has(i));
      mute.setAttribute("aria-pressed", choice.muted.has(i));
    });
    element("play").textContent = player.isPlaying ? "Pause" : "Play";
  }

  // Moves everything to the playhead.
  show() {
    const now = this.player.position;
    const share = Math.min(1, now / this.data.duration);
    for (const playhead of this.playheads) playhead.style.left = `${100 * share}%`;
    for (const wave of this.waves) wave.setTime(now);
    element("position").value = now;
    element("time").textContent = `${clock(now)} of ${clock(this.data.duration)}`;
    this.showPattern(false);
  }

  follow() {
    if (this.player.isPlaying && this.player.position >= this.player.duration) {
      this.player.pause();
      this.update();
    }
    if (this.player.isPlaying || this.shown !== this.player.position) this.show();
    this.shown = this.player.position;
    requestAnimationFrame(() => this.follow());
  }
}

const report = new Report(JSON.parse(element("data").textContent));
report.load().catch((error) => {
  element("state").textContent = `The sounds cannot be played here: ${error.message}`;
  throw error;
});
