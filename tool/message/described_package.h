// SPDX-License-Identifier: Apache-2.0
// Descriptions of types as JSON, and the packages that such JSON describes.
#ifndef TOOL_DESCRIBED_PACKAGE_H
#define TOOL_DESCRIBED_PACKAGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool/message/message_type.h"
#include "tool/message/record_json.h"

namespace tool {

inline constexpr std::uint32_t kTableInImage = 4;  // after the root reference

// Names, kinds, sizes and offsets of a record type and of its fields; tables in it by name.
Json description_json(const MessageType& type);

// Of a description, what decides over the bytes of messages.
struct DescribedField {
    std::string name;
    std::string kind;  // "u32", "u8[6]", "[u16]", "Nac_SrvCar", "[Nac_SrvCar]"
    vorn_kind form;
    std::uint32_t element_bytes;
    std::uint32_t count;
    std::string table;  // empty: none
};

struct DescribedType {
    std::string name;
    std::string module;               // empty: travels only inside messages
    std::optional<std::uint32_t> id;  // as above
    std::vector<DescribedField> fields;
};

// Types, and with each the tables in it.
class DescribedPackage {
  public:
    // The types that this tool knows.
    DescribedPackage();
    // Those of a file of JSON lines, or of a catalogue, libvorn_NAME_catalogue.so; "-" is standard input.
    // Throws CommandError.
    explicit DescribedPackage(const std::string& file);

    const std::vector<DescribedType>& types() const { return types_; }
    const DescribedType* find(const std::string& name) const;

  private:
    void read(const std::string& file);
    // Throws std::exception with what is wrong.
    void add(const Json& description);
    // The name of a table that is not among the types; empty: there is none.
    std::string missing_table() const;

    std::vector<DescribedType> types_;
};

}  // namespace tool

#endif
