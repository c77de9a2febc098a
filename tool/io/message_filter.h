// SPDX-License-Identifier: Apache-2.0
// Which messages of a bus or a capture a verb looks at.
#ifndef TOOL_MESSAGE_FILTER_H
#define TOOL_MESSAGE_FILTER_H

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "tool/message/record_json.h"

namespace CLI {
class App;
}

namespace tool {

struct FilterOptions {
    std::vector<std::string> types;   // names or ids
    std::vector<std::string> wheres;  // "f0=17", "f2.f1!=0"
    std::vector<std::uint32_t> from;  // sources
    std::vector<std::uint32_t> to;    // destinations
};
void add_filter_options(CLI::App& verb, FilterOptions& options);

// What is not given lets everything pass; of several values of one option, one must fit, but all of --where.
class MessageFilter {
  public:
    // Throws CommandError.
    explicit MessageFilter(const FilterOptions& options);

    bool passes(std::uint32_t id, std::uint32_t source, std::uint32_t destination,
                std::span<const std::uint8_t> bytes) const;

  private:
    struct Condition {
        std::vector<std::string> path;
        bool differs = false;
        std::string value;
    };

    static Condition condition(const std::string& text);
    static bool holds(const Condition& condition, const Json& value, std::size_t depth);
    static bool is(const Json& value, const std::string& text);

    std::set<std::uint32_t> ids_;
    std::set<std::uint32_t> sources_;
    std::set<std::uint32_t> destinations_;
    std::vector<Condition> conditions_;
};

}  // namespace tool

#endif
