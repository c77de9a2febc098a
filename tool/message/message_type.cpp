// SPDX-License-Identifier: Apache-2.0
// The message types, made from the descriptions.
#include "tool/message/message_type.h"

#include <charconv>
#include <system_error>
#include <utility>

#include "runtime/pack.h"
#include "runtime/release.h"
#include "runtime/size.h"
#include "runtime/unpack.h"
#include "tool/message/host_services.h"
#include "tool/message/walk.h"

namespace tool {
namespace {

// The tool's own unit, with the tool's host services as its hooks.
kaplo::Unit unit;

template <class Record>
class TypeOf final : public MessageType {
  public:
    explicit TypeOf(const char* module_name) {
        name = kaplo::Description<Record>::name.c_str();
        module = module_name;
        id = kaplo::message_id<Record>;
        record_bytes = sizeof(Record);
        if constexpr (!kaplo::owns_memory<Record>) image_bytes = kaplo::Image<Record>::bytes;
        shape = find_shape(name);
    }

    void visit(const void* record, RecordSink& sink) const override { visit_record(of(record), sink); }
    void from_json(const Json& object, void* record, std::pmr::memory_resource& memory) const override {
        record_from_json(object, *static_cast<Record*>(record), memory);
    }
    void unpack(std::span<const std::uint8_t> bytes,
                const std::function<void(const Unpacked&)>& use) const override {
        if (!is_buffer_size(bytes.size())) {
            throw RecordError(name, fmt::format("{} bytes are no message; it has {} to {}", bytes.size(),
                                                kaplo::kShortestBuffer, kaplo::kLongestBuffer));
        }
        struct Received {
            ~Received() { kaplo::free_unpacked(unit, &record); }
            Record record = {};
        } received;
        kaplo::KaploMemHooksInit(unit);
        const kaplo::Region<kWireOrder> region(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        LogLines lines;
        const kaplo::Outcome outcome = kaplo::read_root(unit, region, received.record);
        use({outcome, &received.record, lines.take()});
    }
    std::vector<std::string> refuse(std::span<const std::uint8_t> bytes) const override {
        LogLines lines;
        const Record record = {};
        const std::uint8_t nothing = 0;  // a buffer without bytes is not null
        kaplo::check_unpack_arguments(unit, kaplo::unpack_name<Record>.c_str(),
                                      bytes.empty() ? &nothing : bytes.data(),
                                      static_cast<std::uint32_t>(bytes.size()), &record);
        return lines.take();
    }
    std::vector<std::uint8_t> pack(const void* record) const override {
        std::vector<std::uint8_t> bytes(packed_bytes(record));
        bytes.resize(pack_into(record, bytes));
        return bytes;
    }
    std::vector<std::uint8_t> image([[maybe_unused]] const void* record) const override {
        std::vector<std::uint8_t> bytes;
        if constexpr (!kaplo::owns_memory<Record>) {
            bytes.resize(kaplo::Image<Record>::bytes);
            kaplo::write_image(unit, of(record), bytes.data());
        }
        return bytes;
    }
    std::uint32_t pack_into(const void* record, std::span<std::uint8_t> buffer) const override {
        auto length = static_cast<std::uint32_t>(buffer.size());
        const std::uint32_t result = nac::Functions<Record>::pack(&of(record), buffer.data(), &length);
        if (result != 0) throw RecordError(name, "cannot be packed");
        return length;
    }
    void unpack_from(std::span<const std::uint8_t> bytes, void* record) const override {
        nac::Functions<Record>::unpack(bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                       static_cast<Record*>(record));
    }
    void free_unpacked(void* record) const override {
        nac::Functions<Record>::free(static_cast<Record*>(record));
    }
    std::uint32_t packed_bytes(const void* record) const override {
        return kaplo::message_bytes(&of(record));
    }
    std::uint32_t send(std::uint32_t destination, const void* records, std::uint32_t count,
                       std::uint64_t target) const override {
        return nac::Functions<Record>::send_to(destination, &of(records), count, target);
    }
    std::uint32_t send_batch(std::uint32_t destination, const void* records,
                             std::uint32_t count) const override {
        return nac::Functions<Record>::send_batch(destination, &of(records), count, 0);
    }

  private:
    static const Record& of(const void* record) { return *static_cast<const Record*>(record); }
};

using TypeList = std::vector<std::unique_ptr<const MessageType>>;

TypeList make_types() {
    TypeList types;
    const char* module = nullptr;
#define NAC_ADD_TYPE(Message) types.push_back(std::make_unique<const TypeOf<Message>>(module));
#define NAC_ADD_MODULE(name, prefix, MESSAGES) \
    module = #name;                            \
    MESSAGES(NAC_ADD_TYPE)
    NAC_ALL_MODULES(NAC_ADD_MODULE)
#undef NAC_ADD_MODULE
#undef NAC_ADD_TYPE
    return types;
}

}  // namespace

const char* verdict_text(kaplo::Outcome outcome) {
    switch (outcome) {
        case kaplo::Outcome::whole:
            return "ok";
        case kaplo::Outcome::bad_header:
            return "header";
        case kaplo::Outcome::bad_field:
            break;
    }
    return "field";
}

Json MessageType::to_json(const void* record, std::size_t most_elements) const {
    JsonBuilder builder(most_elements);
    visit(record, builder);
    return builder.take();
}

Decoded MessageType::decode(std::span<const std::uint8_t> bytes, std::size_t most_elements) const {
    Decoded decoded;
    unpack(bytes, [&](const Unpacked& unpacked) {
        decoded = {unpacked.outcome, to_json(unpacked.record, most_elements), unpacked.faults};
    });
    return decoded;
}

bool MessageType::is_whole(std::span<const std::uint8_t> bytes) const {
    if (!is_buffer_size(bytes.size())) return false;
    bool whole = false;
    unpack(bytes, [&whole](const Unpacked& unpacked) { whole = unpacked.outcome == kaplo::Outcome::whole; });
    return whole;
}

const TypeList& message_types() {
    static const TypeList types = make_types();
    return types;
}

const MessageType* find_message_type(std::string_view name) {
    for (const auto& type : message_types()) {
        if (type->name == name) return type.get();
    }
    return nullptr;
}

const MessageType* find_message_type(std::uint32_t id) {
    for (const auto& type : message_types()) {
        if (type->id == id) return type.get();
    }
    return nullptr;
}

const MessageType* named_message_type(const std::string& text) {
    if (const MessageType* const type = find_message_type(text)) return type;
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    std::uint32_t id = 0;
    const auto [end, error] = std::from_chars(first, last, id, hexadecimal ? 16 : 10);
    return error == std::errc() && end == last ? find_message_type(id) : nullptr;
}

std::int32_t register_all_modules() {
    std::int32_t result = 0;
#define NAC_REGISTER_MODULE(name, prefix, MESSAGES) \
    if (result == 0) result = prefix##_recv_init(); \
    if (result == 0) result = prefix##_send_init();
    NAC_ALL_MODULES(NAC_REGISTER_MODULE)
#undef NAC_REGISTER_MODULE
    return result;
}

}  // namespace tool
