// SPDX-License-Identifier: Apache-2.0
#include "tool/message/byte_order.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

namespace tool {
namespace {

#ifdef KAPLO_BYTE_SWAP
constexpr WireOrder kOfLibrary = WireOrder::big;
#else
constexpr WireOrder kOfLibrary = WireOrder::little;
#endif

// Follows a message from its root, as unpack does, and turns each number that it meets for the first time.
class Reorder {
  public:
    explicit Reorder(std::span<const std::uint8_t> message)
        : bytes_(message.begin(), message.end()), is_turned_(message.size()) {}

    void message(const MessageType& type) {
        const std::uint64_t root = turn(0, 4);
        if (fits(0, 4)) table(type, root);
    }

    std::vector<std::uint8_t> take() { return std::move(bytes_); }

  private:
    // Overlapping vectors may be more work than the message has bytes.
    static constexpr std::uint64_t kMostWorkPerByte = 64;

    bool fits(std::uint64_t at, std::uint64_t bytes) const {
        return at <= bytes_.size() && bytes <= bytes_.size() - at;
    }
    bool may_go_on(std::uint64_t bytes) {
        work_ += bytes;
        return work_ <= kMostWorkPerByte * bytes_.size();
    }

    // The number there, in the library's order from now on; 0 where it is not inside the message.
    std::uint64_t turn(std::uint64_t at, std::uint32_t width) {
        if (!fits(at, width) || !may_go_on(width)) return 0;
        const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
        if (!is_turned_[at]) std::reverse(first, first + width);
        std::fill_n(is_turned_.begin() + static_cast<std::ptrdiff_t>(at), width, true);
        std::uint64_t number = 0;
        for (std::uint32_t k = 0; k < width; ++k) {
            const std::uint32_t from = kOfLibrary == WireOrder::little ? width - 1 - k : k;
            number = number << 8 | bytes_[at + from];
        }
        return number;
    }

    // Where the reference there leads.
    std::uint64_t follow(std::uint64_t at) { return at + turn(at, 4); }

    void table(const MessageType& type, std::uint64_t at) {
        if (!fits(at, 4) || !seen_.insert({at, &type}).second) return;
        const auto vtable = static_cast<std::uint32_t>(at - turn(at, 4));
        const std::uint64_t length = turn(vtable, 2);
        turn(vtable + std::uint64_t{2}, 2);
        for (std::uint64_t slot = 4; slot + 2 <= length && fits(vtable + slot, 2); slot += 2) {
            if (!may_go_on(2)) return;
            turn(vtable + slot, 2);
        }
        for (const Field* const field : fields_of(type)) {
            const std::uint64_t offset =
                field->slot + 2 <= length ? turn(vtable + std::uint64_t{field->slot}, 2) : 0;
            if (offset != 0) value(*field, at + offset);
        }
    }

    void value(const Field& field, std::uint64_t at) {
        if (field.kind == VORN_KIND_SCALAR) {
            turn(at, field.element_bytes);
        } else if (fits(at, 4)) {
            const std::uint64_t target = follow(at);
            field.kind == VORN_KIND_NESTED_TABLE ? table(*field.table, target) : elements(field, target);
        }
    }

    void elements(const Field& field, std::uint64_t at) {
        const std::uint64_t count = turn(at, 4);
        if (!fits(at, 4) || count > (bytes_.size() - at - 4) / field.element_bytes) return;
        for (std::uint64_t k = 0; k < count && may_go_on(1); ++k) {
            const std::uint64_t element = at + 4 + k * field.element_bytes;
            if (field.table != nullptr) {
                table(*field.table, follow(element));
            } else if (field.element_bytes > 1) {
                turn(element, field.element_bytes);
            }
        }
    }

    std::vector<std::uint8_t> bytes_;
    std::vector<bool> is_turned_;
    std::set<std::pair<std::uint64_t, const MessageType*>> seen_;
    std::uint64_t work_ = 0;
};

}  // namespace

std::vector<std::uint8_t> reordered(const MessageType& type, std::span<const std::uint8_t> message) {
    Reorder reorder(message);
    reorder.message(type);
    return reorder.take();
}

bool is_foreign(WireOrder order) { return order != kOfLibrary; }

}  // namespace tool
