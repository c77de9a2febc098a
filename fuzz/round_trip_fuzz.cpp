// SPDX-License-Identifier: Apache-2.0
// Promise: what is packed unpacks to the same record, in both layouts and byte orders, and its size is
// reported to the byte.
//
// Input: message type and byte order, then the record.
#include "fuzz/checked_unit.h"
#include "tests/support/plain_writer.h"

namespace {

template <class Record>
void unpacks_to(const Record& expected, kaplo::Unit& unit, const std::vector<std::uint8_t>& bytes) {
    Record unpacked = {};
    kaplo::unpack(unit, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &unpacked);
    tests::Difference difference;
    if (!tests::same(unpacked, expected, difference)) fuzz::broken(difference.result(false).message());
    kaplo::free_unpacked(unit, &unpacked);
}

template <class Record>
void round_trip(fuzz::Supply& supply, std::endian order) {
    fuzz::CheckedUnit unit(order);
    fuzz::account.clear();
    fuzz::RecordSource source(supply);
    Record record = {};
    source.fill(record);

    const std::uint32_t size = kaplo::message_bytes(&record);
    std::vector<std::uint8_t> bytes(size, 0xEE);  // an allocation of just this size, watched by the sanitizer
    std::uint32_t length = size - 1;
    fuzz::promise(kaplo::pack(unit, &record, bytes.data(), &length) == kaplo::kRefusal && length == size - 1,
                  "a byte too little is refused");
    fuzz::promise(bytes == std::vector<std::uint8_t>(size, 0xEE), "a refusal writes nothing");
    length = size;
    fuzz::promise(kaplo::pack(unit, &record, bytes.data(), &length) == 0 && length == size,
                  "the reported size is enough");
    fuzz::promise(kaplo::write_message(unit, &record, bytes.data(), size, size) == size,
                  "the bytes written are the reported size");
    fuzz::promise(bytes == tests::PlainWriter(order).compact(record), "the bytes are the plain writer's");
    unpacks_to(record, unit, bytes);
    fuzz::promise(fuzz::unpack_and_compare<Record>(bytes, order), "what was packed is valid");

    if constexpr (!kaplo::owns_memory<Record>) {
        std::vector<std::uint8_t> image(kaplo::Image<Record>::bytes);
        kaplo::write_image(unit, record, image.data());
        fuzz::promise(image == tests::PlainWriter(order).image(record), "the image is the plain writer's");
        unpacks_to(record, unit, image);
        fuzz::promise(fuzz::unpack_and_compare<Record>(image, order), "an image is valid");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const std::endian order = fuzz::order_from(supply.take<std::uint8_t>());
    fuzz::with_message_type(type, [&]<class Record> { round_trip<Record>(supply, order); });
    return 0;
}
