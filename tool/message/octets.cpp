// SPDX-License-Identifier: Apache-2.0
#include "tool/message/octets.h"

#include <fmt/format.h>

#include "inspect/record_access.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

class TextFinder {
  public:
    TextFinder(Octets octets, std::size_t most_elements,
               const std::function<void(const std::string&, const std::string&)>& use)
        : octets_(octets), elements_left_(most_elements), use_(use) {}

    void find(const MessageType& type, const void* record, const std::string& before) {
        for (const Field* const field : fields_of(type)) {
            if (field->table == nullptr && !is_octets(*field)) continue;
            const std::string path = before + field->name;
            if (field->kind == VORN_KIND_NESTED_TABLE) {
                find(*field->table, inspect::member(record, field->record_offset), path + ".");
                continue;
            }
            const inspect::ArrayMember array = inspect::array_of(*field, record);
            if (array.elements == nullptr) continue;
            const auto* const elements = static_cast<const std::uint8_t*>(array.elements);
            if (field->table == nullptr) {
                const auto text = octets_text({elements, array.count}, octets_);
                if (text) use_(path, *text);
                continue;
            }
            for (std::uint32_t k = 0; k < array.count && elements_left_ != 0; ++k) {
                --elements_left_;
                find(*field->table, elements + k * inspect::element_size(*field),
                     fmt::format("{}[{}].", path, k));
            }
        }
    }

  private:
    const Octets octets_;
    std::size_t elements_left_;
    const std::function<void(const std::string&, const std::string&)>& use_;
};

// "f3[1].f4" as the pointer into the record's JSON.
Json::json_pointer pointer_of(const std::string& path) {
    std::string pointer = "/";
    for (const char c : path) {
        if (c != ']') pointer += c == '.' || c == '[' ? '/' : c;
    }
    return Json::json_pointer(pointer);
}

}  // namespace

std::optional<std::string> octets_text(std::span<const std::uint8_t> bytes, Octets octets) {
    if (octets == Octets::hex || bytes.empty()) return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (octets == Octets::automatic && !is_printable(text)) return std::nullopt;
    return escaped(text);
}

void for_each_text(const MessageType& type, const void* record, Octets octets, std::size_t most_elements,
                   const std::function<void(const std::string& path, const std::string& text)>& use) {
    if (octets != Octets::hex) TextFinder(octets, most_elements, use).find(type, record, "");
}

void add_texts(Json& object, const MessageType& type, const void* record, Octets octets,
               std::size_t most_elements) {
    for_each_text(
        type, record, octets, most_elements,
        [&object](const std::string& path, const std::string& text) { object["texts"][path] = text; });
}

void write_texts(const MessageType& type, const void* record, Octets octets,
                 const std::function<void(std::string_view)>& put) {
    bool is_first = true;
    for_each_text(type, record, octets, SIZE_MAX, [&](const std::string& path, const std::string& text) {
        put((is_first ? R"(,"texts":{)" : ",") + json_text(path) + ":" + json_text(text));
        is_first = false;
    });
    if (!is_first) put("}");
}

Json readable_json(const MessageType& type, const void* record, Octets octets, std::size_t most_elements) {
    Json json = to_json(type, record, most_elements);
    for_each_text(type, record, octets, most_elements,
                  [&json](const std::string& path, const std::string& text) {
                      const Json::json_pointer pointer = pointer_of(path);
                      if (json.contains(pointer)) json[pointer] = "\"" + text + "\"";
                  });
    return json;
}

}  // namespace tool
