// SPDX-License-Identifier: Apache-2.0
#include "tool/message/host_services.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "runtime/zeb_osal_api.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

thread_local LogLines* collector = nullptr;
std::atomic<bool> shows = false;
std::atomic<std::uint64_t> shown_lines = 0;
std::atomic<std::uint64_t> blocks = 0;

void* allocate(std::uint32_t size) {
    void* const block = std::malloc(size);
    if (block != nullptr) ++blocks;
    return block;
}

}  // namespace

// Writes where lines go now.
struct LogWriter {
    static void write(std::string line) {
        if (collector != nullptr) {
            collector->lines_.push_back(std::move(line));
        } else if (shows) {
            ++shown_lines;
            report_line(line);
        }
    }
};

LogLines::LogLines() { collector = this; }
LogLines::~LogLines() { collector = nullptr; }
std::vector<std::string> LogLines::take() { return std::exchange(lines_, {}); }

void show_log_lines() { shows = true; }
std::uint64_t shown_log_lines() { return shown_lines; }
std::uint64_t live_blocks() { return blocks; }

}  // namespace tool

extern "C" {

std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t /*owner_code*/) { return 1; }

void* ZEB_OsalMemCacheAlloc(std::uint32_t size, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    return tool::allocate(size);
}

void* ZEB_OsalMemAlloc(std::uint32_t size, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    return tool::allocate(size);
}

void ZEB_OsalMemFree(void* block, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    if (block != nullptr) --tool::blocks;
    std::free(block);
}

// The library is C: no exception may reach it.
void ZEB_OsalLogWrite(const KaploLogModule* /*module*/, std::uint32_t /*level*/, std::uint32_t /*category*/,
                      const char* /*file*/, std::uint32_t /*line*/, const char* function, const char* format,
                      ...) {
    std::array<char, 512> text = {};
    va_list values;
    va_start(values, format);
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, values));  // cut where it is longer
    va_end(values);
    try {
        tool::LogWriter::write(std::string(function) + ": " + text.data());
    } catch (const std::exception&) {
        tool::report_line("nac: no memory for a log line of the library");
    }
}

}  // extern "C"
