// SPDX-License-Identifier: Apache-2.0
#include "tool/show/hex_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "tool/show/shown.h"

namespace tool {
namespace {

constexpr const char* kStart = R"html(<!DOCTYPE html>
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
body { margin: 1rem; font: 14px/1.5 system-ui, sans-serif; }
h2 { margin: 1.5rem 0 .2rem; font-size: 1.1rem; }
p { margin: .1rem 0; color: var(--dim); }
p.bad { color: var(--bad); }
.sides { display: flex; gap: 2rem; align-items: flex-start; margin-top: .6rem; }
.bytes, .meanings { font-family: ui-monospace, monospace; font-size: 13px; }
.bytes { position: sticky; top: 1rem; max-height: 95vh; overflow-y: auto; white-space: pre; }
.bytes i { font-style: normal; color: var(--dim); }
.bytes b { font-weight: normal; padding: 1px 3px; border-radius: 2px; cursor: pointer; }
.bytes b.rest, .meanings li.rest { color: var(--dim); }
.bytes b.bad, .meanings li.bad { color: var(--bad); font-weight: bold; }
.meanings { list-style: none; margin: 0; padding: 0; flex: 1; min-width: 20rem; }
.meanings li { cursor: pointer; border-bottom: 1px solid var(--line); overflow-wrap: anywhere; }
.meanings li span { display: inline-block; width: 4.5em; color: var(--dim); }
.near { background: var(--near); }
.on { background: var(--on); color: #000 !important; }
</style>
</head>
<body>
)html";

constexpr const char* kEnd = R"html(<script>
"use strict";
for (const section of document.querySelectorAll("section")) {
  const bytes = [...section.querySelectorAll(".bytes b")];
  const rows = [...section.querySelectorAll(".meanings li")];
  const meanings = bytes.map(() => []);
  const bytesOf = row => bytes.slice(+row.dataset.at, +row.dataset.at + +row.dataset.bytes);
  rows.forEach((row, k) => {
    row.tabIndex = 0;
    bytesOf(row).forEach((_, i) => meanings[+row.dataset.at + i].push(k));
  });
  let selected = -1;
  const select = (k, scroll) => {
    for (const marked of section.querySelectorAll(".on, .near")) marked.classList.remove("on", "near");
    selected = k;
    const path = rows[k].dataset.path;
    for (const row of rows) {
      if (path === "" || row.dataset.path !== path) continue;
      row.classList.add("near");
      for (const byte of bytesOf(row)) byte.classList.add("near");
    }
    rows[k].classList.add("on");
    for (const byte of bytesOf(rows[k])) byte.classList.add("on");
    if (scroll === "row") rows[k].scrollIntoView({block: "nearest"});
    if (scroll === "bytes" && bytesOf(rows[k]).length) bytesOf(rows[k])[0].scrollIntoView({block: "nearest"});
  };
  rows.forEach((row, k) => {
    row.addEventListener("click", () => select(k, "bytes"));
    row.addEventListener("keydown", event => {
      if (event.key === "Enter" || event.key === " ") { event.preventDefault(); select(k, "bytes"); }
    });
  });
  // Bytes that are read twice select the next of their meanings at each click.
  bytes.forEach((byte, at) => byte.addEventListener("click", () => {
    const of = meanings[at];
    select(of[(of.indexOf(selected) + 1) % of.length], "row");
  }));
}
</script>
</body>
</html>
)html";

constexpr std::size_t kRowBytes = 16;

std::string in_html(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            default:
                safe += c;
        }
    }
    return safe;
}

const char* mark_of(const Range& range) {
    if (range.faulty) return "bad";
    return range.part == VORN_PART_PADDING || range.part == VORN_PART_UNREAD ? "rest" : "";
}

}  // namespace

std::string hex_page_start() { return kStart; }

std::string hex_page_section(std::size_t number, const std::string& origin, const MessageType& type,
                             std::span<const std::uint8_t> bytes, const Finding& finding, Octets octets) {
    std::string text =
        fmt::format("<section id=\"message-{}\">\n<h2>{}</h2>\n<p>{}, {} bytes, {}</p>\n", number, type.name,
                    in_html(shown(origin)), bytes.size(), summary_of(finding));
    const auto complain = [&text](const std::string& what) {
        text += fmt::format("<p class=\"bad\">{}</p>\n", in_html(what));
    };
    for (const Fault& fault : finding.walk.faults) complain(fault_text(fault));
    if (finding.walk.more_faults != 0) complain(fmt::format("and {} more", finding.walk.more_faults));
    for (const std::string& line : finding.logged) complain("logged: " + line);

    Annotated annotated;
    if (finding.is_buffer()) annotated = annotate(type, bytes);
    if (annotated.cut) complain(fmt::format("more than {} meanings: the rest is not shown", kMostRanges));
    std::vector<const char*> marks(bytes.size(), "");
    for (const Range& range : annotated.ranges) {
        const char* const mark = mark_of(range);
        if (*mark != '\0') std::fill_n(marks.begin() + range.at, range.bytes, mark);
    }
    text += "<div class=\"sides\">\n<div class=\"bytes\">";
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (at % kRowBytes == 0) text += fmt::format("{}<i>{:08x}</i> ", at == 0 ? "" : "\n", at);
        text += *marks[at] == '\0' ? fmt::format("<b>{:02x}</b>", bytes[at])
                                   : fmt::format("<b class=\"{}\">{:02x}</b>", marks[at], bytes[at]);
    }
    text += "</div>\n<ul class=\"meanings\">\n";
    for (const Range& range : annotated.ranges) {
        text += fmt::format(
            "<li class=\"{}\" data-at=\"{}\" data-bytes=\"{}\" data-path=\"{}\" style=\"padding-left:{}em\">"
            "<span>{}</span>{}</li>\n",
            mark_of(range), range.at, range.bytes, in_html(range.path), 1.5 * range.depth, range.at,
            in_html(meaning(range, bytes, octets)));
    }
    return text + "</ul>\n</div>\n</section>\n";
}

std::string hex_page_end() { return kEnd; }

}  // namespace tool
