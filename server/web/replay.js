// The replay page's player. It reads replay.json beside its own address (see server/views/ReplayJson.h
// for its shape) and plays it: screen captures drawn with pdf.js, touches over them, and the logs and
// network exchanges beside, all on one timeline in milliseconds since the session began.
//
// An address ending in "#at=MS" (and "&q=TEXT", the search that led here, as the listing's results
// link) opens the player at that time, paused.
//
// window.replayState mirrors what the page shows, for the browser test and for anyone debugging.

const base = location.pathname.replace(/\/+$/, "");
const $ = (id) => document.getElementById(id);

const state = (window.replayState = {
  ready: false, // the document is loaded and the panels are built
  error: null, // why the page could not load, shown in the notice too
  time: 0,
  duration: 0,
  playing: false,
  speed: 1,
  frameSeq: null, // seqID of the capture on the canvas
  framesDrawn: 0,
  touchMarks: 0, // touch marks drawn at the current time
  pdfjs: "loading", // "ready" | "missing"
});

// How long a finished touch stays visible, fading.
const TOUCH_LINGER_MS = 700;
const RENDER_CACHE = 40;

let doc = null;
let pdfjs = null;
let end = 0;
let logRows = [];
let clickedRow = null; // the log or network row the user last clicked
let netRows = [];
let lastTick = 0;

function notice(text) {
  const el = $("notice");
  el.textContent = text;
  el.hidden = false;
}

function formatTime(ms) {
  const total = Math.max(0, ms) / 1000;
  const minutes = Math.floor(total / 60);
  const seconds = (total - minutes * 60).toFixed(1).padStart(4, "0");
  return `${minutes}:${seconds}`;
}

function el(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined && text !== null) node.textContent = String(text);
  return node;
}

function keyValues(object) {
  const list = el("dl", "kv");
  for (const [key, value] of Object.entries(object)) {
    if (value === "" || value === null || value === undefined) continue;
    list.append(el("dt", null, key), el("dd", null, value));
  }
  return list;
}

// ---- frames ------------------------------------------------------------------------------------

async function loadPdfjs() {
  try {
    const module = await import("/assets/pdfjs/pdf.min.mjs");
    module.GlobalWorkerOptions.workerSrc = "/assets/pdfjs/pdf.worker.min.mjs";
    state.pdfjs = "ready";
    return module;
  } catch (error) {
    state.pdfjs = "missing";
    notice("pdf.js is not available on this server, so screen captures cannot be drawn (run scripts/setup). " +
           "Logs and network exchanges still play.");
    return null;
  }
}

const rendered = new Map(); // seqID -> Promise of a canvas holding the drawn page

function frameSize(frame, page) {
  // The screen's own size; a page without one (an older sender) shows whole.
  return [frame.width || page.view[2] - page.view[0], frame.height || page.view[3] - page.view[1]];
}

async function renderFrame(frame) {
  const task = pdfjs.getDocument({ url: frame.url, isEvalSupported: false });
  const pdf = await task.promise;
  try {
    const page = await pdf.getPage(1);
    const scale = Math.min(window.devicePixelRatio || 1, 3);
    const [width, height] = frameSize(frame, page);
    const canvas = document.createElement("canvas");
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(height * scale);
    const context = canvas.getContext("2d");
    context.fillStyle = "#fff";
    context.fillRect(0, 0, canvas.width, canvas.height);
    // One PDF point per screen point from the top-left corner; whatever of the page lies beyond the
    // screen's width and height falls off the canvas.
    await page.render({ canvasContext: context, viewport: page.getViewport({ scale }) }).promise;
    canvas.dataset.width = width;
    canvas.dataset.height = height;
    return canvas;
  } finally {
    pdf.destroy();
  }
}

function rendering(frame) {
  let promise = rendered.get(frame.seqID);
  if (!promise) {
    promise = renderFrame(frame);
    promise.catch(() => {}); // reported where it is awaited
    rendered.set(frame.seqID, promise);
    if (rendered.size > RENDER_CACHE) rendered.delete(rendered.keys().next().value);
  }
  return promise;
}

// The last capture taken at or before `t`; before the first one, the first.
function frameIndexAt(t) {
  const frames = doc.frames;
  let lo = 0, hi = frames.length - 1, found = 0;
  while (lo <= hi) {
    const mid = (lo + hi) >> 1;
    if (frames[mid].t <= t) { found = mid; lo = mid + 1; } else { hi = mid - 1; }
  }
  return found;
}

let wantedFrame = null;

function setStageSize(width, height) {
  const stage = $("stage"), wrap = $("stage-wrap");
  const fit = Math.min((wrap.clientWidth - 8) / width, (wrap.clientHeight - 8) / height, 1.5);
  const scale = fit > 0 ? fit : 1;
  stage.style.width = `${width * scale}px`;
  stage.style.height = `${height * scale}px`;
  const canvas = $("frame");
  canvas.style.width = "100%";
  canvas.style.height = "100%";
  $("touches").setAttribute("viewBox", `0 0 ${width} ${height}`);
  stage.dataset.width = width;
  stage.dataset.height = height;
}

async function showFrame(t) {
  if (!pdfjs || doc.frames.length === 0) return;
  const index = frameIndexAt(t);
  const frame = doc.frames[index];
  if (wantedFrame === frame.seqID) return;
  wantedFrame = frame.seqID;
  const next = doc.frames[index + 1];
  try {
    const page = await rendering(frame);
    if (next) rendering(next);
    if (wantedFrame !== frame.seqID) return; // a later seek asked for another
    const canvas = $("frame");
    canvas.width = page.width;
    canvas.height = page.height;
    canvas.getContext("2d").drawImage(page, 0, 0);
    setStageSize(Number(page.dataset.width), Number(page.dataset.height));
    $("stage-message").hidden = true;
    state.frameSeq = frame.seqID;
    state.framesDrawn += 1;
  } catch (error) {
    if (wantedFrame !== frame.seqID) return;
    $("stage-message").textContent = `Screen capture #${frame.seqID} cannot be drawn: ${error.message || error}`;
    $("stage-message").hidden = false;
  }
}

// ---- touches -----------------------------------------------------------------------------------

const SVG = "http://www.w3.org/2000/svg";

function drawTouches(t) {
  const svg = $("touches");
  svg.replaceChildren();
  let marks = 0;
  for (const stroke of doc.strokes) {
    if (t < stroke.start || t > stroke.end + TOUCH_LINGER_MS) continue;
    const points = stroke.points.filter((p) => p.t <= t);
    if (points.length === 0) continue;
    const group = document.createElementNS(SVG, "g");
    if (t > stroke.end) group.setAttribute("opacity", String(1 - (t - stroke.end) / TOUCH_LINGER_MS));
    if (points.length > 1) {
      const trail = document.createElementNS(SVG, "polyline");
      trail.setAttribute("class", "touch-trail");
      trail.setAttribute("points", points.map((p) => `${p.x},${p.y}`).join(" "));
      group.append(trail);
    }
    const at = points[points.length - 1];
    const mark = document.createElementNS(SVG, "circle");
    mark.setAttribute("class", "touch-mark");
    mark.setAttribute("cx", at.x);
    mark.setAttribute("cy", at.y);
    mark.setAttribute("r", 14);
    group.append(mark);
    svg.append(group);
    marks += 1;
  }
  state.touchMarks = marks;
}

// ---- panels ------------------------------------------------------------------------------------

function seekButton(row, t) {
  row.dataset.t = t;
  row.title = `Seek to ${formatTime(t)}`;
  row.addEventListener("click", () => {
    clickedRow = row;
    seek(t);
  });
}

function buildLogs() {
  const entries = doc.logs.map((log) => ({ ...log, kind: "log" }))
    .concat(doc.problems.map((p) => ({ ...p, kind: "problem" })))
    .sort((a, b) => a.t - b.t || a.seqID - b.seqID);
  const list = $("logs");
  for (const entry of entries) {
    const row = el("li", entry.kind === "problem" ? "problem" : null);
    row.append(el("span", "t", formatTime(entry.t)));
    if (entry.kind === "problem") {
      row.append(el("span", "lvl-ERROR", "BAD"),
                 el("span", "text", `Event #${entry.seqID} (${entry.type}) is malformed: ${entry.reason}`));
    } else {
      row.append(el("span", `lvl-${entry.level}`, entry.level), el("span", "text", entry.text));
    }
    seekButton(row, entry.t);
    list.append(row);
    logRows.push({ t: entry.t, row });
  }
  $("log-count").textContent = entries.length ? `(${entries.length})` : "";
  if (!entries.length) list.append(el("li", "muted", "No log lines"));
}

function showExchange(exchange) {
  const box = $("net-detail");
  box.replaceChildren();
  box.append(el("h3", null, `${exchange.method ?? ""} ${exchange.url ?? ""}`));
  box.append(keyValues({
    "request id": exchange.reqId,
    status: exchange.status ?? "no response recorded",
    started: exchange.t !== null ? formatTime(exchange.t) : "",
    duration: exchange.durationMs !== null ? `${exchange.durationMs.toFixed(1)} ms` : "",
  }));
  for (const [title, headers] of [["Request headers", exchange.requestHeaders],
                                  ["Response headers", exchange.responseHeaders]]) {
    if (!headers || Object.keys(headers).length === 0) continue;
    box.append(el("h3", null, title), keyValues(headers));
  }
  for (const [title, body] of [["Request body", exchange.requestBody], ["Response body", exchange.responseBody]]) {
    if (body === null || body === undefined) continue;
    box.append(el("h3", null, title), el("pre", null, body === "" ? "(empty)" : body));
  }
  box.hidden = false;
}

function buildNetwork() {
  const list = $("network");
  for (const exchange of doc.network) {
    const row = el("li");
    const bad = exchange.status === null || exchange.status >= 400;
    row.append(el("span", "t", formatTime(exchange.t)), el("span", null, exchange.method),
               el("span", bad ? "st-bad" : null, exchange.status ?? "…"),
               el("span", "url", exchange.url), el("span", "t",
               exchange.durationMs !== null ? `${Math.round(exchange.durationMs)} ms` : ""));
    row.querySelector(".url").title = exchange.url;
    seekButton(row, exchange.t);
    row.addEventListener("click", () => showExchange(exchange));
    list.append(row);
    netRows.push({ t: exchange.t, row });
  }
  $("net-count").textContent = doc.network.length ? `(${doc.network.length})` : "";
  if (!doc.network.length) list.append(el("li", "muted", "No network exchanges"));
}

function buildWho() {
  if (doc.user) {
    const { traits, isAnonymous, ...fields } = doc.user;
    const box = $("user");
    box.classList.remove("muted");
    box.replaceChildren(keyValues({ ...fields, anonymous: isAnonymous ? "yes" : "no", ...traits }));
  }
  if (doc.device) {
    const box = $("device");
    box.classList.remove("muted");
    box.replaceChildren(keyValues({
      model: doc.device.deviceName, system: doc.device.release, maker: doc.device.manufacturer,
      family: doc.device.deviceType, "library version": doc.device.sdkVersion,
    }));
  }
}

function buildTicks() {
  const ticks = $("ticks");
  const add = (t, kind) => {
    const tick = el("span", `tick ${kind}`);
    tick.style.left = `${end > 0 ? (100 * t) / end : 0}%`;
    ticks.append(tick);
  };
  doc.frames.forEach((f) => add(f.t, "frame"));
  doc.logs.forEach((l) => add(l.t, "log"));
  doc.network.forEach((n) => add(n.t, "network"));
  doc.strokes.forEach((s) => add(s.start, "touch"));
  doc.problems.forEach((p) => add(p.t, "problem"));
}

// Rows at or before the time are "past", the latest of them "current"; a row that becomes current
// scrolls into view, so the panels follow the player (once, not on every frame it stays current).
// Of several rows at the same time, the one last clicked is the current one.
function markRows(rows, t, follow) {
  let current = null;
  let clicked = null;
  for (const entry of rows) {
    const past = entry.t <= t;
    entry.row.classList.toggle("past", past);
    if (past) current = entry;
    if (entry.row === clickedRow) clicked = entry;
  }
  if (clicked && current && clicked.t === current.t) current = clicked;
  if (current === rows.current) return;
  rows.current?.row.classList.remove("current");
  rows.current = current;
  if (current) {
    current.row.classList.add("current");
    if (follow) current.row.scrollIntoView({ block: "nearest" });
  }
}

// ---- the clock ---------------------------------------------------------------------------------

function render(follow) {
  const t = state.time;
  $("seek").value = String(Math.round(t));
  $("clock").textContent = `${formatTime(t)} / ${formatTime(end)}`;
  if (doc.startTime !== null) $("clock").title = new Date(doc.startTime + t).toISOString();
  showFrame(t);
  drawTouches(t);
  markRows(logRows, t, follow);
  markRows(netRows, t, follow);
}

function seek(t) {
  state.time = Math.min(Math.max(0, t), end);
  render(true);
}

function tick(now) {
  if (!state.playing) return;
  const elapsed = now - lastTick;
  lastTick = now;
  state.time = Math.min(end, state.time + elapsed * state.speed);
  render(true);
  if (state.time >= end) {
    pause();
    return;
  }
  requestAnimationFrame(tick);
}

function play() {
  if (state.time >= end) state.time = 0;
  state.playing = true;
  $("play").textContent = "Pause";
  lastTick = performance.now();
  requestAnimationFrame(tick);
}

function pause() {
  state.playing = false;
  $("play").textContent = "Play";
}

// replay.json comes a page of events at a time (the server never holds a whole recording); the
// pages are joined here as the server would have joined them: a stroke that goes on from an earlier
// page (it has no DOWN of its own) continues the nearest open stroke, and the two halves of a
// network exchange fill each other's missing fields.
function joinPage(whole, page) {
  if (!whole) {
    whole = { ...page, network: [] };
    page = { ...page, frames: [], strokes: [], logs: [], problems: [] };
  }
  whole.frames.push(...page.frames);
  whole.logs.push(...page.logs);
  whole.problems.push(...page.problems);
  whole.duration = Math.max(whole.duration, page.duration);
  if (whole.startTime === null) whole.startTime = page.startTime;
  whole.device = page.device || whole.device;
  whole.user = page.user || whole.user;
  for (const stroke of page.strokes) {
    const first = stroke.points[0];
    let nearest = null;
    let distance = Infinity;
    if (first.phase !== "DOWN") {
      for (const open of whole.strokes) {
        if (open.ended) continue;
        const last = open.points[open.points.length - 1];
        const d = Math.hypot(last.x - first.x, last.y - first.y);
        if (d < distance) [nearest, distance] = [open, d];
      }
    }
    if (!nearest) {
      whole.strokes.push(stroke);
      continue;
    }
    nearest.points.push(...stroke.points);
    nearest.end = stroke.end;
    nearest.ended = stroke.ended;
  }
  whole.exchanges ??= new Map();
  for (const exchange of page.network) {
    const known = whole.exchanges.get(exchange.reqId);
    if (!known) {
      whole.exchanges.set(exchange.reqId, exchange);
      whole.network.push(exchange);
      continue;
    }
    for (const [key, value] of Object.entries(exchange)) if (known[key] === null) known[key] = value;
  }
  return whole;
}

async function loadDocument() {
  let whole = null;
  let after = null;
  do {
    const reply = await fetch(`${base}/replay.json${after === null ? "" : `?after=${after}`}`, { cache: "no-store" });
    if (!reply.ok) throw new Error(reply.status === 404 ? "there is no such recording" : `HTTP ${reply.status}`);
    const page = await reply.json();
    whole = joinPage(whole, page);
    after = page.next;
  } while (after !== null);
  whole.network.sort((a, b) => a.t - b.t);
  delete whole.exchanges;
  return whole;
}

async function main() {
  try {
    doc = await loadDocument();
  } catch (error) {
    state.error = String(error.message || error);
    notice(`This recording cannot be loaded: ${state.error}.`);
    $("stage-message").textContent = "Nothing to play";
    return;
  }
  document.title = `Replay ${doc.recordingID}`;
  $("title").textContent = `${doc.appID} · recording ${doc.recordingID} · session ${doc.sessionID}`;
  // Every touch sample is placed at or before its event's time, so the last event ends it all.
  end = state.duration = doc.duration + 500;
  $("seek").max = String(Math.ceil(end));

  buildWho();
  buildLogs();
  buildNetwork();
  buildTicks();
  if (doc.problems.length) {
    notice(`${doc.problems.length} stored event(s) could not be read; they are marked in the log panel.`);
  }

  $("play").disabled = false;
  $("play").addEventListener("click", () => (state.playing ? pause() : play()));
  $("seek").addEventListener("input", (e) => seek(Number(e.target.value)));
  $("speed").addEventListener("change", (e) => (state.speed = Number(e.target.value)));
  document.addEventListener("keydown", (e) => {
    if (e.code === "Space" && e.target === document.body) {
      e.preventDefault();
      state.playing ? pause() : play();
    }
  });
  window.addEventListener("resize", () => {
    const stage = $("stage");
    if (stage.dataset.width) setStageSize(Number(stage.dataset.width), Number(stage.dataset.height));
  });

  if (doc.frames.length === 0) {
    setStageSize(390, 844);
    $("stage-message").textContent = "This recording has no screen captures.";
  } else {
    const first = doc.frames[0];
    setStageSize(first.width || 390, first.height || 844);
    $("stage-message").textContent = "Drawing…";
    pdfjs = await loadPdfjs();
    if (!pdfjs) $("stage-message").textContent = "Screen captures cannot be drawn without pdf.js.";
  }
  state.ready = true;
  if (!seekToAddress()) render(false);
  window.addEventListener("hashchange", seekToAddress);
}

// The moment the address names, if it names one; tells what was searched for there.
function seekToAddress() {
  const fields = new URLSearchParams(location.hash.slice(1));
  const at = Number(fields.get("at") ?? NaN);
  if (!fields.has("at") || !Number.isFinite(at)) return false;
  pause();
  seek(at);
  const query = fields.get("q");
  const found = $("found");
  found.textContent = query ? `“${query}” at ${formatTime(at)}` : `At ${formatTime(at)}`;
  found.hidden = false;
  return true;
}

main();
