// SPDX-License-Identifier: Apache-2.0
// The site in a browser, from the disk: its search finds pages, and no page is wider than a narrow screen.
//
// NAC names the tool, PAGE_MODULES the folder with playwright-core, PYTHON who makes the site.
"use strict";
const assert = require("node:assert/strict");
const {execFileSync} = require("node:child_process");
const fs = require("node:fs");
const http = require("node:http");
const os = require("node:os");
const path = require("node:path");

const root = path.resolve(__dirname, "../..");
const modules = process.env.PAGE_MODULES || path.join(root, "build/page/node_modules");
const {chromium} = require(path.join(modules, "playwright-core"));
const folder = fs.mkdtempSync(path.join(os.tmpdir(), "nac-site-"));
const site = path.join(folder, "site");

function pages(where) {
  return fs.readdirSync(where, {withFileTypes: true}).flatMap(each =>
    each.isDirectory() ? pages(path.join(where, each.name)) : each.name.endsWith(".html") ? [path.join(where, each.name)] : []);
}

async function find(page, start, words) {
  await page.goto(start);
  await page.locator("a", {hasText: "Search"}).first().click();
  await page.locator("#mkdocs-search-query").fill(words);
  await page.locator("#mkdocs-search-results h3 a").first().waitFor({timeout: 10000});
  return page.locator("#mkdocs-search-results h3 a").evaluateAll(links => links.map(link => link.href));
}

async function test(browser) {
  execFileSync(process.env.PYTHON || "/usr/bin/python3", [path.join(root, "docs/make/site.py"), "--into", folder]);
  const page = await browser.newPage({viewport: {width: 1100, height: 700}});
  const errors = [];
  page.on("pageerror", error => errors.push(error.message));
  const disk = "file://" + site;
  for (const start of ["/index.html", "/performance/bus.html"]) {
    const found = await find(page, disk + start, "soffset vtable");
    assert.ok(found.some(link => link.startsWith(disk + "/format.html")), `${found}`);
  }
  const server = http.createServer((request, response) => {
    const file = path.join(site, decodeURIComponent(new URL(request.url, "http://x").pathname).replace(/^\/docs/, ""));
    fs.readFile(file, (error, data) => { response.statusCode = error ? 404 : 200; response.end(data); });
  });
  await new Promise(ready => server.listen(0, "127.0.0.1", ready));
  const found = await find(page, `http://127.0.0.1:${server.address().port}/docs/tool.html`, "soffset vtable");
  assert.ok(found.some(link => link.includes("/docs/format.html")), `${found}`);
  server.close();

  await page.setViewportSize({width: 400, height: 800});
  const all = pages(site);
  for (const each of all) {
    await page.goto("file://" + each);
    const wide = await page.evaluate(() => document.documentElement.scrollWidth);
    assert.ok(wide <= 400, `${path.relative(site, each)} is ${wide} pixels wide`);
  }
  assert.deepEqual(errors, []);
  console.log(`count: ${all.length} pages fit a screen of 400 pixels, and the search finds from the disk and a server`);
}

(async () => {
  const browser = await chromium.launch({executablePath: process.env.CHROMIUM || "/usr/bin/chromium", args: ["--no-sandbox"]});
  try {
    await test(browser);
  } finally {
    await browser.close();
    fs.rmSync(folder, {recursive: true});
  }
})().catch(error => {
  console.error(error);
  process.exitCode = 1;
});
