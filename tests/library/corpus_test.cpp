// SPDX-License-Identifier: Apache-2.0
// The stored corpus: buffers, whole and damaged, with what an independent reader made of each. Unpack must
// agree on the record, the log, the allocations and the releases. reference/README.md describes the lines.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;
using nlohmann::json;

constexpr std::uint8_t kUntouched = 0xAA;  // every byte of the record before unpack

// ---- records as the corpus shows them ---------------------------------------------------------------

[[gnu::noinline]] json address_text(const std::uint8_t (&address)[6]) {
    std::string text = to_hex({address, address + 6});
    std::replace(text.begin(), text.end(), ' ', ':');
    text.pop_back();
    return text;
}

[[gnu::noinline]] json address_text(const std::uint8_t (&address)[16]) {
    std::array<char, INET6_ADDRSTRLEN> text = {};
    inet_ntop(AF_INET6, address, text.data(), text.size());
    return std::string(text.data());
}

[[gnu::noinline]] json numbers(const std::uint8_t* bytes, std::uint32_t count) {
    std::string text = to_hex({bytes, bytes + count});
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

template <std::size_t size>
json address_text(const std::uint8_t (&bytes)[size]) {  // of no address: hexadecimal digits
    return numbers(bytes, size);
}

template <class T>
[[gnu::noinline]] json numbers(const T* elements, std::uint32_t count) {
    json list = json::array();
    for (std::uint32_t k = 0; k < count; ++k) list.push_back(std::uint64_t{elements[k]});
    return list;
}

// Out of line, as json is too much code to stand in the walk of every record's fields.
[[gnu::noinline]] json number(std::uint64_t value) { return value; }
[[gnu::noinline]] json lost(std::uint32_t count) { return {{"lost", count}}; }
[[gnu::noinline]] json array_without_elements() { return "an array without elements"; }
[[gnu::noinline]] void append(json& list, json element) { list.push_back(std::move(element)); }
[[gnu::noinline]] void set_field(json& object, std::uint32_t id, json value) {
    object["f" + std::to_string(id)] = std::move(value);
}

template <class Record>
json record_json(const Record& record);

template <class F>
json field_json(const typename F::Record& record) {
    using enum kaplo::Kind;
    using Element = typename F::Element;
    if constexpr (F::kind == scalar) {
        return number(F::in(record));
    } else if constexpr (F::kind == nested_table) {
        return record_json(F::in(record));
    } else if constexpr (F::kind == fixed_array && std::is_same_v<Element, std::uint8_t>) {
        return address_text(F::in(record));
    } else if constexpr (F::kind == fixed_array) {
        return numbers(F::in(record), std::extent_v<typename F::Member>);
    } else {
        const std::uint32_t count = F::count(record);
        if (count != 0 && F::elements(record) == nullptr) return lost(count);
        if (count == 0 && F::elements(record) != nullptr) return array_without_elements();
        if constexpr (F::kind == scalar_vector) {
            return numbers(F::elements(record), count);
        } else {
            json list = json::array();
            for (std::uint32_t k = 0; k < count; ++k) append(list, record_json(F::elements(record)[k]));
            return list;
        }
    }
}

template <class Record>
json record_json(const Record& record) {
    json object = json::object();
    kaplo::each_field<Record>(
        [&]<class F, std::uint32_t id> { set_field(object, id, field_json<F>(record)); });
    return object;
}

json any_record_json(const std::string& type, const void* record) {
#define NAC_RECORD_JSON(Message) \
    if (type == #Message) return record_json(*static_cast<const Message*>(record));
    NAC_ALL_MESSAGES(NAC_RECORD_JSON)
#undef NAC_RECORD_JSON
    return nullptr;
}

// ---- one case ---------------------------------------------------------------------------------------

bool names(const json& nulls, const char* pointer) {
    return std::find(nulls.begin(), nulls.end(), pointer) != nulls.end();
}

// A log line's text from its format and its values.
std::string formatted(const std::string& format, const json& values) {
    std::string text;
    std::size_t value = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            text += format[i];
            continue;
        }
        ++i;  // over the conversion
        const json& given = values.at(value++);
        text += given.is_string() ? given.get<std::string>() : given.dump();
    }
    return text;
}

// The part of a line that states what must happen, each log line with its text.
json expected_outcome(const json& line) {
    json log = json::array();
    for (const json& each : line.at("log")) {
        log.push_back({{"category", each.at("category")},
                       {"function", each.at("function")},
                       {"format", each.at("format")},
                       {"text", formatted(each.at("format"), each.at("args"))}});
    }
    return {{"record", line.at("record")},
            {"log", log},
            {"allocations", line.at("allocations")},
            {"released", line.at("released")}};
}

class Corpus : public MessageTest, public testing::WithParamInterface<MessageType> {
  protected:
    // What the library makes of the case, in the same terms.
    json outcome(const json& line) {
        services.reset();
        if (line.contains("fail_allocation")) services.fail_allocation(line.at("fail_allocation"));
        GuardedBuffer buffer(hex(line.at("hex").get<std::string>()));
        const json nulls = line.value("null", json::array());
        alignas(std::max_align_t) std::array<std::uint8_t, RecordingBus::kRecordCapacity> record;
        record.fill(kUntouched);

        EXPECT_EQ(
            type.unpack(names(nulls, "buffer") ? nullptr : buffer.data(), line.value("length", buffer.size()),
                        names(nulls, "record") ? nullptr : record.data()),
            type.record_bytes);

        const bool untouched = std::all_of(record.begin(), record.begin() + type.record_bytes,
                                           [](std::uint8_t byte) { return byte == kUntouched; });
        const json result = {
            {"record", untouched ? json("untouched") : any_record_json(type.name, record.data())},
            {"log", log()},
            {"allocations", allocations()},
            {"released", released()}};
        if (!untouched) type.free(record.data());
        return result;
    }

    static void TearDownTestSuite() {
        std::cout << "count: " << all_cases << " cases of the corpus agree with the reference\n";
    }

    const MessageType& type = GetParam();
    static inline int all_cases = 0;

  private:
    json log() const {
        json lines = json::array();
        for (const LogLine& each : services.log_lines()) {
            lines.push_back({{"category", each.category},
                             {"function", each.function},
                             {"format", each.format},
                             {"text", each.text}});
        }
        return lines;
    }

    json allocations() const {
        json list = json::array();
        for (const Allocation& each : services.allocations()) list.push_back({each.size, each.caller});
        return list;
    }

    std::size_t released() const {
        const auto releases = services.releases();
        return static_cast<std::size_t>(std::count_if(
            releases.begin(), releases.end(), [](const auto& each) { return each.block != nullptr; }));
    }
};
NAC_FOR_ALL_MESSAGES(Corpus);

TEST_P(Corpus, UnpackAgreesWithTheReference) {
    std::ifstream file(NAC_CORPUS_FOLDER "/" + type.name + ".jsonl");
    int cases = 0;
    for (std::string text; std::getline(file, text); ++cases) {
        const json line = json::parse(text);
        SCOPED_TRACE(line.at("name").get<std::string>() + ", where the reference expects " +
                     line.at("verdict").get<std::string>());
        ASSERT_EQ(line.at("type"), type.name);
        EXPECT_EQ(outcome(line), expected_outcome(line));
    }
    EXPECT_GE(cases, 150) << "the corpus is not there";
    all_cases += cases;
}

}  // namespace
