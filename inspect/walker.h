// SPDX-License-Identifier: Apache-2.0
// The walk through a message's bytes that finds what each of them means, by the rules of unpack.
//
// It goes where unpack goes, and on after a fault, to the end of a damaged message. Every table and vector
// that it visits is referred to by a field, so it ends as unpack does.
#ifndef INSPECT_WALKER_H
#define INSPECT_WALKER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "inspect/bounded_text.h"
#include "inspect/type_operations.h"
#include "inspect/vorn_inspect.h"
#include "runtime/region.h"

namespace inspect {

using Region = kaplo::Region<kWireOrder>;
using Table = kaplo::Table<kWireOrder>;

// The path to a value, as long as the walk is there: "f6.f4[3].f0".
class PathText {
  public:
    const char* c_str() const { return text_.c_str(); }

    // A step down; it is taken back at the end of its scope.
    class Step {
      public:
        template <class... Parts>
        explicit Step(PathText& path, const Parts&... parts) : path_(path), before_(path.text_.length()) {
            path_.text_.add(parts...);
        }
        ~Step() { path_.text_.end_at(before_); }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;

      private:
        PathText& path_;
        std::size_t before_;
    };
    const char* separator() const { return text_.length() == 0 ? "" : "."; }

  private:
    std::array<char, 512> buffer_ = {};
    BoundedText text_{buffer_.data(), buffer_.size()};
};

// Who is told.
struct Listeners {
    vorn_range_handler on_range;
    vorn_fault_handler on_fault;
    void* context;
};

class Walker {
  public:
    Walker(Region region, const Listeners& listeners) : region_(region), listeners_(listeners) {}

    vorn_verdict run(const vorn_type& type);
    vorn_layout layout() const { return layout_; }

  private:
    // The table that is walked through.
    struct Here {
        const vorn_type& type;
        std::uint32_t at;
        std::uint32_t vtable;
        std::uint32_t depth;
    };

    void show(const vorn_range& range);
    void show_field(const Here& here, const vorn_field& field, vorn_part part, std::uint32_t at,
                    std::uint32_t bytes, std::uint64_t number, std::uint32_t target = 0,
                    std::uint32_t index = VORN_NO_OFFSET);
    template <class... Parts>
    void fault(std::uint32_t at, std::uint32_t bytes, const vorn_type& table, const vorn_field* field,
               const Parts&... what);

    void walk_table(const vorn_type& type, std::uint32_t at, std::uint32_t depth, std::uint32_t reference);
    bool walk_header(Here& here, Table& table, std::uint32_t reference, bool& is_image);
    void walk_slots(const Here& here, std::uint32_t length);
    void show_padding(const Here& here);
    void walk_field(const Here& here, const vorn_field& field, std::uint32_t at);
    void outside(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t width,
                 std::uint32_t reference);
    bool follow(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t referred_at,
                std::uint32_t index, std::uint32_t& target);
    void walk_vector(const Here& here, const vorn_field& field, std::uint32_t reference,
                     std::uint32_t vector);
    void walk_tables(const Here& here, const vorn_field& field, std::uint32_t at, std::uint32_t count);

    bool holds(std::uint32_t at, std::uint32_t bytes) const {
        return at <= region_.size() && bytes <= region_.size() - at;
    }

    Region region_;
    Listeners listeners_;
    PathText path_;
    vorn_verdict verdict_ = VORN_VERDICT_VALID;
    vorn_layout layout_ = VORN_LAYOUT_OTHER;
    bool in_root_header_ = false;
    bool is_over_ = false;  // nobody asks for more
};

// The number of 1, 2, 4 or 8 bytes at `bytes`.
std::uint64_t number_at(const std::uint8_t* bytes, std::uint32_t width);

}  // namespace inspect

#endif
