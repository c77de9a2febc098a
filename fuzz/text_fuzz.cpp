// SPDX-License-Identifier: Apache-2.0
// Promise: no text makes the readers misbehave, and a record that they read is written and read again the
// same.
//
// Input: message type, then a record in JSON, or anything.
#include <stdexcept>
#include <string>

#include "fuzz/supply.h"
#include "inspect/byte_text.h"
#include "inspect/vorn_inspect.h"

namespace {

// Reads the text to a record and writes it; empty: it was refused.
std::string read_and_written(const vorn_type& type, const std::string& text) {
    std::vector<std::uint64_t> record(type.record_bytes / sizeof(std::uint64_t) + 1);
    const bool is_read =
        vorn_inspect_from_json(&type, text.data(), text.size(), record.data(), nullptr, 0) == 0;
    std::string written;
    const auto append = [](const char* piece, std::size_t bytes, void* whole) {
        static_cast<std::string*>(whole)->append(piece, bytes);
        return 0;
    };
    if (is_read) vorn_inspect_to_json(&type, record.data(), SIZE_MAX, append, &written);
    vorn_inspect_free_record(&type, record.data());
    return written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const auto number = supply.take<std::uint8_t>();
    const std::vector<std::uint8_t> rest = supply.rest();
    const std::string text(rest.begin(), rest.end());
    for (const std::size_t bytes : {4U, 6U, 16U}) {
        try {
            const auto address = inspect::from_address(text, bytes);
            fuzz::promise(inspect::from_address(inspect::to_address(address), bytes) == address,
                          "an address is read as it was written");
        } catch (const std::invalid_argument&) {
            // refused, as promised
        }
    }
    fuzz::with_message_type(number, [&]<class Record> {
        const vorn_type& type = *vorn_inspect_type_by_id(vorn_nac_catalogue(), kaplo::message_id<Record>);
        const std::string written = read_and_written(type, text);
        if (written.empty()) return;
        fuzz::promise(read_and_written(type, written) == written, "a record is read as it was written");
    });
    return 0;
}
