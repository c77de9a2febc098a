// SPDX-License-Identifier: Apache-2.0
// What a capture holds, counted message by message.
#ifndef TOOL_CAPTURE_SUMMARY_H
#define TOOL_CAPTURE_SUMMARY_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tool/io/capture.h"
#include "tool/message/record_json.h"

namespace tool {

class CaptureSummary {
  public:
    void add(const CapturedMessage& message, std::uint64_t packet);

    bool has_damage() const { return all_.damaged != 0; }
    Json to_json(const CaptureReader& reader) const;
    void print(const CaptureReader& reader) const;

    // "28 messages in 28 batches, 3895 bytes; 1 damaged, 0 of unknown types, 0 cut".
    std::string counts() const;
    // The number of addresses that sent.
    std::size_t sources() const;
    double seconds() const { return static_cast<double>(last_ - first_) / 1e9; }

  private:
    struct Totals {
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;
        std::uint64_t damaged = 0;
    };
    struct Damage {
        std::uint64_t packet;
        std::string type;
        std::vector<std::string> faults;
    };

    template <class Key>
    static std::vector<std::pair<Key, Totals>> by_number(const std::map<Key, Totals>& totals);
    Json with(Json entry, const Totals& totals) const;
    void print_row(const std::string& name, const Totals& totals) const;
    bool check(const CapturedMessage& message, std::uint64_t packet);
    static std::vector<std::string> faults(const MessageType& type, const CapturedMessage& message);
    Json time_or_null(std::uint64_t time) const;
    double rate(std::uint64_t number) const;

    Totals all_;
    std::map<std::uint32_t, Totals> types_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Totals> pairs_;
    std::vector<Damage> damages_;
    std::uint64_t first_ = 0;
    std::uint64_t last_ = 0;
    std::uint64_t batch_ = 0;
    std::uint64_t batches_ = 0;
    std::uint64_t unknown_ = 0;
    std::uint64_t cut_ = 0;
};

}  // namespace tool

#endif
