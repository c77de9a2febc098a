// SPDX-License-Identifier: Apache-2.0
// Frames: packed forms of a record in which every field has an offset known to the compiler.
//
// The fixed image of a record is such a form, and so is the compact table of a record without vectors whose
// scalars are all present. A frame is what is the same in all messages of the form: references, vtables,
// counts. Bytes that have the frame are valid, and their fields are copied without another look; a record is
// written by copying the frame and its fields.
//
// The compiler finds a frame by packing two records, in which every byte is the number of its position. So a
// frame cannot differ from what the writer writes.
#ifndef KAPLO_FRAME_H
#define KAPLO_FRAME_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "runtime/bounded.h"
#include "runtime/compact.h"
#include "runtime/description.h"
#include "runtime/image.h"
#include "runtime/word.h"

namespace kaplo {

// The two forms. `bytes`: how many; write(): the plain writer, run by the compiler.
template <class Record>
struct ImageForm {
    static constexpr std::uint32_t bytes(const Record& /*record*/) { return Image<Record>::bytes; }
    static constexpr void write(const Record& record, std::uint8_t* at) {
        write_frame<Record, ByteOrder::host>(at);
        write_image_fields<Record, ByteOrder::host>(record, at);
    }
};

// From the vtable to the end of the last nested table. Positions are relative, so it is the same anywhere.
template <class Record>
struct CompactForm {
    static constexpr std::uint32_t bytes(const Record& record) {
        return static_cast<std::uint32_t>(table_bytes(record));
    }
    static constexpr void write(const Record& record, std::uint8_t* at) {
        write_table(Writer<ByteOrder::host>(at), record, Plainly());
    }
};

template <class Record, template <class> class Form>
class Frame {
    static_assert(!owns_memory<Record>, "the offsets in a record with vectors are not constant");

    // A record in which byte i is i + first: no two bytes are equal, and none is 0.
    template <std::uint8_t first>
    static constexpr Record numbered = [] {
        std::array<std::uint8_t, sizeof(Record)> bytes = {};
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i + first);
        return std::bit_cast<Record>(bytes);
    }();

  public:
    static constexpr std::uint32_t bytes = Form<Record>::bytes(numbered<1>);

  private:
    using Bytes = std::array<std::uint8_t, bytes>;

    template <std::uint8_t first, std::uint8_t unwritten>
    static constexpr Bytes packed = [] {
        Bytes result = {};
        result.fill(unwritten);
        Form<Record>::write(numbered<first>, result.data());
        return result;
    }();

    static constexpr bool is_padding(std::uint32_t at) {
        return packed<1, 0>[at] == 0 && packed<2, 0xFF>[at] == 0xFF;
    }
    static constexpr bool is_constant(std::uint32_t at) { return packed<1, 0>[at] == packed<2, 0xFF>[at]; }
    static constexpr bool is_field(std::uint32_t at) { return !is_constant(at) && !is_padding(at); }

    // The frame, with zeros where fields and padding are.
    static constexpr Bytes frame = [] {
        Bytes result = {};
        for (std::uint32_t at = 0; at < bytes; ++at) result[at] = is_constant(at) ? packed<1, 0>[at] : 0;
        return result;
    }();
    static constexpr Bytes mask = [] {
        Bytes result = {};
        for (std::uint32_t at = 0; at < bytes; ++at) result[at] = is_constant(at) ? 0xFF : 0;
        return result;
    }();

  public:
    // Bytes without the padding at the end, which nobody needs to send.
    static constexpr std::uint32_t needed_bytes = [] {
        std::uint32_t end = bytes;
        while (is_padding(end - 1)) --end;
        return end;
    }();

  private:
    // Bytes that lie together in the record as in the frame.
    struct Run {
        std::uint32_t in_frame;
        std::uint32_t in_record;
        std::uint32_t bytes;
    };
    template <class T>
    struct Listed {
        std::array<T, bytes> items = {};
        std::uint32_t count = 0;
        constexpr void add(const T& item) { items[count++] = item; }
    };

    static constexpr auto field_runs = [] {
        Listed<Run> runs;
        for (std::uint32_t at = 0; at < bytes; ++at) {
            if (!is_field(at)) continue;
            const std::uint32_t in_record = packed<1, 0>[at] - 1U;
            if (runs.count != 0) {
                Run& last = runs.items[runs.count - 1];
                if (last.in_frame + last.bytes == at && last.in_record + last.bytes == in_record) {
                    ++last.bytes;
                    continue;
                }
            }
            runs.add({at, in_record, 1});
        }
        return runs;
    }();

    // Bytes of the record that belong to no field.
    static constexpr auto gaps = [] {
        std::array<bool, sizeof(Record)> is_gap = {};
        is_gap.fill(true);
        for (std::uint32_t at = 0; at < bytes; ++at) {
            if (is_field(at)) is_gap[packed<1, 0>[at] - 1U] = false;
        }
        return is_gap;
    }();
    static constexpr auto gap_runs = [] {
        Listed<Run> runs;
        for (std::uint32_t at = 0; at < sizeof(Record); ++at) {
            if (!gaps[at]) continue;
            if (at != 0 && gaps[at - 1]) {
                ++runs.items[runs.count - 1].bytes;
            } else {
                runs.add({0, at, 1});
            }
        }
        return runs;
    }();

    static constexpr std::uint32_t word_bytes = needed_bytes >= 16 ? 16 : 8;

    // Where the words start that cover all bytes that `covers` accepts, as few as can be, none after `end`.
    template <class Covers>
    static constexpr auto words(std::uint32_t end, Covers covers) {
        Listed<std::uint32_t> starts;
        for (std::uint32_t at = 0; at < end; ++at) {
            if (!covers(at)) continue;
            starts.add(at + word_bytes <= end ? at : end - word_bytes);
            at = starts.items[starts.count - 1] + word_bytes - 1;
        }
        return starts;
    }
    template <std::uint32_t first>
    static constexpr auto compared_words = words(needed_bytes, [](std::uint32_t at) {
        return at >= first && is_constant(at);
    });
    static constexpr auto written_words = words(bytes, [](std::uint32_t at) { return !is_field(at); });

    template <std::uint32_t at>
    static constexpr bool is_all_frame = [] {
        for (std::uint32_t i = at; i < at + word_bytes; ++i) {
            if (!is_constant(i)) return false;
        }
        return true;
    }();

    template <class Visit, std::size_t... i>
    static void each(std::index_sequence<i...> /*numbers*/, Visit&& visit) {
        (visit.template operator()<i>(), ...);
    }
    template <std::uint32_t count, class Visit>
    static void each(Visit&& visit) {
        each(std::make_index_sequence<count>{}, visit);
    }

    static std::uint8_t* bytes_of(Record& record) { return reinterpret_cast<std::uint8_t*>(&record); }
    static const std::uint8_t* bytes_of(const Record& record) {
        return reinterpret_cast<const std::uint8_t*>(&record);
    }

  public:
    // Whether bytes start as this frame does: enough to tell most of those that have not this frame.
    static bool starts_at(const std::uint8_t* from) {
        return word_at<4>(from) == load<ByteOrder::host, std::uint32_t>(frame.data());
    }

    // Whether the bytes at `from` have this frame, or what it is from its byte `first` on: from there, as
    // many as it needs. Padding may hold anything.
    template <std::uint32_t first = 0>
    static bool is_at(const std::uint8_t* from) {
        constexpr auto& compared = compared_words<first>;
        Word<word_bytes> difference = {};
        each<compared.count>([&]<std::size_t i> {
            constexpr std::uint32_t at = compared.items[i];
            static_assert(at >= first);
            auto word = word_at<word_bytes>(from + (at - first));
            if constexpr (!is_all_frame<at>) word &= word_at<word_bytes>(mask.data() + at);
            difference |= word ^ word_at<word_bytes>(frame.data() + at);
        });
        return is_zero(difference);
    }

    // Fills the record, every byte of it, from bytes that have this frame.
    static void read(const std::uint8_t* from, Record& record) {
        each<gap_runs.count>([&]<std::size_t i> {
            constexpr Run run = gap_runs.items[i];
            std::memset(bytes_of(record) + run.in_record, 0, run.bytes);
        });
        read_fields<0>(from, record);
    }

    // Fills the fields that the frame has from its byte `first` on, from bytes that have the frame from there
    // on.
    template <std::uint32_t first>
    static void read_fields(const std::uint8_t* from, Record& record) {
        each<field_runs.count>([&]<std::size_t i> {
            constexpr Run run = field_runs.items[i];
            if constexpr (run.in_frame >= first) {
                std::memcpy(bytes_of(record) + run.in_record, from + (run.in_frame - first), run.bytes);
            }
        });
    }

    // Writes all `bytes`, padding as zeros: no byte of a sender's memory reaches the bus.
    static void write(const Record& record, std::uint8_t* to) {
        each<written_words.count>([&]<std::size_t i> {
            constexpr std::uint32_t at = written_words.items[i];
            std::memcpy(to + at, frame.data() + at, word_bytes);
        });
        each<field_runs.count>([&]<std::size_t i> {
            constexpr Run run = field_runs.items[i];
            std::memcpy(to + run.in_frame, bytes_of(record) + run.in_record, run.bytes);
        });
    }
};

template <class Record>
using ImageFrame = Frame<Record, ImageForm>;
template <class Record>
using CompactFrame = Frame<Record, CompactForm>;

// A byte numbers the positions, from 1 and from 2.
inline constexpr std::size_t kLargestFramedRecord = 0xFE;

// Where frames are used: on the wire's usual byte order, since they hold its constants, and with memory
// functions of our own, since a platform that brings bounds-checked ones wants every copy to go through them.
template <class Record, ByteOrder order>
inline constexpr bool has_frames = !owns_memory<Record> && sizeof(Record) <= kLargestFramedRecord &&
                                   order == ByteOrder::host && !kPlatformMemory;

// Where the references start in the frame of a table whose scalars precede them and whose references lead to
// fixed arrays alone. From there on all messages have the frame's bytes, whichever scalars they lack.
// Elsewhere, and where that is less than a word, 0.
template <class Record, ByteOrder order>
constexpr std::uint32_t shared_tail() {
    if constexpr (has_frames<Record, order> && Description<Record>::scalars_precede_references &&
                  has_field_of<Record, Kind::fixed_array>() && !has_field_of<Record, Kind::nested_table>()) {
        std::uint32_t start = header_bytes<Record>;
        each_field<Record>([&]<class F, std::uint32_t id> {
            if constexpr (F::kind == Kind::scalar) start += sizeof(typename F::Member);
        });
        return start + sizeof(Word<16>) <= CompactFrame<Record>::needed_bytes ? start : 0;
    } else {
        return 0;
    }
}

// Writes the table of a record that has every scalar.
template <class Record>
Writer<ByteOrder::host> write_framed(Writer<ByteOrder::host> writer, const Record& record) {
    CompactFrame<Record>::write(record, writer.reserve(CompactFrame<Record>::bytes));
    return writer;
}

}  // namespace kaplo

#endif
