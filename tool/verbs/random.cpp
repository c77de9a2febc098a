// SPDX-License-Identifier: Apache-2.0
// nac random: records by seed, the same ones on every machine.
#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/message_files.h"
#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

enum class Filling {
    zero,     // nothing set
    sparse,   // one value in eight set
    rich,     // every value set, no vector empty
    extreme,  // values at the limits of their widths
    mixed,    // each of these in turn
};

struct RandomOptions {
    std::vector<std::string> types;  // none: all, in turn
    std::string output;
    std::uint64_t seed = 0;
    std::uint64_t count = 25;
    std::uint32_t elements = 4;
    Filling filling = Filling::mixed;
    bool json = false;
};

class RecordMaker {
  public:
    RecordMaker(std::uint64_t seed, std::uint32_t most_elements)
        : state_(seed), most_elements_(most_elements) {}

    Json record(const MessageType& type, Filling filling) {
        Json object = Json::object();
        for (const Field* const field : fields_of(type)) object[field->name] = value(*field, filling);
        return object;
    }

  private:
    Json value(const Field& field, Filling filling) {
        switch (field.display) {
            case VORN_DISPLAY_NUMBER:
                return number(field.element_bytes, filling);
            case VORN_DISPLAY_TABLE:
                return record(*field.table, filling);
            case VORN_DISPLAY_HARDWARE_ADDRESS:
            case VORN_DISPLAY_IPV6_ADDRESS:
                return inspect::to_address(bytes(field.count, filling));
            case VORN_DISPLAY_HEX:
                return inspect::to_hex(bytes(length(field, filling), filling));
            default:
                break;
        }
        Json list = Json::array();
        for (std::uint32_t left = length(field, filling); left > 0; --left) {
            list.push_back(field.table != nullptr ? record(*field.table, filling)
                                                  : Json(number(field.element_bytes, filling)));
        }
        return list;
    }

    std::uint32_t length(const Field& field, Filling filling) {
        if (field.kind == VORN_KIND_FIXED_ARRAY) return field.count;
        if (filling == Filling::zero || most_elements_ == 0) return 0;
        if (filling == Filling::rich) return 1 + below(most_elements_);
        return below(most_elements_ + 1);
    }

    std::vector<std::uint8_t> bytes(std::uint32_t count, Filling filling) {
        std::vector<std::uint8_t> made(count);
        for (std::uint8_t& byte : made) byte = static_cast<std::uint8_t>(number(1, filling));
        return made;
    }

    std::uint64_t number(std::uint32_t width, Filling filling) {
        const std::uint64_t most = UINT64_MAX >> (64 - 8 * width);
        if (filling == Filling::zero || (filling == Filling::sparse && below(8) != 0)) return 0;
        if (filling == Filling::extreme) {
            const std::array<std::uint64_t, 6> limits = {0, 1, most / 2, most / 2 + 1, most - 1, most};
            return limits.at(below(limits.size()));
        }
        // Any width in bits is as likely as any other, so that small numbers occur too.
        return next() % (most >> below(std::uint64_t{8} * width)) + 1;
    }

    std::uint32_t below(std::uint64_t limit) { return static_cast<std::uint32_t>(next() % limit); }

    // splitmix64: the distributions of the standard library are not the same everywhere.
    std::uint64_t next() {
        std::uint64_t bits = state_ += 0x9E3779B97F4A7C15;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
        return bits ^ (bits >> 31);
    }

    std::uint64_t state_;
    std::uint32_t most_elements_;
};

ExitCode run_random(const RandomOptions& options) {
    std::vector<const MessageType*> types;
    for (const std::string& name : options.types) types.push_back(type_option(name));
    if (types.empty()) types = message_types();
    Output output(options.output);
    RecordMaker maker(options.seed, options.elements);
    for (std::uint64_t n = 0; n < options.count; ++n) {
        const MessageType& type = *types[n % types.size()];
        const Filling filling =
            options.filling == Filling::mixed ? static_cast<Filling>(n / types.size() % 4) : options.filling;
        const Json line = {{"type", type.name}, {"record", maker.record(type, filling)}};
        output.write_line(line);
    }
    output.finish();
    return kOk;
}

const std::map<std::string, Filling>& fillings() {
    static const std::map<std::string, Filling> names = {{"zero", Filling::zero},
                                                         {"sparse", Filling::sparse},
                                                         {"rich", Filling::rich},
                                                         {"extreme", Filling::extreme},
                                                         {"mixed", Filling::mixed}};
    return names;
}

}  // namespace

void add_random(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_random);
    verb.add_option("--type", options.types, "Name or id of a type; all in turn if not given")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    verb.add_option("--seed", options.seed, "The same records for the same seed; 0 if not given")
        ->transform(whole_number());
    verb.add_option("--count", options.count, "How many records, 25 if not given")->transform(whole_number());
    verb.add_option("--elements", options.elements, "Most elements of a vector, 4 if not given")
        ->transform(whole_number(0, 65536));
    verb.add_option("--filling", options.filling,
                    "zero: nothing set; sparse: one value in eight; rich: every value, no vector empty;\n"
                    "extreme: values at their limits; mixed, if not given: each in turn")
        ->transform(one_of(fillings()));
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, kAlwaysJsonHelp);
}

}  // namespace tool
