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
    std::vector<std::string> types;    // names or ids
    std::vector<std::string> wheres;   // "f0=17", "f2.f1!=0"
    std::vector<std::uint32_t> from;   // sources
    std::vector<std::uint32_t> to;     // destinations
    std::vector<std::string> packets;  // of captures: "18", "5-9"
};
// Adds --type and those below.
void add_filter_options(CLI::App& verb, FilterOptions& options);
// Adds --where, --from and --to.
void add_condition_options(CLI::App& verb, FilterOptions& options);
// Adds --packet, for verbs that read captures.
void add_packet_option(CLI::App& verb, FilterOptions& options);

// What is not given lets everything pass; of several values of one option, one must fit, but all of --where.
class MessageFilter {
  public:
    // Throws CommandError.
    explicit MessageFilter(const FilterOptions& options);

    bool passes(std::uint32_t id, std::uint32_t source, std::uint32_t destination,
                std::span<const std::uint8_t> bytes) const;
    // The same without --where.
    bool passes_header(std::uint32_t id, std::uint32_t source, std::uint32_t destination) const;
    // Whether the fields of a message are as --where has them.
    bool fits(const MessageType& type, std::span<const std::uint8_t> bytes) const;
    bool takes_packet(std::uint64_t number) const;
    // No packet from here on passes --packet.
    bool is_after_last_packet(std::uint64_t number) const { return number > last_packet_; }

  private:
    struct Condition {
        std::vector<std::string> path;
        bool differs = false;
        std::string value;
    };
    struct PacketRange {
        std::uint64_t first;
        std::uint64_t last;
    };

    void add_condition(const std::string& text, std::vector<const MessageType*>& types);
    void add_packets(const std::string& text);
    static Condition condition(const std::string& text);
    static bool holds(const Condition& condition, const Json& value, std::size_t depth);
    static bool is(const Json& value, const std::string& text);

    std::set<std::uint32_t> ids_;
    std::set<std::uint32_t> sources_;
    std::set<std::uint32_t> destinations_;
    std::vector<Condition> conditions_;
    std::vector<PacketRange> packets_;
    std::uint64_t last_packet_ = UINT64_MAX;
};

}  // namespace tool

#endif
