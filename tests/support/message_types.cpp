// SPDX-License-Identifier: Apache-2.0
// The message types as values: one row of functions for each.
#include "tests/support/message_types.h"

#include <utility>

#include "nac/catalogue.h"
#include "tests/support/same_record.h"
#include "tests/support/stopped_record.h"

namespace tests {
namespace {

template <class Record>
AnyRecords random_records(std::uint64_t seed, Filling filling, std::size_t count,
                          std::uint32_t most_elements) {
    const auto owner = std::make_shared<const RandomRecords<Record>>(seed, filling, count, most_elements);
    return {owner, owner->data(), owner->size(), sizeof(Record)};
}

template <class Record>
std::vector<std::uint32_t> array_bytes(const void* any) {
    const auto& record = *static_cast<const Record*>(any);
    std::vector<std::uint32_t> sizes;
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
            constexpr std::uint32_t element_bytes = sizeof(typename F::Element);
            if (F::count(record) != 0) sizes.push_back(F::count(record) * element_bytes);
        }
    });
    return sizes;
}

template <class Record>
MessageType message_type() {
    using Functions = nac::Functions<Record>;
    MessageType type = {};
    type.name = kaplo::Description<Record>::name.c_str();
    type.message_id = kaplo::message_id<Record>;
    type.record_bytes = sizeof(Record);
    type.root_decoder = kaplo::root_decoder_name<Record>();
    type.complaint_blanks =
        kaplo::Description<Record>::allocation_complaint == kaplo::AllocationComplaint::one_blank ? 1 : 16;
    type.owns_memory = kaplo::owns_memory<Record>;
    type.pack = [](const void* record, std::uint8_t* buffer, std::uint32_t* length) {
        return Functions::pack(static_cast<const Record*>(record), buffer, length);
    };
    type.unpack = [](const std::uint8_t* buffer, std::uint32_t length, void* record) {
        return Functions::unpack(buffer, length, static_cast<Record*>(record));
    };
    type.free = [](void* record) { Functions::free(static_cast<Record*>(record)); };
    type.send_single = [](std::uint32_t destination, const void* record, std::uint64_t target) {
        return Functions::send_single(destination, static_cast<const Record*>(record), 0, target);
    };
    type.send_batch = [](std::uint32_t destination, const void* records, std::uint32_t count,
                         std::uint64_t target) {
        return Functions::send_batch(destination, static_cast<const Record*>(records), count, target);
    };
    type.send_to = [](std::uint32_t destination, const void* records, std::uint32_t count,
                      std::uint64_t target) {
        return Functions::send_to(destination, static_cast<const Record*>(records), count, target);
    };
    type.random_records = random_records<Record>;
    type.same_record = [](const void* actual, const void* expected) {
        return same_record(*static_cast<const Record*>(actual), *static_cast<const Record*>(expected));
    };
    type.stopped_record = [](const void* actual, const void* sent) {
        return stopped_record(*static_cast<const Record*>(actual), *static_cast<const Record*>(sent));
    };
    type.array_bytes = array_bytes<Record>;
    return type;
}

}  // namespace

std::uint32_t MessageType::packed_size(const void* record) const {
    std::uint32_t length = 0xFFFFFFFF;
    const std::uint32_t result = pack(record, nullptr, &length);
    EXPECT_EQ(result, 0U);
    return result == 0 ? length : 0;
}

Bytes MessageType::packed(const void* record) const {
    Bytes bytes(packed_size(record));
    auto length = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(pack(record, bytes.data(), &length), 0U);
    EXPECT_EQ(length, bytes.size());
    return bytes;
}

Bytes MessageType::sent(const void* record) const {
    EXPECT_EQ(send_single(1, record, 0), 0U);
    return RecordingBus::instance().sends().back().messages.at(0);
}

std::vector<Bytes> MessageType::in_all_layouts(const void* record) const {
    std::vector<Bytes> messages = {packed(record)};
    if (!owns_memory) messages.push_back(sent(record));
    return messages;
}

void PrintTo(const MessageType& type, std::ostream* out) { *out << type.name; }

const std::vector<MessageType>& message_types() {
#define NAC_MESSAGE_TYPE(Message) message_type<Message>(),
    static const std::vector<MessageType> types = {NAC_ALL_MESSAGES(NAC_MESSAGE_TYPE)};
#undef NAC_MESSAGE_TYPE
    return types;
}

std::vector<MessageType> message_types_with_images() {
    std::vector<MessageType> chosen = message_types();
    std::erase_if(chosen, [](const MessageType& type) { return type.owns_memory; });
    return chosen;
}

}  // namespace tests
