// SPDX-License-Identifier: Apache-2.0
// Stands in for the host services: the five ZEB_Osal functions, which record, count and can fail.
//
// An executable that links them must export its symbols to the dynamic linker (ENABLE_EXPORTS in CMake):
// the library finds them by name.
#ifndef TESTS_SUPPORT_RECORDING_SERVICES_H
#define TESTS_SUPPORT_RECORDING_SERVICES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "runtime/zeb_osal_api.h"

namespace tests {

enum class Allocator { cache, general };  // ZEB_OsalMemCacheAlloc, ZEB_OsalMemAlloc

struct Allocation {
    Allocator allocator;
    void* block;  // null: made to fail
    std::uint32_t size;
    std::uint32_t owner_code;
    std::string caller;
};

struct Release {
    void* block;  // may be null
    std::uint32_t owner_code;
    std::string caller;
    std::string allocated_by;  // caller of the allocation; empty for null and for unknown blocks
};

struct LogLine {
    std::string module_name;
    std::string log_module_name;
    std::uint16_t owner_code;
    std::uint32_t level;
    std::uint32_t category;
    std::string file;
    std::uint32_t line;
    std::string function;
    std::string format;
    std::string text;  // the format with its values
};

// The process's one set of services. Every function may be called from any thread.
class RecordingServices {
  public:
    static RecordingServices& instance();

    // Forgets what was recorded and ends all failing. Blocks still allocated stay known.
    void reset();

    // What ZEB_OsalMemUseFlagGet answers; 1 after reset(). Each unit asks once.
    void set_use_flag(std::uint32_t flag);

    // Lets the n-th allocation from now (0 is the next) fail; none of the others.
    void fail_allocation(std::size_t nth);

    // Whether each kind of call is kept in the lists below; they are after reset().
    void record(bool on);

    // Called with every log line, outside of the lock.
    void on_log(std::function<void(const LogLine&)> observer);

    std::vector<Allocation> allocations() const;
    std::vector<Release> releases() const;
    std::vector<LogLine> log_lines() const;
    std::size_t use_flag_calls() const;
    std::size_t live_blocks() const;  // allocated and not yet released, since the process began
    std::size_t foreign_releases()
        const;  // of blocks that these services did not give; since the process began

    std::uint32_t answer_use_flag();
    void* allocate(Allocator allocator, std::uint32_t size, std::uint32_t owner_code, const char* caller);
    void release(void* block, std::uint32_t owner_code, const char* caller);
    void log(const LogLine& line);

  private:
    mutable std::mutex lock_;
    std::uint32_t use_flag_ = 1;
    std::size_t use_flag_calls_ = 0;
    std::size_t allocation_calls_ = 0;
    std::optional<std::size_t> failing_allocation_;
    bool records_ = true;
    std::function<void(const LogLine&)> observer_;
    std::vector<Allocation> allocations_;
    std::vector<Release> releases_;
    std::vector<LogLine> log_lines_;
    std::map<void*, std::string> live_;  // block to caller
    std::size_t foreign_releases_ = 0;
};

}  // namespace tests

#endif
