// SPDX-License-Identifier: Apache-2.0
// The page of nac hex --html in a browser: a meaning marks its bytes, a byte its meaning, and nothing is loaded.
//
// NAC names the tool, PAGE_MODULES the folder with playwright-core. With --screenshot FILE it only takes the picture
// that the manual shows.
"use strict";
const assert = require("node:assert/strict");
const {execFileSync, spawnSync} = require("node:child_process");
const fs = require("node:fs");
const os = require("node:os");
const path = require("node:path");

const root = path.resolve(__dirname, "../../..");
const nac = process.env.NAC || path.join(root, "build/release/nac");
const modules = process.env.PAGE_MODULES || path.join(root, "build/page/node_modules");
const {chromium} = require(path.join(modules, "playwright-core"));

const folder = fs.mkdtempSync(path.join(os.tmpdir(), "nac-page-"));
const file = path.join(folder, "page.html");

function encode(...records) {
  const given = records.map(record => JSON.stringify(record)).join("\n");
  return execFileSync(nac, ["encode", "-"], {input: given, encoding: "utf8"}).trim().split("\n").map(line => JSON.parse(line));
}

function writePage(messages) {
  const given = messages.map(message => JSON.stringify(message)).join("\n");
  return spawnSync(nac, ["hex", "--html", "-o", file, "-"], {input: given, encoding: "utf8"});
}

// A user's table whose list of VLAN ids claims more than there is.
const table = {type: "Nac_SetUserTableMsg", record: {
  f0: 17, f5: "02:00:5e:10:00:01", f12: [{f0: "2001:db8::1"}, {f0: "2001:db8::2"}], f15: [100, 200], f19: {f0: 9}, f31: "757365722d31"}};

function damaged() {
  const [message] = encode(table);
  const shown = JSON.parse(execFileSync(nac, ["hex", "--json", "-"], {input: JSON.stringify(message), encoding: "utf8"}));
  const count = shown.ranges.find(range => range.part === "count" && range.path === "f15");
  const bytes = Buffer.from(message.hex, "hex");
  bytes.writeUInt32LE(50000, count.at);
  return {message: {...message, hex: bytes.toString("hex")}, at: count.at};
}

async function marked(section, kind) {
  return section.locator(".bytes b").evaluateAll(
      (bytes, name) => bytes.flatMap((byte, at) => byte.classList.contains(name) ? [at] : []), kind);
}

function span(at, count) { return Array.from({length: count}, (_, i) => at + i); }

async function test(page, requests) {
  const [whole, port] = encode(table, {type: "Nac_SetPortMsg", record: {f0: 7, f1: 1}});
  const broken = damaged();
  const shared = {type: "Nac_SetPortMsg", hex: "04000000f4ffffff070000000100000008000c0004000400"};
  assert.equal(writePage([whole, port, broken.message, shared]).status, 1);
  await page.goto("file://" + file);
  const sections = page.locator("section");
  assert.equal(await sections.count(), 4);

  const shown = JSON.parse(execFileSync(nac, ["hex", "--json", "-"], {input: JSON.stringify(whole), encoding: "utf8"}));
  const first = sections.nth(0);
  assert.equal(await first.locator(".bytes b").count(), shown.bytes);
  const rows = first.locator(".meanings li");
  assert.equal(await rows.count(), shown.ranges.length);
  for (let k = 0; k < shown.ranges.length; k += 5) {
    const range = shown.ranges[k];
    await rows.nth(k).click();
    assert.deepEqual(await marked(first, "on"), span(range.at, range.bytes), `meaning ${range.text}`);
    assert.equal(await first.locator(".meanings li.on").count(), 1);
  }
  // What belongs to the same field is near: reference, count and elements of its vector.
  const elements = shown.ranges.findIndex(range => range.part === "elements" && range.path === "f15");
  await rows.nth(elements).click();
  const near = shown.ranges.filter(range => range.path === "f15").flatMap(range => span(range.at, range.bytes)).sort((a, b) => a - b);
  assert.deepEqual(await marked(first, "near"), near);

  for (let at = 0; at < shown.bytes; at += 7) {
    await first.locator(".bytes b").nth(at).click();
    const row = first.locator(".meanings li.on");
    assert.equal(await row.count(), 1);
    const start = Number(await row.getAttribute("data-at"));
    const bytes = Number(await row.getAttribute("data-bytes"));
    assert.ok(start <= at && at < start + bytes, `byte ${at} selects ${await row.innerText()}`);
    assert.deepEqual(await marked(first, "on"), span(start, bytes));
  }

  // Each message has its own selection, and the keyboard does as the mouse.
  const second = sections.nth(1);
  const value = second.locator(".meanings li", {hasText: "f1 u32 = 1"});
  await value.focus();
  await page.keyboard.press("Enter");
  assert.deepEqual(await marked(second, "on"), span(20, 4));
  assert.notDeepEqual(await marked(first, "on"), []);

  const third = sections.nth(2);
  assert.match(await third.locator("p.bad").first().innerText(), /50000 elements of 2 bytes/);
  const bad = third.locator(".meanings li.bad");
  assert.match(await bad.first().innerText(), /f15 count 50000/);
  await bad.first().click();
  assert.deepEqual(await marked(third, "on"), span(broken.at, 4));

  // A byte with two meanings selects them in turn.
  const fourth = sections.nth(3);
  const seen = [];
  for (let click = 0; click < 3; ++click) {
    await fourth.locator(".bytes b").nth(8).click();
    seen.push((await fourth.locator(".meanings li.on").innerText()).replace(/^\s*\d+\s*/, ""));
  }
  assert.deepEqual(seen, ["f0 u32 = 7", "f1 u32 = 7", "f0 u32 = 7"]);

  // Beside the bytes of each row, the same as characters.
  const characters = (await first.locator(".bytes u").allTextContents()).join("");
  const printable = Buffer.from(whole.hex, "hex").toString("latin1").replace(/[^ -~]/g, ".");
  assert.equal(characters.length, shown.bytes);
  assert.equal(characters, printable);

  // The list of messages, and the way from damage to damage.
  assert.deepEqual(await page.locator("nav li a").allInnerTexts(),
      ["Nac_SetUserTableMsg", "Nac_SetPortMsg", "Nac_SetUserTableMsg", "Nac_SetPortMsg"]);
  assert.deepEqual(await page.locator("nav li a.bad").count(), 1);
  await page.locator("nav li a").nth(1).click();
  assert.match(page.url(), /#message-2$/);
  await page.locator("nav button").click();
  assert.equal(await page.locator("nav button").innerText(), "next damage (1 of 1)");
  assert.match(await third.locator(".meanings li.on").innerText(), /f15 count 50000/);
  await page.keyboard.press("n");
  assert.deepEqual(await marked(third, "on"), span(broken.at, 4));

  // A narrow screen shows whole rows of bytes, and needs no scrolling sideways.
  await page.setViewportSize({width: 400, height: 800});
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 400);
  const box = await first.locator(".bytes div").first().evaluate(row => [row.scrollWidth, row.clientWidth]);
  assert.ok(box[0] <= box[1], `${box}`);
  await page.setViewportSize({width: 1100, height: 620});

  assert.deepEqual(requests.filter(url => !url.startsWith("file:") && !url.startsWith("data:")), []);
  assert.equal(requests.filter(url => url.startsWith("file:")).length, 1);
  console.log(`count: ${shown.bytes} bytes and ${shown.ranges.length} meanings select each other in ${await version(page)}`);

  // What no browser shows well is refused, before anything is written.
  fs.writeFileSync(file, "as it was");
  const many = spawnSync(nac, ["hex", "--html", "-o", file, "-"],
      {input: (JSON.stringify(port) + "\n").repeat(41667), encoding: "utf8"});
  assert.equal(many.status, 2);
  assert.equal(many.stderr, "nac: standard input:41667: more than 1000000 bytes of messages are too many for one page; " +
      "choose some with --packet, --type or --where\n");
  assert.equal(fs.readFileSync(file, "utf8"), "as it was");

  // No messages make a page without sections; names of files are text.
  assert.equal(writePage([]).status, 0);
  await page.goto("file://" + file);
  assert.equal(await page.locator("section").count(), 0);
  const odd = path.join(folder, "<b>&\"odd");
  fs.writeFileSync(odd, JSON.stringify(port) + "\n");
  execFileSync(nac, ["hex", "--html", "-o", file, odd]);
  await page.goto("file://" + file);
  assert.match(await page.locator("section p").first().innerText(), /<b>&"odd:1, 24 bytes, compact, ok/);
}

async function version(page) { return `Chromium ${page.context().browser().version()}`; }

async function screenshot(page, target) {
  writePage([damaged().message]);
  await page.goto("file://" + file);
  await page.setViewportSize({width: 1000, height: 420});
  await page.keyboard.press("n");
  await page.screenshot({path: target});
}

(async () => {
  const browser = await chromium.launch({executablePath: process.env.CHROMIUM || "/usr/bin/chromium", args: ["--no-sandbox"]});
  try {
    const page = await browser.newPage({viewport: {width: 1100, height: 620}, colorScheme: "light"});
    const requests = [];
    const errors = [];
    page.on("request", request => requests.push(request.url()));
    page.on("pageerror", error => errors.push(error.message));
    page.on("console", message => { if (message.type() === "error") errors.push(message.text()); });
    const at = process.argv.indexOf("--screenshot");
    if (at > 0) {
      await screenshot(page, process.argv[at + 1]);
    } else {
      await test(page, requests);
    }
    assert.deepEqual(errors, []);
  } finally {
    await browser.close();
    fs.rmSync(folder, {recursive: true});
  }
})().catch(error => {
  console.error(error);
  process.exitCode = 1;
});
