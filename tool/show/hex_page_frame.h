// SPDX-License-Identifier: Apache-2.0
// What stands around the messages of the page: its looks, its list of messages and its script.
#ifndef TOOL_HEX_PAGE_FRAME_H
#define TOOL_HEX_PAGE_FRAME_H

namespace tool {

inline constexpr const char* kHexPageStart = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; img-src data:">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<title>nac hex</title>
<style>
:root { color-scheme: light dark; --line: #8884; --dim: #888; --bad: #d33; --near: #f5a62344; --on: #f5a623; }
* { box-sizing: border-box; }
body { margin: 1rem; font: 14px/1.5 system-ui, sans-serif; }
h2 { margin: 0 0 .2rem; font-size: 1.1rem; overflow-wrap: anywhere; }
p { margin: .1rem 0; color: var(--dim); overflow-wrap: anywhere; }
p.bad, nav a.bad { color: var(--bad); }
section { padding-bottom: 1.5rem; content-visibility: auto; contain-intrinsic-size: auto 40rem; }
.sides { display: flex; gap: 2rem; align-items: flex-start; margin-top: .6rem; }
.bytes, .meanings { font-family: ui-monospace, monospace; font-size: 13px; }
.bytes { position: sticky; top: .5rem; max-height: 95vh; overflow-y: auto; background: Canvas;
 padding-right: 1em; }
.bytes div { white-space: pre; }
.bytes i { font-style: normal; color: var(--dim); }
.bytes b, .bytes s { display: inline-block; width: 3ch; text-align: center; }
.bytes b { font-weight: normal; border-radius: 2px; cursor: pointer; }
.bytes u { text-decoration: none; color: var(--dim); }
.bytes b.rest, .meanings li.rest { color: var(--dim); }
.bytes b.bad, .meanings li.bad { color: var(--bad); font-weight: bold; }
.meanings { list-style: none; margin: 0; padding: 0; flex: 1; min-width: 0; }
.meanings li { cursor: pointer; border-bottom: 1px solid var(--line); overflow-wrap: anywhere;
 padding-left: calc(var(--depth) * 1.5em); }
.meanings li span { display: inline-block; width: 4.5em; color: var(--dim); }
.near { background: var(--near); }
.on { background: var(--on); color: #000 !important; }
nav { font-size: 13px; }
nav button { font: inherit; }
nav ol { margin: .4rem 0; padding-left: 2.5em; overflow-y: auto; }
nav a { color: inherit; text-decoration: none; overflow-wrap: anywhere; }
nav a:hover, nav a.here { text-decoration: underline; }
@media (min-width: 900px) {
 body.many { display: grid; grid-template-columns: 17rem 1fr; gap: 1.5rem; }
 .many nav { position: sticky; top: 1rem; align-self: start; }
 .many nav ol { max-height: 85vh; }
}
@media (max-width: 899px) {
 nav { border-bottom: 1px solid var(--line); margin-bottom: 1rem; padding-bottom: .4rem; }
 nav ol { max-height: 30vh; }
}
@media (max-width: 700px) {
 body { margin: .5rem; }
 .sides { display: block; }
 .bytes { top: 0; max-height: 40vh; font-size: 12px; padding-bottom: .3rem; border-bottom: 2px solid var(--line); z-index: 1; }
 .meanings { margin-top: .4rem; }
 .meanings li { padding-left: calc(var(--depth) * .6em); scroll-margin-top: 42vh; }
}
</style>
</head>
<body>
<main>
)html";

inline constexpr const char* kHexPageEnd = R"html(</main>
<script>
"use strict";
const sections = [...document.querySelectorAll("section")];
const parts = new Map();

// What is in a section is looked for when it is first needed: a page may have many.
function partsOf(section) {
  if (!parts.has(section)) {
    const bytes = [...section.querySelectorAll(".bytes b")];
    const rows = [...section.querySelectorAll(".meanings li")];
    const meanings = bytes.map(() => []);
    rows.forEach((row, k) => {
      for (let i = 0; i < +row.dataset.bytes; ++i) meanings[+row.dataset.at + i].push(k);
    });
    parts.set(section, {bytes, rows, meanings, selected: -1});
  }
  return parts.get(section);
}

function select(section, k, scroll) {
  const {bytes, rows} = partsOf(section);
  const bytesOf = row => bytes.slice(+row.dataset.at, +row.dataset.at + +row.dataset.bytes);
  for (const marked of section.querySelectorAll(".on, .near")) marked.classList.remove("on", "near");
  partsOf(section).selected = k;
  const path = rows[k].dataset.path;
  for (const row of rows) {
    if (path === "" || row.dataset.path !== path) continue;
    row.classList.add("near");
    for (const byte of bytesOf(row)) byte.classList.add("near");
  }
  rows[k].classList.add("on");
  for (const byte of bytesOf(rows[k])) byte.classList.add("on");
  if (scroll !== "bytes") rows[k].scrollIntoView({block: scroll === "both" ? "center" : "nearest"});
  if (scroll !== "row" && bytesOf(rows[k]).length) bytesOf(rows[k])[0].scrollIntoView({block: "nearest"});
}

document.addEventListener("click", event => {
  const section = event.target.closest("section");
  if (!section) return;
  const row = event.target.closest(".meanings li"), byte = event.target.closest(".bytes b");
  const {bytes, rows, meanings, selected} = partsOf(section);
  if (row) select(section, rows.indexOf(row), "bytes");
  if (byte) {
    // Bytes that are read twice select the next of their meanings at each click.
    const of = meanings[bytes.indexOf(byte)];
    select(section, of[(of.indexOf(selected) + 1) % of.length], "row");
  }
});

// Each damaged range, and each section that has none but is damaged.
const damages = sections.filter(section => section.classList.contains("bad")).flatMap(section => {
  const rows = [...section.querySelectorAll(".meanings li.bad")];
  return rows.length ? rows.map(row => ({section, row})) : [{section}];
});
let damage = -1;
function nextDamage() {
  if (!damages.length) return;
  damage = (damage + 1) % damages.length;
  const {section, row} = damages[damage];
  section.scrollIntoView();
  if (row) select(section, partsOf(section).rows.indexOf(row), "both");
  button.textContent = `next damage (${damage + 1} of ${damages.length})`;
}

document.addEventListener("keydown", event => {
  const row = event.target.closest?.(".meanings li");
  if (row && (event.key === "Enter" || event.key === " ")) { event.preventDefault(); row.click(); }
  if (event.key === "n" && !event.ctrlKey && !event.metaKey && !event.altKey) nextDamage();
});

const nav = document.createElement("nav");
const button = document.createElement("button");
button.textContent = `next damage (${damages.length})`;
button.title = "key n";
button.addEventListener("click", nextDamage);
if (sections.length > 1) {
  const bad = sections.filter(section => section.classList.contains("bad")).length;
  const words = document.createElement("p");
  words.textContent = `${sections.length} messages, ${bad} damaged`;
  const list = document.createElement("ol");
  sections.forEach(section => {
    const link = document.createElement("a");
    link.href = "#" + section.id;
    link.textContent = section.querySelector("h2").textContent;
    if (section.classList.contains("bad")) link.className = "bad";
    list.appendChild(document.createElement("li")).appendChild(link);
  });
  nav.append(words, list);
  document.body.classList.add("many");
  const observer = new IntersectionObserver(entries => {
    for (const entry of entries) {
      list.children[sections.indexOf(entry.target)].firstChild.classList.toggle("here", entry.isIntersecting);
    }
  });
  for (const section of sections) observer.observe(section);
}
if (damages.length) nav.prepend(button);
if (nav.childNodes.length) document.body.prepend(nav);
</script>
</body>
</html>
)html";

}  // namespace tool

#endif
