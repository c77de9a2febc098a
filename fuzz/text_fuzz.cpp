// SPDX-License-Identifier: Apache-2.0
// Promise: no text makes the tool's readers misbehave, and a record that they read is written and read again
// the same.
//
// Input: message type, then a record in JSON, or anything.
#include <memory_resource>
#include <stdexcept>
#include <string>

#include "fuzz/supply.h"
#include "tool/message/record_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto type = supply.take<std::uint8_t>();
    const std::vector<std::uint8_t> rest = supply.rest();
    const std::string text(rest.begin(), rest.end());
    for (const std::size_t bytes : {4U, 6U, 16U}) {
        try {
            const auto address = tool::from_address(text, bytes);
            fuzz::promise(tool::from_address(tool::to_address(address), bytes) == address,
                          "an address is read as it was written");
        } catch (const std::invalid_argument&) {
            // refused, as promised
        }
    }
    const auto object = tool::Json::parse(text, nullptr, false);
    if (object.is_discarded()) return 0;
    fuzz::with_message_type(type, [&]<class Record> {
        std::pmr::monotonic_buffer_resource arrays;
        Record record = {};
        try {
            tool::record_from_json(object, record, arrays);
        } catch (const tool::RecordError&) {
            return;
        }
        const tool::Json written = tool::record_to_json(record);
        Record again = {};
        tool::record_from_json(written, again, arrays);
        fuzz::promise(tool::record_to_json(again) == written, "a record is read as it was written");
    });
    return 0;
}
