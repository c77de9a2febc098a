// SPDX-License-Identifier: Apache-2.0
// Answers of the inspect library as values, for tests.
#ifndef TESTS_INSPECT_INSPECTED_H
#define TESTS_INSPECT_INSPECTED_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/vorn_inspect.h"
#include "tests/support/bytes.h"

namespace tests {

inline const vorn_type& inspected_type(const std::string& name) {
    return *vorn_inspect_type_by_name(vorn_nac_catalogue(), name.c_str());
}

// What a handler of faults is told, each in one sentence.
inline std::int32_t keep_fault(const vorn_fault* fault, void* texts) {
    std::string text(vorn_inspect_fault_text(fault, nullptr, 0) + 1, '\0');
    vorn_inspect_fault_text(fault, text.data(), text.size());
    text.pop_back();
    static_cast<std::vector<std::string>*>(texts)->push_back(text);
    return 0;
}

struct Verified {
    vorn_verdict verdict;
    std::vector<std::string> faults;
};

inline Verified verified(const vorn_type& type, const Bytes& bytes) {
    Verified made = {};
    made.verdict = vorn_inspect_verify(&type, bytes.data(), bytes.size(), keep_fault, &made.faults);
    return made;
}

inline std::int32_t append_text(const char* text, std::size_t bytes, void* whole) {
    static_cast<std::string*>(whole)->append(text, bytes);
    return 0;
}

inline std::string record_json(const vorn_type& type, const void* record, std::size_t most = SIZE_MAX) {
    std::string text;
    vorn_inspect_to_json(&type, record, most, append_text, &text);
    return text;
}

}  // namespace tests

#endif
