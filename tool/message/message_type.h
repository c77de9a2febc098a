// SPDX-License-Identifier: Apache-2.0
// The message types as the tool handles them: by name or id, their records as void pointers.
#ifndef TOOL_MESSAGE_TYPE_H
#define TOOL_MESSAGE_TYPE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/unpack.h"
#include "tool/message/record_json.h"
#include "tool/message/shape.h"

namespace tool {

// What unpack made of received bytes, and why.
struct Unpacked {
    kaplo::Outcome outcome;
    const void* record;                      // valid until the function returns to which this is passed
    const std::vector<std::string>& faults;  // "function: text", as a host's log shows them
};

// The same, as Json.
struct Decoded {  // NOLINT(bugprone-exception-escape): Json's own move is declared noexcept
    kaplo::Outcome outcome = kaplo::Outcome::whole;
    Json record;
    std::vector<std::string> faults;
};

// "ok", "header" or "field"; "argument" is what verbs call the number of bytes that is no buffer's.
const char* verdict_text(kaplo::Outcome outcome);

// Whether that number of bytes can be a message at all.
constexpr bool is_buffer_size(std::size_t bytes) {
    return bytes >= kaplo::kShortestBuffer && bytes <= kaplo::kLongestBuffer;
}

class MessageType {
  public:
    virtual ~MessageType() = default;

    std::string name;
    std::string module;
    std::uint32_t id = 0;
    std::uint32_t record_bytes = 0;
    std::optional<std::uint32_t> image_bytes;  // none: always sent in the compact layout
    const Shape* shape = nullptr;              // its fields

    virtual void visit(const void* record, RecordSink& sink) const = 0;

    // Of at most that many elements in all of its vectors.
    Json to_json(const void* record, std::size_t most_elements = SIZE_MAX) const;

    // `record` is zeroed storage of record_bytes; see record_from_json.
    virtual void from_json(const Json& object, void* record, std::pmr::memory_resource& memory) const = 0;

    // Reads `bytes` as unpack does, calls `use`, and frees. Throws RecordError where their number is no
    // buffer's.
    virtual void unpack(std::span<const std::uint8_t> bytes,
                        const std::function<void(const Unpacked&)>& use) const = 0;
    Decoded decode(std::span<const std::uint8_t> bytes, std::size_t most_elements = SIZE_MAX) const;

    // Whether `bytes` are read without a fault; where their number is no buffer's, they are not.
    bool is_whole(std::span<const std::uint8_t> bytes) const;

    // What the library logs where the number of bytes is no buffer's, as decode() has it.
    virtual std::vector<std::string> refuse(std::span<const std::uint8_t> bytes) const = 0;

    // The exported pack and, for types that have one, the fixed image.
    virtual std::vector<std::uint8_t> pack(const void* record) const = 0;
    virtual std::vector<std::uint8_t> image(const void* record) const = 0;

    // The exported functions, for those that time them. `bytes` are a buffer's.
    virtual std::uint32_t pack_into(const void* record, std::span<std::uint8_t> buffer) const = 0;
    virtual void unpack_from(std::span<const std::uint8_t> bytes, void* record) const = 0;
    virtual void free_unpacked(void* record) const = 0;

    // The compact size, as pack returns it.
    virtual std::uint32_t packed_bytes(const void* record) const = 0;

    // The exported functions; records lie back to back, and target 0 is none.
    virtual std::uint32_t send(std::uint32_t destination, const void* records, std::uint32_t count,
                               std::uint64_t target) const = 0;
    virtual std::uint32_t send_batch(std::uint32_t destination, const void* records,
                                     std::uint32_t count) const = 0;
};

// All message types, module by module.
const std::vector<std::unique_ptr<const MessageType>>& message_types();

// Finds a type by its full name; null if there is none.
const MessageType* find_message_type(std::string_view name);
const MessageType* find_message_type(std::uint32_t id);

// Reads a type as users name it: its full name, or its id as "0x09B58155" or "162889045". Null if there is
// none.
const MessageType* named_message_type(const std::string& text);

// Registers all modules with the bus, as a process that receives and sends everything does. Returns the first
// result that is not 0.
std::int32_t register_all_modules();

}  // namespace tool

#endif
