// SPDX-License-Identifier: Apache-2.0
#include "tool/message/record_json.h"

namespace tool {
namespace {

constexpr std::size_t kPieceBytes = 1U << 16;

// Before the text is parsed: whatever handles a parsed value may follow its levels by recursion.
void check_levels(std::string_view text) {
    std::size_t levels = 0;
    bool in_text = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (in_text) {
            if (c == '\\') ++at;
            if (c == '"') in_text = false;
        } else if (c == '"') {
            in_text = true;
        } else if (c == '{' || c == '[') {
            if (++levels > kMostLevels) {
                throw std::invalid_argument(fmt::format(
                    "more than {} levels of arrays and objects, at character {}", kMostLevels, at + 1));
            }
        } else if ((c == '}' || c == ']') && levels > 0) {
            --levels;
        }
    }
}

}  // namespace

std::string json_text(const Json& json) { return json.dump(-1, ' ', true, Json::error_handler_t::replace); }

Json json_from_text(std::string_view text) {
    check_levels(text);
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw std::invalid_argument(fmt::format("not JSON, at character {}", error.byte));
    } catch (const Json::out_of_range&) {
        throw std::invalid_argument("a number that is too large for JSON's numbers of 64 bits");
    }
}

Json& JsonBuilder::add(Json value) {
    if (open_.empty()) return root_ = std::move(value);
    Json& parent = *open_.back();
    if (parent.is_object()) return parent[key_] = std::move(value);
    parent.push_back(std::move(value));
    return parent.back();
}

void JsonWriter::separate() {
    if (!is_first_) piece_ += ',';
    is_first_ = false;
    if (piece_.size() >= kPieceBytes) flush();
}

void JsonWriter::begin(char bracket) {
    separate();
    piece_ += bracket;
    is_first_ = true;
}

void JsonWriter::end(char bracket) {
    piece_ += bracket;
    is_first_ = false;
}

void JsonWriter::key(std::string_view name) {
    text(name);
    piece_ += ':';
    is_first_ = true;
}

void JsonWriter::number(std::uint64_t value) {
    separate();
    fmt::format_to(std::back_inserter(piece_), "{}", value);
}

void JsonWriter::text(std::string_view value) {
    separate();
    piece_.append("\"").append(value).append("\"");
}

void JsonWriter::flush() {
    put_(piece_);
    piece_.clear();
}

}  // namespace tool
