// SPDX-License-Identifier: Apache-2.0
// MessagePack, the C++ library: a record as an array of its fields, octets as binary.
#include <msgpack.hpp>

#include "bench/codec.h"

namespace bench {
namespace {

class FixedBuffer {
  public:
    FixedBuffer(void* start, std::uint32_t capacity)
        : start_(static_cast<char*>(start)), capacity_(capacity) {}

    void write(const char* bytes, std::size_t size) {
        if (size > capacity_ - used_) refuse();
        std::memcpy(start_ + used_, bytes, size);
        used_ += size;
    }
    std::uint32_t used() const { return static_cast<std::uint32_t>(used_); }

  private:
    char* start_;
    std::size_t capacity_;
    std::size_t used_ = 0;
};

using Packer = msgpack::packer<FixedBuffer>;

template <class Record>
void pack_table(Packer& packer, const Record& record);

template <class Element>
void pack_elements(Packer& packer, const Element* elements, std::uint32_t count) {
    if constexpr (std::is_same_v<Element, std::uint8_t>) {
        packer.pack_bin(count);
        packer.pack_bin_body(reinterpret_cast<const char*>(elements), count);
    } else {
        packer.pack_array(count);
        for (std::uint32_t k = 0; k < count; ++k) {
            if constexpr (std::is_class_v<Element>) {
                pack_table(packer, elements[k]);
            } else {
                packer.pack(elements[k]);
            }
        }
    }
}

template <class Record>
void pack_table(Packer& packer, const Record& record) {
    packer.pack_array(kaplo::slots<Record>);
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (F::kind == kaplo::Kind::scalar) {
            packer.pack(F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            pack_table(packer, F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
            pack_elements(packer, F::in(record), std::extent_v<typename F::Member>);
        } else {
            pack_elements(packer, F::elements(record), F::count(record));
        }
    });
}

const msgpack::object_array& array_in(const msgpack::object& object) {
    if (object.type != msgpack::type::ARRAY) refuse();
    return object.via.array;
}

template <class Record>
void take_table(const msgpack::object& object, Record& record);

template <class Element>
void take_elements(const msgpack::object_array& from, Element* elements) {
    for (std::uint32_t k = 0; k < from.size; ++k) {
        if constexpr (std::is_class_v<Element>) {
            take_table(from.ptr[k], elements[k]);
        } else {
            elements[k] = from.ptr[k].as<Element>();
        }
    }
}

template <class F>
void take_field(const msgpack::object& object, typename F::Record& record) {
    using Element = typename F::Element;
    constexpr bool octets = std::is_same_v<Element, std::uint8_t>;
    if constexpr (F::kind == kaplo::Kind::scalar) {
        F::in(record) = object.as<Element>();
    } else if constexpr (F::kind == kaplo::Kind::nested_table) {
        take_table(object, F::in(record));
    } else if constexpr (octets) {
        if (object.type != msgpack::type::BIN) refuse();
        if constexpr (F::kind == kaplo::Kind::fixed_array) {
            take_bytes(object.via.bin.ptr, object.via.bin.size, F::in(record));
        } else {
            F::elements(record) = copy_of<Element>(object.via.bin.ptr, object.via.bin.size, F::count(record));
        }
    } else {
        const msgpack::object_array& from = array_in(object);
        if constexpr (F::kind == kaplo::Kind::fixed_array) {
            if (from.size != std::extent_v<typename F::Member>) refuse();
            take_elements(from, F::in(record));
        } else {
            F::elements(record) = array_of<Element>(from.size, F::count(record));
            take_elements(from, F::elements(record));
        }
    }
}

template <class Record>
void take_table(const msgpack::object& object, Record& record) {
    const msgpack::object_array& fields = array_in(object);
    if (fields.size != kaplo::slots<Record>) refuse();
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> { take_field<F>(fields.ptr[id], record); });
}

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    FixedBuffer buffer(output, capacity);
    Packer packer(buffer);
    pack_table(packer, *static_cast<const Record*>(sample.record));
    return buffer.used();
}

// Binary stays where it was received; the zone for the rest is used again and again.
template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    static msgpack::zone zone;
    const auto refer = [](msgpack::type::object_type, std::size_t, void*) { return true; };
    std::size_t offset = 0;
    const msgpack::object object =
        msgpack::unpack(zone, reinterpret_cast<const char*>(sample.bytes), sample.length, offset, refer);
    take_table(object, *static_cast<Record*>(output));
    zone.clear();
    return sample.length;
}

}  // namespace

template <class Record>
Codec msgpack_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("msgpack");
}

#define BENCH_INSTANTIATE(Record) template Codec msgpack_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
