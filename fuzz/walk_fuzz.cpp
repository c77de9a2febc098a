// SPDX-License-Identifier: Apache-2.0
// Promise: verification and the walk through any bytes end as unpack ends, stay inside them, and show what
// unpack reads.
//
// Each input is read twice: as received bytes, as decode_fuzz has them, and as a damaged message, as
// damage_fuzz has it. So the inputs of both serve here too.
#include <algorithm>
#include <string>

#include "fuzz/damaged.h"
#include "tool/message/record_json.h"
#include "tool/message/walk.h"

namespace {

// What the record holds at a path like "f6.f4[3].f0".
const tool::Json& at_path(const tool::Json& record, const std::string& path) {
    std::string pointer = "/";
    for (const char c : path) {
        if (c == '.' || c == '[') pointer += '/';
        if (c != '.' && c != '[' && c != ']') pointer += c;
    }
    return record.at(tool::Json::json_pointer(pointer));
}

void check_values(const tool::Annotated& annotated, const std::vector<std::uint8_t>& bytes,
                  const tool::Json& record) {
    for (const tool::Range& range : annotated.ranges) {
        if (range.part != VORN_PART_SCALAR && range.part != VORN_PART_ELEMENTS) continue;
        const tool::Json& value = at_path(record, range.path);
        std::string text(vorn_inspect_value_text(&range, bytes.data(), SIZE_MAX, nullptr, 0), '\0');
        vorn_inspect_value_text(&range, bytes.data(), SIZE_MAX, text.data(), text.size() + 1);
        std::erase(text, ' ');
        fuzz::promise(text == (value.is_string() ? value.get<std::string>() : value.dump()),
                      "the walk shows what unpack reads");
    }
}

void check(const tool::MessageType& type, const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() < VORN_SHORTEST_MESSAGE) return;
    const tool::Annotated annotated = tool::annotate(type, bytes);
    const tool::Walk& walk = annotated.walk;
    const tool::Unpacked unpacked(type, bytes);
    fuzz::promise(walk.verdict == unpacked.verdict(), "the walk ends as unpack ends");
    fuzz::promise(vorn_inspect_verify(&type, bytes.data(), bytes.size(), nullptr, nullptr) == walk.verdict,
                  "verification ends as unpack ends");
    fuzz::promise(unpacked.is_valid() == walk.faults.empty(), "a fault has a position");
    if (!walk.faults.empty()) {
        fuzz::promise((walk.faults.front().field == nullptr) == !unpacked.faults().empty(),
                      "unpack logs what is a header's fault");
    }
    std::uint32_t end = 0;
    for (const tool::Piece& piece : annotated.pieces) {
        fuzz::promise(piece.at == end && piece.bytes != 0 && !piece.meanings.empty(),
                      "pieces follow each other");
        end += piece.bytes;
    }
    fuzz::promise(end == bytes.size(), "pieces cover the message");
    for (const tool::Range& range : annotated.ranges) {
        fuzz::promise(range.at <= end && range.bytes <= end - range.at, "ranges lie in the message");
        fuzz::promise(!tool::meaning(range, bytes).empty(), "a range has a meaning");
    }
    if (unpacked.is_valid()) check_values(annotated, bytes, unpacked.json());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply received(data, size);
    const auto number = received.take<std::uint8_t>();
    const tool::MessageType& type = *tool::message_types()[number % fuzz::kMessageTypes];
    received.take<std::uint8_t>();
    check(type, received.rest());

    fuzz::Supply damaged(data, size);
    damaged.take<std::uint8_t>();
    const auto options = static_cast<std::uint8_t>(damaged.take<std::uint8_t>() & ~1);  // little-endian
    fuzz::with_message_type(
        number, [&]<class Record> { check(type, fuzz::damaged_message<Record>(damaged, options)); });
    return 0;
}
