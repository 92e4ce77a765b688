// The page asks for the state once a second and shows it. Whatever comes from the disk (names, paths) is put in
// as text, never as markup.
"use strict";

const INTERVAL_MS = 1000;
const PATIENCE_MS = 5000;
const LATE_SECONDS = 5;
const SAMPLES_MAX = 300;
const UNITS = ["B", "kB", "MB", "GB", "TB", "PB"];
const STATUS = { online: ["online", "good"], offline: ["offline", "bad"], not_responding: ["not responding", "bad"] };

const cards = new Map();    // by path of the location
const samples = new Map();  // by path: { time, read, write, free }, arrays of one length
let chartsWanted = null;    // the promise of the program that draws them

const $ = (id) => document.getElementById(id);

function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

function bytes(value) {
  if (value === null || value === undefined) return "–";
  let unit = 0;
  while (value >= 1000 && unit + 1 < UNITS.length) { value /= 1000; ++unit; }
  return (unit === 0 ? value.toFixed(0) : value.toFixed(1)) + " " + UNITS[unit];
}
const rate = (value) => value === null || value === undefined ? "–" : bytes(value) + "/s";

function minutes(value) {
  if (value === null) return "–";
  if (value < 60) return value + " min";
  return value < 48 * 60 ? Math.floor(value / 60) + " h " + (value % 60) + " min" : Math.floor(value / 1440) + " days";
}

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// --- locations

function makeCard(path) {
  const card = { element: make("article", "card"), badges: make("span", "badges"), name: make("h3"), path: make("p", "path", path),
    meter: make("meter"), space: make("span"), time: make("span"), charts: [] };
  card.element.dataset.path = path;
  const top = make("div", "top");
  top.append(card.name, card.badges);
  const figures = make("p", "figures");
  figures.append(card.space, card.time);
  card.meter.max = 1;
  card.meter.high = 0.93;
  card.meter.optimum = 0;
  card.element.append(top, card.path, card.meter, figures);
  return card;
}

function fillBadges(card, location) {
  const [text, kind] = STATUS[location.status];
  const wanted = [[text, kind]];
  if (location.slow) wanted.push(["slow", "warn"]);
  if (location.type) wanted.push([location.type, ""]);
  const key = JSON.stringify(wanted);
  if (card.key === key) return;
  card.key = key;
  card.badges.replaceChildren(...wanted.map(([label, look]) => make("span", "badge " + look, label)));
}

function fillCard(card, location) {
  setText(card.name, location.name || location.path);
  fillBadges(card, location);
  card.element.dataset.status = location.status;
  const known = location.total_bytes > 0;
  card.meter.hidden = !known;
  if (known) {
    card.meter.value = 1 - location.free_bytes / location.total_bytes;
    card.meter.title = Math.round(card.meter.value * 100) + " % used";
  }
  setText(card.space, known ? bytes(location.free_bytes) + " free of " + bytes(location.total_bytes) : "Connect it to see its space");
  setText(card.time, location.minutes_left === null ? "" : minutes(location.minutes_left) + " left at " + rate(location.record_rate));
  for (const chart of card.charts) chart.show(location);
}

function showLocations(locations) {
  const present = new Set(locations.map((location) => location.path));
  for (const [path, card] of cards) {
    if (present.has(path)) continue;
    for (const chart of card.charts) chart.end();
    card.element.remove();
    cards.delete(path);
    samples.delete(path);
  }
  for (const location of locations) {
    if (!cards.has(location.path)) {
      cards.set(location.path, makeCard(location.path));
      $("locations").append(cards.get(location.path).element);
    }
    fillCard(cards.get(location.path), location);
  }
  $("no-locations").hidden = locations.length > 0;
}

// --- charts

const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

class Chart {
  // lines: [key of the samples, CSS variable, label of the title, key of the location]
  constructor(card, title, lines, format) {
    this.path = card.element.dataset.path;
    this.card = card;
    this.lines = lines;
    this.format = format;
    this.element = make("div", "chart");
    const head = make("div", "title");
    head.append(make("span", "", title));
    this.values = lines.map(([key]) => head.appendChild(make("span", key)));
    this.plotPlace = make("div", "plot");
    this.element.append(head, this.plotPlace);
    card.element.append(this.element);
    this.draw();
  }

  draw() {
    this.end();
    const axis = { stroke: colour("--quiet"), grid: { stroke: colour("--line"), width: 1 }, ticks: { show: false }, font: "11px sans-serif" };
    this.plot = new uPlot({
      width: this.width(), height: 110, padding: [8, 28, 0, 0], legend: { show: false }, cursor: { show: false },
      scales: { y: { range: (plot, low, high) => [0, Math.max(high * 1.1, 1000)] } },
      axes: [{ ...axis, size: 24, space: 90, values: (plot, times) => times.map((time) => new Date(time * 1000).toLocaleTimeString([], { hour: "2-digit", minute: "2-digit", second: "2-digit", hourCycle: "h23" })) },
        { ...axis, size: 66, space: 22, values: (plot, values) => values.map((value) => this.format(value)) }],
      series: [{}, ...this.lines.map(([, variable]) => ({ stroke: colour(variable), width: 1.5, points: { show: false }, spanGaps: false }))],
    }, this.data(), this.plotPlace);
  }

  width() { return Math.max(120, this.card.element.clientWidth - 32); }
  data() {
    const known = samples.get(this.path) || { time: [], read: [], write: [], free: [] };
    return [known.time, ...this.lines.map(([key]) => known[key])];
  }
  show(location) {
    this.lines.forEach(([, , label, key], index) => setText(this.values[index], label + this.format(location[key])));
    this.plot.setData(this.data());
    if (this.plot.width !== this.width()) this.plot.setSize({ width: this.width(), height: 110 });
  }
  end() {
    if (this.plot) this.plot.destroy();
    this.plot = null;
  }
}

function addCharts(card) {
  card.charts.push(new Chart(card, "Throughput", [["read", "--read", "read ", "read_rate"], ["write", "--write", "write ", "write_rate"]], rate));
  card.charts.push(new Chart(card, "Free space", [["free", "--free", "", "free_bytes"]], bytes));
}

function loadCharts() {
  const style = make("link");
  style.rel = "stylesheet";
  style.href = "uPlot.css";
  const program = make("script");
  program.src = "uPlot.js";
  return new Promise((resolve) => {
    program.onload = () => resolve(true);
    program.onerror = () => resolve(false);
    document.head.append(style, program);
  });
}

async function startCharts(isBuiltIn) {
  $("license").hidden = !isBuiltIn;
  $("no-charts").hidden = isBuiltIn;
  if (!isBuiltIn || !(await loadCharts())) return;
  const history = await ask("api/history");
  for (const known of history.locations)
    samples.set(known.path, { time: known.time, read: known.read_rate, write: known.write_rate, free: known.free_bytes });
}

function keepSample(state) {
  for (const location of state.locations) {
    const known = samples.get(location.path) || { time: [], read: [], write: [], free: [] };
    samples.set(location.path, known);
    if (known.time.length > 0 && state.time <= known.time[known.time.length - 1]) continue;
    known.time.push(state.time);
    known.read.push(location.read_rate);
    known.write.push(location.write_rate);
    known.free.push(location.free_bytes);
    if (known.time.length > SAMPLES_MAX) for (const key of ["time", "read", "write", "free"]) known[key].shift();
  }
}

// --- tables

function cell(title, content, className) {
  const element = make("td", className || "");
  element.dataset.title = title;
  if (content instanceof Node) element.append(content);
  else element.textContent = content;
  return element;
}

function fillTable(name, rows, emptyNote) {
  $(name).tBodies[0].replaceChildren(...rows);
  $(name).hidden = rows.length === 0;
  $(emptyNote).hidden = rows.length > 0;
}

function showRecordings(recordings, names) {
  fillTable("recordings", recordings.map((recording) => {
    const row = make("tr");
    row.dataset.file = recording.file;
    const state = recording.growing ? make("span", "badge good", "recording") : make("span", "badge warn", "not growing");
    row.append(cell("Recording", recording.file), cell("Location", names.get(recording.location) || recording.location),
      cell("Size", bytes(recording.bytes), "number"), cell("Growth", rate(recording.rate), "number"), cell("State", state));
    return row;
  }), "no-recordings");
}

function showClips(clips) {
  fillTable("clips", clips.listed.map((clip) => {
    const row = make("tr");
    row.dataset.cookie = clip.cookie;
    const connect = clip.connect.map((place) => (place.name ? place.name + ": " : "") + place.folder).join(", ");
    row.append(cell("Clip", clip.cookie), cell("Offline", clip.offline === "all" ? "all of it" : "in part"),
      cell("Proxy", clip.proxy_online ? "online" : "–"), cell("Connect", connect || "–"));
    return row;
  }), "no-clips");
  const more = clips.offline + clips.partly_offline - clips.listed.length;
  $("more-clips").hidden = more <= 0;
  setText($("more-clips"), more + " more; fsys status --offline lists all.");
}

function showSummary(state) {
  const online = state.locations.filter((location) => location.status === "online").length;
  const count = (number, one, more) => [number, number === 1 ? one : more];
  const figures = [[online + " of " + state.locations.length, "locations online"],
    count(state.clips.total, "clip known", "clips known"),
    count(state.clips.offline + state.clips.partly_offline, "clip offline", "clips offline"),
    count(state.recordings.filter((recording) => recording.growing).length, "recording growing", "recordings growing")];
  $("summary").replaceChildren(...figures.map(([value, text]) => {
    const figure = make("span");
    figure.append(make("b", "", String(value)), " " + text);
    return figure;
  }));
}

// --- the loop

function tell(text, isLate) {
  setText($("news"), text);
  $("news").classList.toggle("late", isLate);
}

async function ask(path) {
  const answer = await fetch(path, { signal: AbortSignal.timeout(PATIENCE_MS), cache: "no-store" });
  if (!answer.ok) throw new Error(path + ": " + answer.status);
  return answer.json();
}

function show(state) {
  setText($("machine"), state.machine);
  keepSample(state);
  showSummary(state);
  showLocations(state.locations);
  if (window.uPlot)
    for (const location of state.locations) {
      const card = cards.get(location.path);
      if (card.charts.length > 0) continue;
      addCharts(card);
      for (const chart of card.charts) chart.show(location);
    }
  showRecordings(state.recordings, new Map(state.locations.map((location) => [location.id, location.name])));
  showClips(state.clips);
  const isLate = state.age_seconds > LATE_SECONDS;
  tell(isLate ? "no news for " + Math.round(state.age_seconds) + " s: a location may not answer" : "live", isLate);
}

async function step() {
  try {
    const state = await ask("api/state");
    if (!chartsWanted) {
      chartsWanted = startCharts(state.charts);
      await chartsWanted;
    }
    show(state);
  } catch (error) {
    tell("fsys serve does not answer", true);
  }
  setTimeout(step, INTERVAL_MS);
}

matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
  for (const card of cards.values()) for (const chart of card.charts) chart.draw();
});
step();
