// SPDX-License-Identifier: Apache-2.0
// nac diff: two messages, field by field.
#include <fmt/format.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tool/io/message_files.h"
#include "tool/message/finding.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DiffOptions {
    MessageOptions messages;  // two files
    std::string output;
    Octets octets = Octets::automatic;
    bool json = false;
};

// A message as it is compared: what the library reads, and the offset of each value.
struct Side {
    std::string origin;
    const MessageType* type;
    std::vector<std::uint8_t> bytes;
    Finding finding;
    std::vector<std::pair<std::string, Json>> values;  // by path, in field order
    std::map<std::string, std::uint32_t> offsets;      // by path
};

// A record's values by path: "f0", "f6.f4[3].f0", "f15[2]".
void flatten(const Json& value, const std::string& path, std::vector<std::pair<std::string, Json>>& values) {
    if (value.is_object()) {
        for (const auto& [key, member] : value.items()) {
            flatten(member, path.empty() ? key : fmt::format("{}.{}", path, key), values);
        }
    } else if (value.is_array()) {
        for (std::size_t k = 0; k < value.size(); ++k)
            flatten(value[k], fmt::format("{}[{}]", path, k), values);
    } else {
        values.emplace_back(path, value);
    }
}

// With texts only where people read them.
Side read_side(const Message& message, Octets octets) {
    Side side = {message.origin,
                 &message.type,
                 {message.bytes.begin(), message.bytes.end()},
                 find_faults(message.type, message.bytes),
                 {},
                 {}};
    if (!side.finding.is_buffer()) return side;
    const Unpacked unpacked(message.type, message.bytes);
    flatten(readable_json(message.type, unpacked.record(), octets), "", side.values);
    walk(message.type, message.bytes, [&side](const vorn_range& range) {
        if (range.part == VORN_PART_SCALAR) side.offsets.emplace(range.path, range.at);
        if (range.part != VORN_PART_ELEMENTS) return;
        if (range.field->display != VORN_DISPLAY_NUMBERS) {
            side.offsets.emplace(range.path, range.at);
            return;
        }
        const std::uint32_t width = range.field->element_bytes;
        for (std::uint32_t k = 0; k < range.bytes / width; ++k) {
            side.offsets.emplace(fmt::format("{}[{}]", range.path, k), range.at + k * width);
        }
    });
    return side;
}

struct Value {
    const Json* value = nullptr;      // null: the record has none of this path
    std::optional<std::uint32_t> at;  // none: absent from the message, or not read
};

struct Difference {
    std::string path;
    Value left;
    Value right;
};

std::vector<Difference> differences(const Side& left, const Side& right) {
    std::map<std::string, const Json*> others;
    for (const auto& [path, value] : right.values) others.emplace(path, &value);
    const auto offset = [](const Side& side, const std::string& path) {
        const auto found = side.offsets.find(path);
        return found == side.offsets.end() ? std::nullopt : std::optional(found->second);
    };
    std::vector<Difference> list;
    for (const auto& [path, value] : left.values) {
        const auto other = others.find(path);
        const Json* const there = other == others.end() ? nullptr : other->second;
        if (there != nullptr) others.erase(other);
        if (there != nullptr && *there == value) continue;
        list.push_back({path, {&value, offset(left, path)}, {there, offset(right, path)}});
    }
    for (const auto& [path, value] : right.values) {
        if (others.contains(path)) list.push_back({path, {}, {&value, offset(right, path)}});
    }
    return list;
}

std::string text_of(const Value& value) {
    if (value.value == nullptr) return "not there";
    const bool is_text =
        value.value->is_string() && value.value->get_ref<const std::string&>().starts_with('"');
    return (is_text ? value.value->get<std::string>() : json_text(*value.value)) +
           (value.at ? fmt::format(" at {}", *value.at) : std::string());
}

Json json_of(const Value& value) {
    return {{"value", value.value != nullptr ? *value.value : Json(nullptr)},
            {"there", value.value != nullptr},
            {"at", value.at ? Json(*value.at) : Json(nullptr)}};
}

Json json_of(const Side& side) {
    return {{"origin", side.origin},
            {"type", side.type->name},
            {"bytes", side.bytes.size()},
            {"layout", side.finding.is_buffer() ? Json(vorn_inspect_layout_text(side.finding.walk.layout))
                                                : Json(nullptr)},
            {"verdict", side.finding.verdict()}};
}

// The messages of a file one by one, read by a thread of their own that is never far ahead.
class MessageSource {
  public:
    explicit MessageSource(const MessageOptions& options) : reader_([this, options] { read(options); }) {}
    ~MessageSource() {
        {
            const std::lock_guard lock(mutex_);
            unwanted_ = true;
        }
        changed_.notify_all();
        reader_.join();
    }
    MessageSource(const MessageSource&) = delete;
    MessageSource& operator=(const MessageSource&) = delete;

    // Calls `use` with the next message; false if there is none. Throws what the reader met.
    template <class Use>
    bool next(const Use& use) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !waiting_.empty() || ended_; });
        if (waiting_.empty()) {
            if (fault_) std::rethrow_exception(fault_);
            return false;
        }
        const Kept kept = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        changed_.notify_all();
        use(Message{kept.origin, *kept.type, kept.bytes, kept.packet});
        return true;
    }

  private:
    struct Kept {
        std::string origin;
        const MessageType* type;
        std::vector<std::uint8_t> bytes;
        std::optional<Packet> packet;
    };
    struct Unwanted {};
    static constexpr std::size_t kMostWaiting = 64;

    void read(const MessageOptions& options) {
        std::exception_ptr fault;
        try {
            for_each_message(options, [this](const Message& message) {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [this] { return waiting_.size() < kMostWaiting || unwanted_; });
                if (unwanted_) throw Unwanted();
                waiting_.push_back({message.origin,
                                    &message.type,
                                    {message.bytes.begin(), message.bytes.end()},
                                    message.packet});
                lock.unlock();
                changed_.notify_all();
            });
        } catch (const Unwanted&) {
            // nobody asks any more
        } catch (...) {
            fault = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        fault_ = fault;
        ended_ = true;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Kept> waiting_;
    std::exception_ptr fault_;
    bool ended_ = false;
    bool unwanted_ = false;
    std::thread reader_;  // last: it uses all of the others
};

class Diff {
  public:
    Diff(Output& output, bool json) : output_(output), json_(json) {}

    void compare(const Side& left, const Side& right) {
        const bool same_type = left.type == right.type;
        const std::vector<Difference> list = same_type ? differences(left, right) : std::vector<Difference>();
        const bool same_verdict = std::string(left.finding.verdict()) == right.finding.verdict();
        const bool both_unreadable = !left.finding.is_buffer() && !right.finding.is_buffer();
        const bool same =
            same_type && same_verdict && list.empty() && (!both_unreadable || left.bytes == right.bytes);
        differ_ |= !same;
        if (json_) {
            Json object = {{"same", same},
                           {"same_bytes", left.bytes == right.bytes},
                           {"left", json_of(left)},
                           {"right", json_of(right)},
                           {"fields", Json::array()}};
            for (const Difference& difference : list) {
                object["fields"].push_back({{"path", difference.path},
                                            {"left", json_of(difference.left)},
                                            {"right", json_of(difference.right)}});
            }
            return output_.write_line(object);
        }
        if (same && left.bytes == right.bytes) return;
        output_.write(fmt::format("- {}: {}, {} bytes, {}\n+ {}: {}, {} bytes, {}\n", shown(left.origin),
                                  left.type->name, left.bytes.size(), summary_of(left.finding),
                                  shown(right.origin), right.type->name, right.bytes.size(),
                                  summary_of(right.finding)));
        for (const Difference& difference : list) {
            output_.write(fmt::format("  {:<16} {}  ->  {}\n", difference.path, text_of(difference.left),
                                      text_of(difference.right)));
        }
        if (same) output_.write("  the same record in other bytes\n");
    }

    void alone(const Side& side, bool is_left) {
        differ_ = true;
        if (json_) {
            Json object = {{"same", false},
                           {"same_bytes", false},
                           {"left", is_left ? json_of(side) : Json(nullptr)},
                           {"right", is_left ? Json(nullptr) : json_of(side)},
                           {"fields", Json::array()}};
            return output_.write_line(object);
        }
        output_.write(fmt::format("{} {}: {}, {} bytes, {}\n  without a partner\n", is_left ? '-' : '+',
                                  shown(side.origin), side.type->name, side.bytes.size(),
                                  summary_of(side.finding)));
    }

    bool differ() const { return differ_; }

  private:
    Output& output_;
    bool json_;
    bool differ_ = false;
};

ExitCode run_diff(const DiffOptions& options) {
    const auto only = [&options](std::size_t file) {
        MessageOptions one = options.messages;
        one.files = {options.messages.files[file]};
        return one;
    };
    if (options.messages.files[0] == "-" && options.messages.files[1] == "-") {
        throw CommandError(kBadUsage, "standard input cannot be both sides");
    }
    const Octets octets = options.json ? Octets::hex : options.octets;
    Output output(options.output);
    Diff diff(output, options.json);
    MessageSource left(only(0));
    for_each_message(only(1), [&](const Message& message) {
        const Side right = read_side(message, octets);
        const auto compare = [&](const Message& other) { diff.compare(read_side(other, octets), right); };
        if (!left.next(compare)) diff.alone(right, false);
    });
    while (left.next([&](const Message& message) { diff.alone(read_side(message, octets), true); })) {
    }
    output.finish();
    return diff.differ() ? kBadData : kOk;
}

}  // namespace

void add_diff(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_diff);
    add_message_options(verb, options.messages);
    verb.get_option("FILE")->expected(2)->description("Two files, whose messages are compared in pairs");
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    add_octets_option(verb, options.octets);
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.footer(
        "Each difference has the offsets of the two values. Exit code 1 if records or verdicts differ;\n"
        "the same record in other bytes, as in the other layout, is no difference.");
}

}  // namespace tool
