// SPDX-License-Identifier: Apache-2.0
// Shapes, made from the descriptions.
#include "tool/message/shape.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <type_traits>
#include <utility>

#include "nac/catalogue.h"
#include "tool/message/record_text.h"

namespace tool {
namespace {

using kaplo::Kind;

// The shapes in the making; each is made once, and stays where it is.
class Shapes {
  public:
    template <class Record>
    const Shape& table() {
        const char* const name = kaplo::Description<Record>::name.c_str();
        const auto is_named = [name](const auto& shape) { return shape->name == name; };
        const auto known = std::find_if(shapes_.begin(), shapes_.end(), is_named);
        if (known != shapes_.end()) return **known;
        auto shape = std::make_unique<Shape>();
        shape->name = name;
        shape->record_bytes = sizeof(Record);
        shape->vtable_bytes = kaplo::vtable_bytes<Record>;
        shape->root_decoder = kaplo::root_decoder_name<Record>();
        shape->nested_decoder = kaplo::nested_unpack_name<Record>.c_str();
        if constexpr (!kaplo::owns_memory<Record>) {
            using Image = kaplo::Image<Record>;
            shape->image = ImageShape{Image::bytes, Image::table_length, Image::vtable};
        }
        kaplo::each_field<Record>(
            [&]<class F, std::uint32_t id> { shape->fields.push_back(field<F, id>()); });
        return *shapes_.emplace_back(std::move(shape));
    }

    template <class Record>
    void message(const char* module) {
        table<Record>();
        const char* const name = kaplo::Description<Record>::name.c_str();
        for (const auto& shape : shapes_) {
            if (shape->name != name) continue;
            shape->module = module;
            shape->id = kaplo::message_id<Record>;
        }
    }

    const std::vector<std::unique_ptr<Shape>>& all() const { return shapes_; }

  private:
    template <class F>
    static constexpr Display display() {
        using Element = typename F::Element;
        if constexpr (F::kind == Kind::scalar) {
            return Display::number;
        } else if constexpr (F::kind == Kind::nested_table) {
            return Display::table;
        } else if constexpr (F::kind == Kind::table_vector) {
            return Display::tables;
        } else if constexpr (!std::is_same_v<Element, std::uint8_t>) {
            return Display::numbers;
        } else if constexpr (F::kind == Kind::scalar_vector) {
            return Display::hex;
        } else {
            constexpr std::size_t bytes = sizeof(typename F::Member);
            return bytes == kHardwareAddressBytes ? Display::hardware_address
                   : bytes == kIpv6AddressBytes   ? Display::ipv6_address
                                                  : Display::hex;
        }
    }

    template <class F, std::uint32_t id>
    FieldShape field() {
        using Record = typename F::Record;
        using Element = typename F::Element;
        constexpr bool is_vector = kaplo::is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind);
        Record record = {};
        const auto offset_of = [&record](const auto& member) {
            return static_cast<std::uint32_t>(reinterpret_cast<const char*>(&member) -
                                              reinterpret_cast<const char*>(&record));
        };
        FieldShape made = {};
        made.name = fmt::format("f{}", id);
        made.kind = F::kind;
        made.display = display<F>();
        made.id = id;
        made.slot = kaplo::slot_in_vtable(id);
        if constexpr (std::is_class_v<Element>) {
            made.table = &table<Element>();
            made.element_bytes = kaplo::kReferenceBytes;
            made.text = made.table->name;
        } else {
            made.element_bytes = sizeof(Element);
            made.text = fmt::format("u{}", 8 * sizeof(Element));
        }
        if constexpr (is_vector) {
            made.text = fmt::format("[{}]", made.text);
            made.record_offset = offset_of(F::elements(record));
            made.count_offset = offset_of(F::count(record));
        } else {
            made.count = 1;
            made.record_offset = offset_of(F::in(record));
        }
        if constexpr (F::kind == Kind::fixed_array) {
            made.count = std::extent_v<typename F::Member>;
            made.text = fmt::format("{}[{}]", made.text, made.count);
        }
        if constexpr (!kaplo::owns_memory<Record>) {
            made.image_offset = kaplo::Image<Record>::offsets[id];
            made.image_bytes = kaplo::Image<Record>::template width<F>();
        }
        return made;
    }

    std::vector<std::unique_ptr<Shape>> shapes_;
};

const Shapes& shapes() {
    static const Shapes made = [] {
        Shapes shapes;
        const char* module = nullptr;
#define NAC_ADD_SHAPE(Message) shapes.message<Message>(module);
#define NAC_ADD_MODULE(name, prefix, MESSAGES) \
    module = #name;                            \
    MESSAGES(NAC_ADD_SHAPE)
        NAC_ALL_MODULES(NAC_ADD_MODULE)
#undef NAC_ADD_MODULE
#undef NAC_ADD_SHAPE
        return shapes;
    }();
    return made;
}

}  // namespace

const std::vector<const Shape*>& all_shapes() {
    static const std::vector<const Shape*> list = [] {
        std::vector<const Shape*> all;
        for (const auto& shape : shapes().all()) all.push_back(shape.get());
        return all;
    }();
    return list;
}

const Shape* find_shape(std::string_view name) {
    for (const Shape* const shape : all_shapes()) {
        if (shape->name == name) return shape;
    }
    return nullptr;
}

}  // namespace tool
