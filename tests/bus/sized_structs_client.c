/* SPDX-License-Identifier: Apache-2.0 */
/* Structs with a size, as a C99 program and one with a later or an earlier header hand them over. */
#include <stddef.h>

#include "vorn/vorn_bus.h"

/* As a later header may define them. */
struct later_options {
    vorn_bus_options known;
    uint64_t added;
};
struct later_counters {
    vorn_bus_counters known;
    uint64_t added;
};
struct later_watch_options {
    vorn_bus_watch_options known;
    uint64_t added;
};
struct later_watch_counters {
    vorn_bus_watch_counters known;
    uint64_t added;
};

static int lines;
static void count_line(const char* text, void* context) {
    (void)text;
    (void)context;
    ++lines;
}

#define CHECK(condition) \
    if (!(condition)) return __LINE__

static int check_options(void) {
    vorn_bus* bus = NULL;
    vorn_bus_options options = vorn_bus_options_init();
    struct later_options later;
    options.url = "loop:sized";
    options.log = count_line;

    options.size = 0;
    CHECK(vorn_bus_open(&options, &bus) == VORN_BUS_BAD_ARGUMENT);
    options.size = sizeof options - 1;
    CHECK(vorn_bus_open(&options, &bus) == VORN_BUS_BAD_ARGUMENT);
    options.size = UINT32_MAX;
    CHECK(vorn_bus_open(&options, &bus) == VORN_BUS_BAD_ARGUMENT);
    CHECK(bus == NULL);
    options.size = sizeof options;
    CHECK(vorn_bus_open(&options, &bus) == VORN_BUS_OK);
    vorn_bus_close(bus);

    memset(&later, 0, sizeof later);
    later.known = options;
    later.known.size = sizeof later;
    CHECK(vorn_bus_open(&later.known, &bus) == VORN_BUS_OK);
    vorn_bus_close(bus);
    bus = NULL;
    later.added = (uint64_t)1 << 56;
    CHECK(vorn_bus_open(&later.known, &bus) == VORN_BUS_BAD_ARGUMENT);
    CHECK(bus == NULL);
    return 0;
}

static int check_watch_options(void) {
    vorn_bus_watch* watch = NULL;
    vorn_bus_watch_options options = vorn_bus_watch_options_init();
    struct later_watch_options later;
    options.url = "loop:sized";

    options.size = 0;
    CHECK(vorn_bus_watch_open(&options, &watch) == VORN_BUS_BAD_ARGUMENT);
    options.size = sizeof options - 1;
    CHECK(vorn_bus_watch_open(&options, &watch) == VORN_BUS_BAD_ARGUMENT);
    options.size = sizeof options;
    CHECK(vorn_bus_watch_open(&options, &watch) == VORN_BUS_OK);
    vorn_bus_watch_close(watch);

    memset(&later, 0, sizeof later);
    later.known = options;
    later.known.size = sizeof later;
    CHECK(vorn_bus_watch_open(&later.known, &watch) == VORN_BUS_OK);
    vorn_bus_watch_close(watch);
    watch = NULL;
    later.added = 1;
    CHECK(vorn_bus_watch_open(&later.known, &watch) == VORN_BUS_BAD_ARGUMENT);
    CHECK(watch == NULL);
    return 0;
}

static int check_counters(void) {
    vorn_bus* bus = NULL;
    vorn_bus_options options = vorn_bus_options_init();
    struct later_counters later;
    options.url = "loop:sized";
    CHECK(vorn_bus_open(&options, &bus) == VORN_BUS_OK);

    memset(&later, 0xFF, sizeof later);
    later.known.size = 0;
    CHECK(vorn_bus_read_counters(bus, &later.known) == VORN_BUS_BAD_ARGUMENT);
    CHECK(vorn_bus_ask_counters(options.url, 0, 0, &later.known) == VORN_BUS_BAD_ARGUMENT);
    later.known.size = sizeof later.known - 1;
    CHECK(vorn_bus_read_counters(bus, &later.known) == VORN_BUS_BAD_ARGUMENT);
    CHECK(later.known.sent_batches == UINT64_MAX);

    later.known.size = sizeof later.known; /* nothing after the size is written */
    CHECK(vorn_bus_read_counters(bus, &later.known) == VORN_BUS_OK);
    CHECK(later.known.sent_batches == 0 && later.known.missed_batches == 0 && later.added == UINT64_MAX);

    later.known.size = sizeof later; /* what the library does not know is 0 */
    CHECK(vorn_bus_read_counters(bus, &later.known) == VORN_BUS_OK);
    CHECK(later.added == 0 && later.known.size == sizeof later);
    later.added = UINT64_MAX;
    CHECK(vorn_bus_ask_counters(options.url, 0, 0, &later.known) == VORN_BUS_OK);
    CHECK(later.added == 0 && later.known.size == sizeof later);
    vorn_bus_close(bus);
    return 0;
}

static int check_watch_counters(void) {
    vorn_bus_watch* watch = NULL;
    vorn_bus_watch_options options = vorn_bus_watch_options_init();
    struct later_watch_counters later;
    options.url = "loop:sized";
    CHECK(vorn_bus_watch_open(&options, &watch) == VORN_BUS_OK);
    memset(&later, 0xFF, sizeof later);
    later.known.size = 0;
    CHECK(vorn_bus_watch_read_counters(watch, &later.known) == VORN_BUS_BAD_ARGUMENT);
    later.known.size = sizeof later.known;
    CHECK(vorn_bus_watch_read_counters(watch, &later.known) == VORN_BUS_OK);
    CHECK(later.known.interruptions == 0 && later.added == UINT64_MAX);
    later.known.size = sizeof later;
    CHECK(vorn_bus_watch_read_counters(watch, &later.known) == VORN_BUS_OK);
    CHECK(later.added == 0);
    vorn_bus_watch_close(watch);
    return 0;
}

/* The line of the first check that does not hold; 0: all hold. */
int check_sized_structs_in_c(void);
int check_sized_structs_in_c(void) {
    int line = check_options();
    if (line == 0) line = check_watch_options();
    if (line == 0) line = check_counters();
    if (line == 0) line = check_watch_counters();
    if (line == 0 && lines != 0) line = -1; /* a log function in a struct of a wrong size is not called */
    return line;
}
