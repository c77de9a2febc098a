// SPDX-License-Identifier: Apache-2.0
#include "tool/show/hex_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "tool/show/hex_page_frame.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

constexpr std::size_t kRowBytes = 8;  // of which a narrow screen has space for one row

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

// Offset, bytes, and the same bytes as characters.
std::string row(std::size_t at, std::span<const std::uint8_t> bytes, const std::vector<const char*>& marks) {
    std::string text = fmt::format("<div><i>{:08x}</i> ", at);
    std::string characters;
    for (std::size_t k = at; k < at + kRowBytes; ++k) {
        if (k >= bytes.size()) {
            text += "<s></s>";
            continue;
        }
        text += *marks[k] == '\0' ? fmt::format("<b>{:02x}</b>", bytes[k])
                                  : fmt::format("<b class=\"{}\">{:02x}</b>", marks[k], bytes[k]);
        characters += bytes[k] >= 0x20 && bytes[k] < 0x7F ? static_cast<char>(bytes[k]) : '.';
    }
    return text + " <u>" + in_html(characters) + "</u></div>\n";
}

}  // namespace

std::string hex_page_start() { return kHexPageStart; }

std::string hex_page_section(std::size_t number, const std::string& origin, const MessageType& type,
                             std::span<const std::uint8_t> bytes, std::span<const std::uint8_t> wire,
                             const Finding& finding, Octets octets) {
    std::string text = fmt::format("<section id=\"message-{}\"{}>\n<h2>{}</h2>\n<p>{}, {} bytes, {}</p>\n",
                                   number, finding.is_whole() ? "" : " class=\"bad\"", type.name,
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
    text += "<div class=\"sides\">\n<div class=\"bytes\">\n";
    for (std::size_t at = 0; at < bytes.size(); at += kRowBytes) text += row(at, wire, marks);
    text += "</div>\n<ul class=\"meanings\">\n";
    for (const Range& range : annotated.ranges) {
        text += fmt::format(
            "<li class=\"{}\" tabindex=\"0\" data-at=\"{}\" data-bytes=\"{}\" data-path=\"{}\" "
            "style=\"--depth:{}\">"
            "<span>{}</span>{}</li>\n",
            mark_of(range), range.at, range.bytes, in_html(range.path), range.depth, range.at,
            in_html(meaning(range, bytes, octets)));
    }
    return text + "</ul>\n</div>\n</section>\n";
}

std::string hex_page_end() { return kHexPageEnd; }

}  // namespace tool
