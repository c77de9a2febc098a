// SPDX-License-Identifier: Apache-2.0
// Prints the measured records, and those inside them, as JSON: what the peers' schemas are generated from.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <type_traits>

#include "bench/messages.h"

namespace {

using Json = nlohmann::ordered_json;

template <class Record>
void add(Json& records);

template <class Element>
Json element_name(Json& records) {
    if constexpr (std::is_class_v<Element>) {
        add<Element>(records);
        return kaplo::Description<Element>::name.c_str();
    } else {
        return "u" + std::to_string(8 * sizeof(Element));
    }
}

constexpr const char* name_of(kaplo::Kind kind) {
    switch (kind) {
        case kaplo::Kind::scalar:
            return "scalar";
        case kaplo::Kind::fixed_array:
            return "fixed_array";
        case kaplo::Kind::nested_table:
            return "nested_table";
        case kaplo::Kind::scalar_vector:
            return "scalar_vector";
        case kaplo::Kind::table_vector:
            break;
    }
    return "table_vector";
}

// A record comes after those that it contains.
template <class Record>
void add(Json& records) {
    const char* const name = kaplo::Description<Record>::name.c_str();
    if (records.contains(name)) return;
    Json fields = Json::array();
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        Json field = {
            {"id", id}, {"kind", name_of(F::kind)}, {"element", element_name<typename F::Element>(records)}};
        if constexpr (F::kind == kaplo::Kind::fixed_array)
            field["length"] = std::extent_v<typename F::Member>;
        fields.push_back(field);
    });
    records[name] = fields;
}

}  // namespace

int main() {
    Json records = Json::object();
#define BENCH_ADD(Record) add<Record>(records);
    BENCH_RECORDS(BENCH_ADD)
    std::puts(records.dump(1).c_str());
}
