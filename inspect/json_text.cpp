// SPDX-License-Identifier: Apache-2.0
#include "inspect/json_text.h"

#include <stdexcept>

namespace inspect {
namespace {

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
                throw std::invalid_argument("more than " + std::to_string(kMostLevels) +
                                            " levels of arrays and objects, at character " +
                                            std::to_string(at + 1));
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
        throw std::invalid_argument("not JSON, at character " + std::to_string(error.byte));
    } catch (const Json::out_of_range&) {
        throw std::invalid_argument("a number that is too large for JSON's numbers of 64 bits");
    }
}

}  // namespace inspect
