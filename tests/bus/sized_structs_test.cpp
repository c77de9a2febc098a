// SPDX-License-Identifier: Apache-2.0
// Structs of the public header that begin with their size: from C, and what the log has when one is wrong.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "vorn/vorn_bus.h"

extern "C" int check_sized_structs_in_c(void);

namespace {

TEST(SizedStructs, AreTakenFromCByTheirSize) { EXPECT_EQ(check_sized_structs_in_c(), 0); }

TEST(SizedStructs, BeginWithTheirSizeAndAreOtherwiseZero) {
    const vorn_bus_options options = vorn_bus_options_init();
    EXPECT_EQ(options.size, sizeof options);
    EXPECT_EQ(options.url, nullptr);
    EXPECT_EQ(options.log_context, nullptr);
    EXPECT_EQ(vorn_bus_counters_init().size, sizeof(vorn_bus_counters));
    EXPECT_EQ(vorn_bus_counters_init().missed_batches, 0U);
    EXPECT_EQ(vorn_bus_watch_options_init().size, sizeof(vorn_bus_watch_options));
    EXPECT_EQ(vorn_bus_watch_counters_init().size, sizeof(vorn_bus_watch_counters));
}

// What is on standard error after a bus was opened with these options.
std::string lines_of_open(const vorn_bus_options& options) {
    testing::internal::CaptureStderr();
    vorn_bus* bus = nullptr;
    EXPECT_EQ(vorn_bus_open(&options, &bus), VORN_BUS_BAD_ARGUMENT);
    const std::string line = testing::internal::GetCapturedStderr();
    // The default log begins with the time: "2026-01-31T23:59:59.999Z ".
    EXPECT_EQ(line.find("Z vorn: error: "), 23U) << line;
    return line.substr(25);
}

TEST(SizedStructs, OfAWrongSizeAreLoggedWithWhatToDo) {
    const vorn_bus_options forgotten = {};
    EXPECT_EQ(lines_of_open(forgotten), "vorn: error: vorn_bus_options.size is 0, and must be " +
                                            std::to_string(sizeof(vorn_bus_options)) +
                                            ": initialise it with vorn_bus_options_init()\n");
    struct {
        vorn_bus_options known = vorn_bus_options_init();
        std::uint64_t added = 1;
    } later;
    later.known.size = sizeof later;
    EXPECT_EQ(lines_of_open(later.known),
              "vorn: error: vorn_bus_options has members set that this library does not know, after byte " +
                  std::to_string(sizeof(vorn_bus_options)) +
                  ": leave them 0, or install a later libvorn_bus\n");
}

TEST(SizedStructs, OfNullAreRefused) {
    vorn_bus_counters counters = vorn_bus_counters_init();
    vorn_bus_watch_counters watch_counters = vorn_bus_watch_counters_init();
    EXPECT_EQ(vorn_bus_read_counters(nullptr, &counters), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_ask_counters("loop:", 1, 0, nullptr), VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(vorn_bus_watch_read_counters(nullptr, &watch_counters), VORN_BUS_BAD_ARGUMENT);
}

}  // namespace
