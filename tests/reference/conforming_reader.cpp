// SPDX-License-Identifier: Apache-2.0
// A reader for conformance.py: conforming_reader library has the records that the exported functions unpack,
// conforming_reader inspection the verdicts and records of libvorn_nac_inspect.
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/vorn_inspect.h"
#include "tests/support/bytes.h"

namespace {

std::int32_t append(const char* text, std::size_t bytes, void* whole) {
    static_cast<std::string*>(whole)->append(text, bytes);
    return 0;
}

std::string record_text(const vorn_type& type, const void* record) {
    std::string text;
    vorn_inspect_to_json(&type, record, SIZE_MAX, append, &text);
    return text;
}

std::string answer(const vorn_type& type, const tests::Bytes& bytes, bool inspects) {
    std::vector<std::uint64_t> storage(type.record_bytes / sizeof(std::uint64_t) +
                                       1);  // aligned for any record
    void* const record = storage.data();
    const std::uint8_t nothing = 0;  // no bytes, but not null
    const std::uint8_t* const start = bytes.empty() ? &nothing : bytes.data();
    std::string text = "{";
    if (inspects) {
        const vorn_verdict verdict = vorn_inspect_unpack(&type, start, bytes.size(), record);
        text += R"("verdict":")" + std::string(vorn_inspect_verdict_text(verdict)) + R"(",)";
    } else {
        type.unpack(start, static_cast<std::uint32_t>(bytes.size()), record);
    }
    text += R"("record":)" + record_text(type, record) + "}";
    type.free_unpacked(record);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (what != "library" && what != "inspection") {
        std::cerr << "usage: conforming_reader library, or conforming_reader inspection\n";
        return 2;
    }
    for (std::string line; std::getline(std::cin, line);) {
        const nlohmann::json message = nlohmann::json::parse(line);
        const vorn_type* const type =
            vorn_inspect_type_by_name(vorn_nac_catalogue(), message.at("type").get<std::string>().c_str());
        if (type == nullptr) return 1;
        std::cout << answer(*type, tests::hex(message.at("hex").get<std::string>()), what == "inspection")
                  << "\n";
    }
    return 0;
}
