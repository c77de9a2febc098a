// SPDX-License-Identifier: Apache-2.0
// Records as JSON text, by their tables, piece by piece.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "inspect/bounded_text.h"
#include "inspect/record_access.h"
#include "inspect/vorn_inspect.h"

namespace inspect {
namespace {

// Text that is handed on when a piece is full.
class Pieces : public TextOf<Pieces> {
  public:
    Pieces(vorn_text_handler on_text, void* context) : on_text_(on_text), context_(context) {}

    void put(std::string_view text) {
        if (text.size() > piece_.size() - length_) flush();
        if (is_stopped()) return;
        std::memcpy(piece_.data() + length_, text.data(), text.size());  // no text is as long as a piece
        length_ += text.size();
    }

    void flush() {
        if (length_ != 0 && !is_stopped()) result_ = on_text_(piece_.data(), length_, context_);
        length_ = 0;
    }

    bool is_stopped() const { return result_ != 0; }
    std::int32_t result() const { return result_; }

  private:
    vorn_text_handler on_text_;
    void* context_;
    std::array<char, 8192> piece_;
    std::size_t length_ = 0;
    std::int32_t result_ = 0;
};

class JsonWriter {
  public:
    JsonWriter(Pieces& pieces, std::size_t most_elements) : text_(pieces), elements_left_(most_elements) {}

    void write(const vorn_type& type, const void* record) {
        text_.add("{");
        const char* separator = "\"";
        for (const vorn_field* const field : std::span(type.fields, type.field_count)) {
            text_.add(separator, field->name, "\":");
            write_field(*field, record);
            separator = ",\"";
        }
        text_.add("}");
    }

  private:
    void write_field(const vorn_field& field, const void* record) {
        const std::uint8_t* const at = member(record, field.record_offset);
        switch (field.kind) {
            case VORN_KIND_SCALAR:
                text_.add(host_number_at(at, field.element_bytes));
                return;
            case VORN_KIND_NESTED_TABLE:
                return write(*field.table, at);
            case VORN_KIND_FIXED_ARRAY:
                return write_elements(field, at, field.count);
            default:
                break;
        }
        const ArrayMember array = array_of(field, record);
        if (array.count != 0 && array.elements == nullptr) {
            text_.add("{\"lost\":", array.count, "}");
        } else {
            write_elements(field, static_cast<const std::uint8_t*>(array.elements), array.count);
        }
    }

    void write_elements(const vorn_field& field, const std::uint8_t* elements, std::uint32_t count) {
        if (field.table == nullptr && field.element_bytes == 1) {
            const std::span bytes(elements, count);
            text_.add("\"");
            field.kind == VORN_KIND_FIXED_ARRAY ? text_.add_address(bytes) : text_.add_hex(bytes);
            text_.add("\"");
            return;
        }
        const std::size_t step = element_size(field);
        text_.add("[");
        for (std::uint32_t k = 0; k < count && elements_left_ != 0 && !text_.is_stopped(); ++k) {
            --elements_left_;
            if (k != 0) text_.add(",");
            if (field.table != nullptr) {
                write(*field.table, elements + k * step);
            } else {
                text_.add(host_number_at(elements + k * step, field.element_bytes));
            }
        }
        text_.add("]");
    }

    Pieces& text_;
    std::size_t elements_left_;
};

}  // namespace
}  // namespace inspect

std::int32_t vorn_inspect_to_json(const vorn_type* type, const void* record, std::size_t most_elements,
                                  vorn_text_handler on_text, void* context) {
    if (type == nullptr || record == nullptr || on_text == nullptr) return -1;
    inspect::Pieces pieces(on_text, context);
    inspect::JsonWriter(pieces, most_elements).write(*type, record);
    pieces.flush();
    return pieces.result();
}
