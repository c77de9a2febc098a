// SPDX-License-Identifier: Apache-2.0
// The message types as the tool handles them: by name or id, their records behind void pointers.
#ifndef TOOL_MESSAGE_TYPE_H
#define TOOL_MESSAGE_TYPE_H

#include <cstdint>
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

// What became of received bytes, and why.
struct Decoded {  // NOLINT(bugprone-exception-escape): Json's own move says that it does not throw
    kaplo::Outcome outcome = kaplo::Outcome::whole;
    Json record;                      // as unpack leaves it
    std::vector<std::string> faults;  // "function: text", as a host's log shows them
};

// "ok", "header" or "field"; "argument" is what verbs call the number of bytes that is no buffer's.
const char* verdict_text(kaplo::Outcome outcome);

// Whether so many bytes can be a message at all.
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

    virtual Json to_json(const void* record) const = 0;

    // `record` is zeroed storage of record_bytes; see record_from_json.
    virtual void from_json(const Json& object, void* record, std::pmr::memory_resource& memory) const = 0;

    // Reads `bytes` as unpack does. Throws RecordError where their number is no buffer's.
    virtual Decoded decode(std::span<const std::uint8_t> bytes) const = 0;

    // Whether `bytes` are read without a fault; where their number is no buffer's, they are not.
    virtual bool is_whole(std::span<const std::uint8_t> bytes) const = 0;

    // What the library logs where the number of bytes is no buffer's, as decode() has it.
    virtual std::vector<std::string> refuse(std::span<const std::uint8_t> bytes) const = 0;

    // The exported pack and, for types that have one, the fixed image.
    virtual std::vector<std::uint8_t> pack(const void* record) const = 0;
    virtual std::vector<std::uint8_t> image(const void* record) const = 0;

    // The exported functions, for those that time them. `bytes` are a buffer's.
    virtual std::uint32_t pack_into(const void* record, std::span<std::uint8_t> buffer) const = 0;
    virtual void unpack_from(std::span<const std::uint8_t> bytes, void* record) const = 0;
    virtual void free_unpacked(void* record) const = 0;

    // The compact size, as pack tells it.
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
