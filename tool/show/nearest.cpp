// SPDX-License-Identifier: Apache-2.0
#include "tool/show/nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>

namespace tool {
namespace {

constexpr std::size_t kLongestWord = 64;  // the work grows with the square
constexpr std::size_t kShortestBeginning = 3;

std::string lower(std::string_view text) {
    std::string made(text);
    std::transform(made.begin(), made.end(), made.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return made;
}

// The number of letters to insert, remove or replace: Levenshtein's distance, row by row (Wagner and Fischer,
// "The String-to-String Correction Problem", 1974).
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : a) {
        std::size_t diagonal = row[0]++;
        for (std::size_t k = 0; k < b.size(); ++k) {
            const std::size_t replaced = diagonal + (letter == b[k] ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({replaced, row[k] + 1, row[k + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string did_you_mean(std::string_view word, const std::vector<std::string>& known) {
    if (word.empty() || word.size() > kLongestWord) return "";
    const std::string given = lower(word);
    const std::string* nearest = nullptr;
    std::size_t least = (given.size() < 4 ? 1 : std::max<std::size_t>(given.size() / 3, 2)) + 1;
    for (const std::string& each : known) {
        const std::string candidate = lower(each);
        const bool begins = given.size() >= kShortestBeginning && candidate.starts_with(given);
        const std::size_t away = begins ? 1 : distance(given, candidate);
        if (away < least) {
            least = away;
            nearest = &each;
        }
    }
    return nearest != nullptr ? "; did you mean " + *nearest + "?" : "";
}

}  // namespace tool
