// SPDX-License-Identifier: Apache-2.0
// Shapes: the compact forms of a small table, one for each set of its scalars that are absent.
//
// Which scalars are absent fixes the vtable, the soffset and where each scalar lies. The compiler finds the
// shapes by writing a record of each, so that a shape cannot differ from what the writer writes. A table is
// written by copying the header of its shape and its scalars; bytes with the header of a shape are valid, and
// their scalars are read without another look at the slots.
#ifndef KAPLO_SHAPES_H
#define KAPLO_SHAPES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "runtime/bounded.h"
#include "runtime/compact.h"
#include "runtime/description.h"
#include "runtime/inline.h"
#include "runtime/region.h"
#include "runtime/wire.h"
#include "runtime/word.h"

namespace kaplo {

// A table has 2 to the power of its scalars shapes, all of which are listed.
inline constexpr std::uint32_t kMostScalarsOfSmall = 4;

// A small table: its first fields are scalars, all others nested tables.
template <class Record>
constexpr bool is_small() {
    constexpr std::uint32_t count = scalars<Record>;
    return !has_vectors<Record> && count > 0 && count <= kMostScalarsOfSmall &&
           references_before<Record>(count) == 0;
}

// Where shapes are used: as frames are (see runtime/frame.h).
template <class Record, ByteOrder order>
inline constexpr bool has_shapes = is_small<Record>() && order == ByteOrder::host && !kPlatformMemory;

template <class Record>
inline constexpr bool has_inner_tables = has_field_of<Record, Kind::nested_table>();

// Shapes are read where all inner tables have them, and these none of their own.
template <class Record, ByteOrder order>
constexpr bool reads_shapes() {
    return has_shapes<Record, order> && every_field<Record>([]<class F, std::uint32_t id> {
               if constexpr (F::kind == Kind::nested_table) {
                   return has_shapes<typename F::Element, order> && !has_inner_tables<typename F::Element>;
               } else {
                   return true;
               }
           });
}

template <class Record>
class Shapes {
  public:
    // What is read by one load: a scalar, or two neighbours of the same width, together when at most one of
    // them is absent too: then the load starts so that the other comes where it belongs. Such a load may go
    // beyond the table; only where references follow, or it saves much, are scalars read in pairs.
    struct Piece {
        std::uint32_t first = 0;    // its first scalar
        std::uint32_t scalars = 0;  // 1 or 2
        std::uint32_t width = 0;    // of each
        std::uint32_t in_kept = 0;  // offset in Shape::kept

        constexpr std::uint32_t bytes() const { return scalars * width; }
    };
    struct Pieces {
        std::array<Piece, scalars<Record>> items = {};
        std::uint32_t count = 0;
        std::uint32_t bytes = 0;  // of all of them
    };
    static constexpr Pieces pieces = [] {
        Pieces result;
        each_index<scalars<Record>>([&]<std::uint32_t n> {
            constexpr std::uint32_t width = sizeof(typename FieldAt<Record, n>::Member);
            constexpr bool pairs = has_inner_tables<Record> || width == sizeof(std::uint64_t);
            Piece* const last = n == 0 ? nullptr : &result.items[result.count - 1];
            if (pairs && last != nullptr && last->scalars == 1 && last->width == width) {
                last->scalars = 2;
            } else {
                result.items[result.count++] = {n, 1, width, result.bytes};
            }
            result.bytes += width;
        });
        return result;
    }();

    // Offsets count from the vtable.
    struct Shape {
        alignas(16) std::array<std::uint8_t, header_bytes<Record>> header;
        alignas(pieces.bytes % 16 == 0 ? 16 : 1)
            std::array<std::uint8_t, pieces.bytes> kept;  // all ones for scalars that are present
        std::array<std::uint8_t, scalars<Record>>
            offsets;                                   // of scalars; absent: 0, which the header overwrites
        std::array<std::uint8_t, pieces.count> reads;  // where the loads of the pieces start
        std::uint8_t bytes;                            // of the header and the inline part
        std::uint8_t reach;                            // where all that ends, loads included
    };

  private:
    // As the writer writes a record of this shape: bit n of `absent` is set if the n-th scalar is absent.
    static constexpr Shape shape(std::uint32_t absent) {
        Record record = {};
        each_index<scalars<Record>>([&]<std::uint32_t n> {
            if ((absent >> n & 1) == 0) FieldAt<Record, n>::in(record) = 1;
        });
        std::array<std::uint8_t, 2 * sizeof(Record) + 512> bytes = {};
        write_table(Writer<ByteOrder::host>(bytes.data()), record, Plainly());
        const auto number_at = [&](std::uint32_t at) {
            return static_cast<std::uint8_t>(load<ByteOrder::host, std::uint16_t>(bytes.data() + at));
        };

        Shape result = {};
        std::copy_n(bytes.begin(), header_bytes<Record>, result.header.begin());
        result.bytes = static_cast<std::uint8_t>(vtable_bytes<Record> + number_at(kSlotBytes));
        result.reach = result.bytes;
        each_index<scalars<Record>>([&]<std::uint32_t n> {
            const std::uint8_t slot = number_at(slot_in_vtable(n));
            result.offsets[n] = slot == 0 ? slot : static_cast<std::uint8_t>(vtable_bytes<Record> + slot);
        });
        for (std::uint32_t i = 0; i < pieces.count; ++i) {
            const Piece& piece = pieces.items[i];
            const std::uint8_t first = result.offsets[piece.first];
            const std::uint8_t last = result.offsets[piece.first + piece.scalars - 1];
            result.reads[i] = first != 0  ? first
                              : last != 0 ? static_cast<std::uint8_t>(last - piece.width)
                                          : first;
            result.reach = std::max(result.reach, static_cast<std::uint8_t>(result.reads[i] + piece.bytes()));
            for (std::uint32_t k = 0; k < piece.bytes(); ++k) {
                const bool is_present = result.offsets[piece.first + k / piece.width] != 0;
                result.kept[piece.in_kept + k] = is_present ? 0xFF : 0;
            }
        }
        return result;
    }

    // By the bits of the absent scalars.
    static constexpr auto all = [] {
        std::array<Shape, std::size_t{1} << scalars<Record>> shapes = {};
        for (std::uint32_t absent = 0; absent < shapes.size(); ++absent) shapes[absent] = shape(absent);
        return shapes;
    }();

  public:
    static constexpr std::uint32_t most_reach = [] {
        std::uint32_t most = 0;
        for (const Shape& each : all) most = std::max<std::uint32_t>(most, each.reach);
        return most;
    }();

    // The shape of a record.
    KAPLO_INLINE static inline const Shape& of(const Record& record) {
        std::uint64_t absent = 0;
        each_index<scalars<Record>>([&]<std::uint32_t i>() KAPLO_INLINE {
            absent += absent;
            count_if(FieldAt<Record, scalars<Record> - 1 - i>::in(record) == 0, absent);
        });
        return at_one_address(all[absent]);
    }

    // The one shape that a header at `vtable` can have, by the slots of the scalars.
    KAPLO_INLINE static inline const Shape& candidate(const std::uint8_t* vtable) {
        // Numbers of the header that are looked at together, the slots among them.
        constexpr std::uint32_t numbers = header_bytes<Record> >= 16 ? 8 : 4;
        constexpr std::uint32_t start = numbers == 8 ? 0 : kSlotBytes;
        constexpr std::uint32_t before = (slot_in_vtable(0) - start) / kSlotBytes;
        static_assert(before + scalars<Record> <= numbers);
        return at_one_address(all[zeros_among<numbers>(vtable + start) >> before & (all.size() - 1)]);
    }
};

// Writes a table by its shape, and its inner tables in the way `inner`.
template <class Inner, class Record>
KAPLO_INLINE inline Writer<ByteOrder::host> write_shaped(Writer<ByteOrder::host> writer, const Record& record,
                                                         Inner inner) {
    const auto& shape = Shapes<Record>::of(record);
    std::uint8_t* const vtable = writer.reserve(shape.bytes);
    each_index<scalars<Record>>([&]<std::uint32_t n>() KAPLO_INLINE {
        store<ByteOrder::host>(vtable + shape.offsets[n], FieldAt<Record, n>::in(record));
    });
    std::memcpy(vtable, shape.header.data(), shape.header.size());
    std::uint8_t* const end = writer.at();
    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        if constexpr (F::kind == Kind::nested_table) {
            Writer<ByteOrder::host>::refer(end - (slots<Record> - id) * kReferenceBytes,
                                           writer.at() + vtable_bytes<typename F::Element>);
            writer = inner.write(writer, F::in(record));
        }
    });
    return writer;
}

// Received bytes from a vtable on, taken for the shape that they may have.
template <class Record>
class ShapedBytes {
    using Shapes = kaplo::Shapes<Record>;

  public:
    static constexpr std::uint32_t most = Shapes::most_reach;

    KAPLO_INLINE inline explicit ShapedBytes(const std::uint8_t* vtable)
        : vtable_(vtable), shape_(Shapes::candidate(vtable)) {}

    // Zero if the header is the shape's.
    KAPLO_INLINE inline auto difference() const {
        return difference_of<header_bytes<Record>>(vtable_, shape_.header.data());
    }

    // Fills the record, but for inner tables. Looks at reach() bytes.
    KAPLO_INLINE inline void read(Record& record) const {
        if constexpr (!has_no_padding<Record>) clear(record);
        auto* const to = reinterpret_cast<std::uint8_t*>(&record);
        each_index<Shapes::pieces.count>([&]<std::uint32_t i>() KAPLO_INLINE {
            constexpr auto piece = Shapes::pieces.items[i];
            put_word(to + offset_in_record<Record, piece.first>(),
                     word_at<piece.bytes()>(vtable_ + shape_.reads[i]) &
                         word_at<piece.bytes()>(shape_.kept.data() + piece.in_kept));
        });
    }

    std::uint32_t reach() const { return shape_.reach; }

    // Of the header and the inline part.
    std::uint32_t bytes() const { return shape_.bytes; }
    const std::uint8_t* end() const { return vtable_ + bytes(); }

  private:
    const std::uint8_t* vtable_;
    const typename Shapes::Shape& shape_;
};

// Reads a table without inner ones where the region ends sooner than the loads of its shape: from a copy.
template <class Record>
[[gnu::noinline]] const std::uint8_t* read_shaped_at_end(Region<ByteOrder::host> region,
                                                         const std::uint8_t* vtable, Record& record) {
    std::array<std::uint8_t, ShapedBytes<Record>::most> copy = {};
    const std::uint32_t bytes = std::min(region.bytes_from(vtable), ShapedBytes<Record>::most);
    std::memcpy(copy.data(), vtable, bytes);
    const ShapedBytes<Record> shaped(copy.data());
    if (!is_zero(shaped.difference()) || shaped.bytes() > bytes) return nullptr;
    shaped.read(record);
    return vtable + shaped.bytes();
}

// Fills the record, every byte of it, from the table at `table`, if it has a shape, and its inner tables too.
// Returns the end of all that; null where one has not: then the header of the outer one is valid, or nothing
// was written.
template <class Record>
KAPLO_INLINE inline const std::uint8_t* read_shaped(Region<ByteOrder::host> region, std::uint64_t table,
                                                    Record& record) {
    const std::uint8_t* const vtable = region.vtable_before(table, vtable_bytes<Record>);
    if (vtable == nullptr) return nullptr;
    const ShapedBytes<Record> outer(vtable);
    if (!is_zero(outer.difference())) return nullptr;
    if (region.bytes_from(vtable) < outer.reach()) {
        return has_inner_tables<Record> ? nullptr : read_shaped_at_end(region, vtable, record);
    }
    const std::uint8_t* const references_end = outer.end();
    const std::uint8_t* end = references_end;
    outer.read(record);
    if constexpr (has_inner_tables<Record>) {
        // Together at the end: a wrong shape reads nothing that is not there.
        Word<16> difference = {};
        const bool inside = every_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind == Kind::nested_table) {
                using Inner = typename F::Element;
                const std::uint8_t* const reference = references_end - (slots<Record> - id) * kReferenceBytes;
                static_assert(vtable_bytes<Inner> <= header_bytes<Record>, "no vtable before the region");
                const std::uint8_t* const inner_vtable =
                    region.vtable_of(reference, vtable_bytes<Inner>, ShapedBytes<Inner>::most);
                if (inner_vtable == nullptr) {
                    const std::uint8_t* const last =
                        region.vtable_of(reference, vtable_bytes<Inner>, header_bytes<Inner>);
                    end = last == nullptr ? nullptr : read_shaped_at_end(region, last, F::in(record));
                    return end != nullptr;
                }
                const ShapedBytes<Inner> inner(inner_vtable);
                difference |= inner.difference();
                inner.read(F::in(record));
                end = inner.end();
            }
            return true;
        });
        if (!inside || !is_zero(difference)) return nullptr;
    }
    return end;
}

}  // namespace kaplo

#endif
