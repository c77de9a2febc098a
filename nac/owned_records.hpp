// SPDX-License-Identifier: Apache-2.0
// Pack and unpack for C++20: see nac.hpp. Without a bus, link vorn_nac::inspect alone.
#ifndef NAC_OWNED_RECORDS_HPP
#define NAC_OWNED_RECORDS_HPP

#if __cplusplus < 202002L
#error "nac/nac.hpp needs C++20: compile with -std=c++20, or target_compile_features(... cxx_std_20)"
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "inspect/vorn_inspect.h"
#include "nac/message_functions.hpp"

namespace nac {

using Bytes = std::span<const std::uint8_t>;

// A record type that is a message: Nac_SetPortMsg and its like.
template <class Record>
concept Message = requires {
    Functions<Record>::id;
};

// "Nac_SetPortMsg".
template <Message Record>
inline constexpr const char* name = Functions<Record>::name;

// The type as data, for the functions of vorn_inspect.h.
template <Message Record>
const vorn_type* type() {
    static const vorn_type* const found =
        vorn_inspect_type_by_id(vorn_nac_catalogue(), Functions<Record>::id);
    return found;
}

// ---- vectors --------------------------------------------------------------------------------------------

// The elements of a record's vector: elements(record.f0, record.f0_count). None where a fault has cost the
// array.
template <class Element>
std::span<const Element> elements(const Element* array, std::uint32_t count) {
    return {array, array == nullptr ? 0 : count};
}

// Lets a record's vector refer to elements that stay the caller's: refer(record.f0, record.f0_count, flows).
// They are not changed, but the record has no const pointers.
template <class Element>
void refer(Element*& array, std::uint32_t& count, std::span<Element> elements) {
    array = elements.empty() ? nullptr : elements.data();
    count = static_cast<std::uint32_t>(elements.size());
}
template <class Element>
void refer(Element*& array, std::uint32_t& count, std::vector<Element>& elements) {
    refer(array, count, std::span(elements));
}

// ---- pack and unpack ------------------------------------------------------------------------------------

// Packs into `buffer`, in the compact layout. Returns the bytes written; none: the buffer is too small.
template <Message Record>
Bytes pack(const Record& record, std::span<std::uint8_t> buffer) {
    auto length = static_cast<std::uint32_t>(std::min<std::size_t>(buffer.size(), UINT32_MAX));
    return {buffer.data(), Functions<Record>::pack(&record, buffer.data(), &length) == 0 ? length : 0};
}

// The packed record. Empty: it cannot be packed, since it needs more than 0xFFFFFFFF bytes.
template <Message Record>
std::vector<std::uint8_t> pack(const Record& record) {
    std::vector<std::uint8_t> packed(vorn_inspect_packed_bytes(type<Record>(), &record));
    packed.resize(packed.empty() ? 0 : pack(record, packed).size());
    return packed;
}

// A record that was unpacked, and whether its bytes were a valid message. Frees its arrays.
template <Message Record>
class Unpacked {
  public:
    explicit Unpacked(Bytes bytes) : Unpacked() {
        verdict_ = vorn_inspect_unpack(type<Record>(), bytes.data(), bytes.size(), &record_);
        if (verdict_ == VORN_VERDICT_VALID) return;
        std::array<char, 512> text = {};
        vorn_inspect_verify(type<Record>(), bytes.data(), bytes.size(), write_first, &text);
        fault_ = text[0] != '\0' ? text.data() : vorn_inspect_verdict_text(verdict_);
    }
    ~Unpacked() { Functions<Record>::free(&record_); }
    Unpacked(Unpacked&& other) noexcept : Unpacked() { *this = std::move(other); }
    Unpacked& operator=(Unpacked&& other) noexcept {
        std::swap(record_, other.record_);
        std::swap(verdict_, other.verdict_);
        std::swap(fault_, other.fault_);
        return *this;
    }

    // Of damaged bytes, what stands before the first fault, and else zeros.
    const Record& operator*() const { return record_; }
    const Record* operator->() const { return &record_; }

    // Whether the bytes are valid.
    explicit operator bool() const { return verdict_ == VORN_VERDICT_VALID; }
    vorn_verdict verdict() const { return verdict_; }
    // What is wrong in a sentence: the first fault. Empty if the bytes are valid.
    const std::string& fault() const { return fault_; }

  private:
    Unpacked() = default;

    static std::int32_t write_first(const vorn_fault* fault, void* text) noexcept {
        auto& written = *static_cast<std::array<char, 512>*>(text);
        vorn_inspect_fault_text(fault, written.data(), written.size());
        return 1;
    }

    Record record_ = {};
    vorn_verdict verdict_ = VORN_VERDICT_ARGUMENT;  // of no bytes
    std::string fault_;
};

template <Message Record>
Unpacked<Record> unpack(Bytes bytes) {
    return Unpacked<Record>(bytes);
}

// The record as one JSON object, as vorn_inspect_to_json writes it.
template <Message Record>
std::string to_json(const Record& record, std::size_t most_elements = SIZE_MAX) {
    std::string json;
    const auto append = [](const char* text, std::size_t bytes, void* whole) noexcept {
        try {
            static_cast<std::string*>(whole)->append(text, bytes);
            return 0;
        } catch (...) {
            return 1;
        }
    };
    if (vorn_inspect_to_json(type<Record>(), &record, most_elements, append, &json) != 0)
        throw std::bad_alloc();
    return json;
}

}  // namespace nac

#endif
