// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tool/message/octets.h"
#include "tool/show/nearest.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

std::string range_text(std::uint64_t least, std::uint64_t most) {
    if (most != UINT64_MAX) return fmt::format(" from {} to {}", least, most);
    return least == 0 ? " without a sign" : fmt::format(" of {} or more", least);
}

}  // namespace

CLI::Validator whole_number(std::uint64_t least, std::uint64_t most) {
    const auto check = [least, most](std::string& text) -> std::string {
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        const std::string_view digits = std::string_view(text).substr(hexadecimal ? 2 : 0);
        std::uint64_t number = 0;
        const char* const last = digits.data() + digits.size();
        const auto [end, error] = std::from_chars(digits.data(), last, number, hexadecimal ? 16 : 10);
        if (error != std::errc() || end != last || number < least || number > most)
            return fmt::format("{} is no whole number{}", shortened(text), range_text(least, most));
        text = fmt::format("{}", number);
        return "";
    };
    if (least == 0 && most == UINT64_MAX) return {check, ""};
    return {check,
            most == UINT64_MAX ? fmt::format("{} or more", least) : fmt::format("{} to {}", least, most)};
}

CLI::Validator one_of(std::vector<std::pair<int, std::string>> values) {
    std::sort(values.begin(), values.end());
    std::vector<std::string> names;
    names.reserve(values.size());
    for (const auto& value : values) names.push_back(value.second);
    return {[values, names](std::string& text) -> std::string {
                for (const auto& [number, name] : values) {
                    if (name != text) continue;
                    text = fmt::format("{}", number);  // as CLI11 reads an enumeration
                    return "";
                }
                return fmt::format("{} is none of {}{}", shortened(text), fmt::join(names, ", "),
                                   did_you_mean(text, names));
            },
            fmt::format("{{{}}}", fmt::join(names, ","))};
}

void add_octets_option(CLI::App& verb, Octets& octets) {
    static const std::map<std::string, Octets> names = {
        {"auto", Octets::automatic}, {"text", Octets::text}, {"hex", Octets::hex}};
    verb.add_option(
            "--octets", octets,
            "Byte strings: auto, if not given: as text where all of it is printable; text: as text, with\n"
            "\\x1b for what is not; hex: as digits")
        ->transform(one_of(names));
}

CLI::Validator real_number(double least, double most) {
    return {[least, most](std::string& text) -> std::string {
                double number = 0;
                const char* const last = text.data() + text.size();
                const auto [end, error] = std::from_chars(text.data(), last, number);
                const bool fits = number >= least && number <= most;  // NaN does not
                if (error == std::errc() && end == last && fits) return "";
                return fmt::format("{} is no number from {} to {}", shortened(text), least, most);
            },
            fmt::format("{} to {}", least, most)};
}

}  // namespace tool
