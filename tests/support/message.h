// SPDX-License-Identifier: Apache-2.0
// The exported functions of a message type as one-liners for tests, and a fixture with a clean host.
#ifndef TESTS_SUPPORT_MESSAGE_H
#define TESTS_SUPPORT_MESSAGE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "nac/catalogue.h"
#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/recording_bus.h"
#include "tests/support/recording_services.h"

namespace tests {

inline constexpr std::uint32_t kRefused = 0xFFFFFFFF;

// A host that reverses the byte order keeps only the low byte of some numbers; this is what this host sends.
template <class T>
constexpr T in_full_or_shortened(T in_full, T shortened) {
    return kaplo::kByteSwap == 0 ? in_full : shortened;
}

// What the exported pack reports as the record's size, asked for with a null buffer (which logs a line); 0
// where it refuses.
template <class Record>
std::uint32_t packed_size(const Record& record) {
    std::uint32_t length = 0xFFFFFFFF;
    const std::uint32_t result = nac::Functions<Record>::pack(&record, nullptr, &length);
    EXPECT_EQ(result, 0U);
    return result == 0 ? length : 0;
}

// Packs with exactly the capacity that is needed, in front of an unmapped page. The bytes are 0xEE before.
template <class Record>
Bytes packed(const Record& record) {
    const std::uint32_t size = packed_size(record);
    GuardedBuffer buffer(size);
    std::memset(buffer.data(), 0xEE, size);
    std::uint32_t length = size;
    EXPECT_EQ(nac::Functions<Record>::pack(&record, buffer.data(), &length), 0U);
    EXPECT_EQ(length, size);
    return {buffer.data(), buffer.data() + size};
}

// The bytes that a single send hands to the bus: the fixed image, for types without vectors.
template <class Record>
Bytes sent(const Record& record) {
    auto& bus = RecordingBus::instance();
    EXPECT_EQ(nac::Functions<Record>::send(1, &record, 1), 0U);
    return bus.sends().back().messages.at(0);
}

// A record filled by the exported unpack from bytes in front of an unmapped page; freed with the scope.
template <class Record>
class Unpacked {
  public:
    explicit Unpacked(const Bytes& bytes, std::uint8_t fill = 0) : Unpacked(bytes, bytes.size(), fill) {}

    // `fill` is what every byte of the record holds before; use it only where no vector is left untouched.
    Unpacked(const Bytes& bytes, std::size_t length, std::uint8_t fill) {
        std::memset(static_cast<void*>(&record_), fill, sizeof record_);
        GuardedBuffer buffer(bytes);
        returned_ =
            nac::Functions<Record>::unpack(buffer.data(), static_cast<std::uint32_t>(length), &record_);
        EXPECT_EQ(returned_, sizeof(Record));
    }
    ~Unpacked() { nac::Functions<Record>::free(&record_); }
    Unpacked(const Unpacked&) = delete;
    Unpacked& operator=(const Unpacked&) = delete;

    const Record& operator*() const { return record_; }
    const Record* operator->() const { return &record_; }
    Record& record() { return record_; }

    // Whether every byte of the record still is, or has become, `fill`.
    bool all(std::uint8_t fill) const {
        const Bytes expected(sizeof record_, fill);
        return std::memcmp(&record_, expected.data(), sizeof record_) == 0;
    }

  private:
    Record record_;
    std::uint32_t returned_ = 0;
};

// The texts of the lines logged since the last reset, in order.
inline std::vector<std::string> logged_texts() {
    std::vector<std::string> texts;
    for (const auto& line : RecordingServices::instance().log_lines()) texts.push_back(line.text);
    return texts;
}

// The same as "function: text".
inline std::vector<std::string> logged() {
    std::vector<std::string> lines;
    for (const auto& line : RecordingServices::instance().log_lines())
        lines.push_back(line.function + ": " + line.text);
    return lines;
}

using Lines = std::vector<std::string>;

// A clean host before each test, and after it as many releases as allocations.
class MessageTest : public testing::Test {
  protected:
    MessageTest() {
        bus.reset();
        services.reset();
        live_before_ = services.live_blocks();
        foreign_before_ = services.foreign_releases();
    }
    ~MessageTest() override {
        EXPECT_EQ(services.live_blocks(), live_before_) << "a block was not released";
        EXPECT_EQ(services.foreign_releases(), foreign_before_)
            << "a block was released by the wrong function";
    }

    RecordingBus& bus = RecordingBus::instance();
    RecordingServices& services = RecordingServices::instance();

  private:
    std::size_t live_before_ = 0;
    std::size_t foreign_before_ = 0;
};

}  // namespace tests

#endif
