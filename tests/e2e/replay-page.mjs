// The replay page in headless Chromium, on a real recording: the reference server is started, the
// demo host records a session into it, touches are added, and the page is played, seeked and
// clicked through as a person would; the listing is searched for a word the demo's screens showed
// and for the password its user typed into a secure field, and the player's HAR link is followed
// and its file checked against the HAR 1.2 JSON schema. Leaves screenshots of the player and of the
// search in --out.
//
//   node replay-page.mjs --server BIN --demo BIN --encode BIN --out DIR
//
// Exit 0 when every check passes, 1 on a failure, 77 when Chromium or playwright-core is missing.
import { spawn, execFile } from "node:child_process";
import fs from "node:fs";
import { createRequire } from "node:module";
import os from "node:os";
import path from "node:path";

const SKIP = 77;
const args = {};
for (let i = 2; i + 1 < process.argv.length; i += 2) args[process.argv[i].replace(/^--/, "")] = process.argv[i + 1];
for (const name of ["server", "demo", "encode", "out"]) {
  if (!args[name]) {
    console.error(`missing --${name}`);
    process.exit(2);
  }
}

let chromium, harSchemaCheck;
try {
  ({ chromium } = await import("playwright-core"));
  harSchemaCheck = await loadHarSchema();
} catch {
  console.log("SKIP: playwright-core, ajv or har-schema is not installed (scripts/setup runs npm ci)");
  process.exit(SKIP);
}

// The HAR 1.2 schema (draft-06, with a few keywords of its own that strict mode would refuse).
async function loadHarSchema() {
  const require = createRequire(import.meta.url);
  const { default: Ajv } = await import("ajv");
  const { default: addFormats } = await import("ajv-formats");
  const schemas = require("har-schema");
  const ajv = new Ajv({ strict: false, allErrors: true });
  ajv.addMetaSchema(require("ajv/dist/refs/json-schema-draft-06.json"));
  addFormats(ajv);
  for (const schema of Object.values(schemas)) ajv.addSchema(schema);
  return ajv.getSchema("har.json#");
}
const browserPath = ["/usr/bin/chromium", "/usr/bin/chromium-browser"].find((p) => fs.existsSync(p));
if (!browserPath) {
  console.log("SKIP: no Chromium (scripts/setup installs Debian's chromium)");
  process.exit(SKIP);
}

let failures = 0;
let passes = 0;
function check(ok, what, detail = "") {
  if (ok) {
    passes += 1;
    console.log(`ok - ${what}`);
  } else {
    failures += 1;
    console.log(`FAILED - ${what}${detail ? `: ${detail}` : ""}`);
  }
  return ok;
}

async function waitFor(condition, what, timeoutMs = 20000) {
  const deadline = Date.now() + timeoutMs;
  while (Date.now() < deadline) {
    if (await condition()) return true;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  throw new Error(`gave up waiting for ${what}`);
}

function run(program, programArgs, input) {
  return new Promise((resolve, reject) => {
    const child = execFile(program, programArgs, { encoding: "buffer", maxBuffer: 64 << 20, timeout: 120000 },
      (error, stdout, stderr) => (error ? reject(new Error(`${program}: ${error.message}\n${stderr}`)) : resolve(stdout)));
    if (input !== undefined) child.stdin.end(input);
  });
}

const work = fs.mkdtempSync(path.join(os.tmpdir(), "replay-e2e-"));
fs.mkdirSync(args.out, { recursive: true });
const ready = path.join(work, "ready");
const server = spawn(args.server, ["--port", "0", "--db", path.join(work, "store.sqlite"), "--ready-file", ready],
                     { stdio: ["ignore", "inherit", "inherit"] });
let browser = null;

async function upload(base, appID, recordingID, events) {
  const body = await run(args.encode, [], JSON.stringify({ appID, events }));
  const query = new URLSearchParams({ a: appID, r: recordingID, t: "tab-e2e", s: "0", ir: "t" });
  const reply = await fetch(`${base}/i?${query}`, { method: "POST", body });
  if (reply.status !== 201) throw new Error(`upload answered ${reply.status}: ${await reply.text()}`);
}

// A tap, then a swipe down whose MOVE carries older samples, placed after the first screen capture.
function touchEvents(doc, tapAt) {
  const uptime = 5_000_000; // the device's uptime clock: unrelated to the wall clock on purpose
  const swipeAt = tapAt + 700;
  const at = (seq, t, message) => ({ seqID: 100000 + seq, time: doc.startTime + t, timeOffset: t,
                                     type: "qm.ios.TouchEvent", message });
  const moves = [];
  for (let i = 0; i < 10; i++) moves.push({ x: 200, y: 300 + i * 25, eventTime: uptime + swipeAt + 20 + i * 25 });
  return [
    at(0, tapAt, { type: "DOWN", x: 120, y: 260, eventTime: uptime + tapAt }),
    at(1, tapAt + 80, { type: "UP", x: 120, y: 260, eventTime: uptime + tapAt + 80 }),
    at(2, swipeAt, { type: "DOWN", x: 200, y: 280, eventTime: uptime + swipeAt }),
    at(3, swipeAt + 300, { type: "MOVE", x: 200, y: 560, eventTime: uptime + swipeAt + 300, moves }),
    at(4, swipeAt + 320, { type: "UP", x: 200, y: 570, eventTime: uptime + swipeAt + 320 }),
  ];
}

async function seekTo(page, t) {
  await page.$eval("#seek", (input, value) => {
    input.value = String(value);
    input.dispatchEvent(new Event("input"));
  }, t);
}

const nonWhitePixels = () => {
  const canvas = document.getElementById("frame");
  const data = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
  let ink = 0;
  for (let i = 0; i < data.length; i += 4) if (data[i] < 200 || data[i + 1] < 200 || data[i + 2] < 200) ink++;
  return ink;
};

try {
  await waitFor(() => fs.existsSync(ready), "the server's ready file");
  const base = fs.readFileSync(ready, "utf8").trim();

  // A real session of the demo host.
  const demoOut = (await run(args.demo, ["--server", `${base}/i`, "--seconds", "4"])).toString();
  const replayURL = /Replay URL: (\S+)/.exec(demoOut)?.[1];
  if (!check(Boolean(replayURL), "the demo host prints a replay URL")) throw new Error(demoOut);
  const recordingPath = new URL(replayURL).pathname;
  const doc = await (await fetch(`${base}${recordingPath}/replay.json`)).json();
  check(doc.frames.length > 0 && doc.logs.length > 0 && doc.network.length > 0,
        "the recording has screen captures, logs and network exchanges",
        `${doc.frames.length} frames, ${doc.logs.length} logs, ${doc.network.length} exchanges`);
  const tapAt = doc.frames[0].t + 300;
  await upload(base, doc.appID, doc.recordingID, touchEvents(doc, tapAt));

  browser = await chromium.launch({ executablePath: browserPath, headless: true,
                                    args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"] });
  const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
  const pageErrors = [];
  page.on("pageerror", (error) => pageErrors.push(String(error)));

  // The address exactly as the library relays it, ?t= included.
  const reply = await page.goto(replayURL);
  check(reply.status() === 200 && reply.headers()["content-type"].startsWith("text/html"),
        "the relayed address serves the replay page");
  await waitFor(() => page.evaluate(() => window.replayState?.ready === true), "the player to load");
  const pdfjsState = await page.evaluate(() => window.replayState.pdfjs);
  check(pdfjsState === "ready", "pdf.js loads from the server", pdfjsState);

  await page.click("#play");
  await waitFor(() => page.evaluate(() => window.replayState.time > 0 && window.replayState.framesDrawn > 0),
                "playback to draw a frame");
  check(true, "playing advances the clock and draws a screen capture");
  const ink = await page.evaluate(nonWhitePixels);
  check(ink > 1000, "the drawn frame is not blank", `${ink} inked pixels`);
  await page.click("#play"); // pause
  check(await page.evaluate(() => window.replayState.playing === false), "pause stops playback");

  await seekTo(page, tapAt + 40);
  await waitFor(async () => (await page.locator("#touches .touch-mark").count()) > 0, "a touch mark");
  check(true, "a tap shows a touch mark at its time");
  await seekTo(page, tapAt + 700 + 250);
  await waitFor(async () => (await page.locator("#touches .touch-trail").count()) > 0, "a touch trail");
  const trailPoints = await page.$eval("#touches .touch-trail", (line) => line.getAttribute("points").split(" ").length);
  check(trailPoints >= 5, "a swipe draws its trail from the samples taken before the MOVE's time",
        `${trailPoints} points`);

  // Logs and network rows follow the clock, and clicking one seeks there.
  const logCount = await page.locator("#logs li").count();
  check(logCount >= doc.logs.length, "every log line is listed", `${logCount} rows`);
  const logRow = page.locator("#logs li").nth(Math.min(3, logCount - 1));
  const logT = Number(await logRow.getAttribute("data-t"));
  await logRow.click();
  const afterLog = await page.evaluate(() => window.replayState.time);
  check(Math.abs(afterLog - logT) < 1, "clicking a log line seeks the player to it", `${afterLog} vs ${logT}`);
  check(await logRow.evaluate((row) => row.classList.contains("current")), "the clicked log line is current");

  const netRow = page.locator("#network li").last();
  const netT = Number(await netRow.getAttribute("data-t"));
  await netRow.click();
  const afterNet = await page.evaluate(() => window.replayState.time);
  check(Math.abs(afterNet - netT) < 1, "clicking a network row seeks the player to it", `${afterNet} vs ${netT}`);
  const detail = await page.locator("#net-detail").innerText();
  check(/Response headers/.test(detail) && /request id/.test(detail), "a network row opens its headers");
  const stderrRow = await page.locator("#logs li .lvl-ERROR").count();
  check(stderrRow > 0, "standard error is listed as ERROR");

  // The network as HAR, saved through the player's link as a person would.
  const [download] = await Promise.all([page.waitForEvent("download"), page.click("#har-link")]);
  const har = JSON.parse(fs.readFileSync(await download.path(), "utf8"));
  check(harSchemaCheck(har), "the HAR link saves a log that the HAR 1.2 schema accepts",
        JSON.stringify(harSchemaCheck.errors?.slice(0, 3)));
  check(download.suggestedFilename() === `${doc.recordingID}-0.har`, "under the recording's name",
        download.suggestedFilename());
  const harIds = har.log.entries.map((entry) => entry._reqId).join(" ");
  const playerIds = doc.network.map((exchange) => exchange.reqId).join(" ");
  check(harIds === playerIds, "with one entry per exchange the player lists, in its order", `${harIds} vs ${playerIds}`);

  // The picture for the README: mid-swipe over a drawn frame, with the last exchange open.
  await seekTo(page, tapAt + 700 + 200);
  await waitFor(() => page.evaluate(() => window.replayState.frameSeq !== null), "the frame at the swipe");
  // Two animation frames: the canvas and the overlay have painted before the picture is taken.
  await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))));
  await page.screenshot({ path: path.join(args.out, "replay-player.png") });
  console.log(`screenshot: ${path.join(args.out, "replay-player.png")}`);

  // The listing's search: a word the demo's screens showed leads to the moment it was on screen.
  await page.setViewportSize({ width: 1280, height: 400 });
  await page.goto(`${base}/`);
  await page.fill("#q", "card frozen");
  await Promise.all([page.waitForURL(/\?q=/), page.press("#q", "Enter")]);
  const moments = page.locator("a.moment");
  check((await moments.count()) > 0, "searching for words on the demo's screen finds moments",
        await page.locator("#summary").innerText());
  const momentLink = await moments.first().getAttribute("href");
  const seenAt = Number(/#at=(\d+)/.exec(momentLink)?.[1]);
  const hit = doc.frames.findLast((frame) => frame.t <= seenAt);
  await page.screenshot({ path: path.join(args.out, "search.png") });
  console.log(`screenshot: ${path.join(args.out, "search.png")}`);
  await moments.first().click();
  await waitFor(() => page.evaluate(() => window.replayState?.ready === true), "the replay from the search");
  await waitFor(() => page.evaluate((seq) => window.replayState.frameSeq === seq, hit?.seqID), "the found capture");
  const landed = await page.evaluate(() => window.replayState);
  check(landed.time === seenAt && !landed.playing, "a moment opens the replay paused at its time",
        `${landed.time} vs ${seenAt}`);
  check(/card frozen/.test(await page.locator("#found").innerText()), "and says what was searched for");
  // Read back with pdf.js, already loaded by the player.
  const shownText = await page.evaluate(async (url) => {
    const pdfjs = await import("/assets/pdfjs/pdf.min.mjs");
    const pdf = await pdfjs.getDocument({ url, isEvalSupported: false }).promise;
    const content = await (await pdf.getPage(1)).getTextContent();
    return content.items.map((item) => item.str).join(" ");
  }, hit.url);
  check(/card\s*frozen/i.test(shownText), "the capture shown there holds the words", shownText.slice(0, 200));

  // The password the demo's user typed into the secure field is nowhere in the index.
  await page.goto(`${base}/?q=${encodeURIComponent("correct horse battery staple")}`);
  check(/No recordings match/.test(await page.locator("#summary").innerText()),
        "the demo's password finds nothing: redaction kept it out of every capture");
  await page.setViewportSize({ width: 1280, height: 900 });

  // A recording without screen captures still plays its logs and network.
  const t0 = Date.now();
  await upload(base, "e2e-app", "no-frames", [
    { seqID: 0, time: t0, timeOffset: 0, type: "qm.core.LogEvent", message: { logLevel: "WARN", args: [{ arson: "only text here" }] } },
    { seqID: 1, time: t0 + 10, timeOffset: 10, type: "qm.network.RequestEvent", message: { reqId: "ios-0", url: "http://example.test/a", method: "POST", body: { arson: "[\"{}\"]" } } },
    { seqID: 2, time: t0 + 30, timeOffset: 30, type: "qm.network.ResponseEvent", message: { reqId: "ios-0", status: 503, url: "http://example.test/a", method: "POST", duration: 0.00002 } },
  ]);
  await page.goto(`${base}/e2e-app/s/no-frames/0`);
  await waitFor(() => page.evaluate(() => window.replayState?.ready === true), "the frameless recording to load");
  check(/no screen captures/.test(await page.locator("#stage-message").innerText()),
        "a recording without frames says so");
  check((await page.locator("#logs li").count()) === 1 && (await page.locator("#network li").count()) === 1,
        "and still lists its log line and its exchange");

  const missing = await page.goto(`${base}/e2e-app/s/no-such-recording/0`);
  check(missing.status() === 404 && /no such recording/i.test(await page.content()),
        "an unknown recording answers a 404 page that says so");

  check(pageErrors.length === 0, "no script errors on the page", pageErrors.join("; "));
} catch (error) {
  check(false, "the browser test ran to its end", error.stack || String(error));
} finally {
  if (browser) await browser.close();
  server.kill("SIGTERM");
  fs.rmSync(work, { recursive: true, force: true });
}
console.log(`${passes} passed, ${failures} failed`);
process.exit(failures === 0 ? 0 : 1);
