// SPDX-License-Identifier: Apache-2.0
// The recording host services and the ZEB_Osal functions that lead to them.
#include "tests/support/recording_services.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tests {

RecordingServices& RecordingServices::instance() {
    static RecordingServices services;
    return services;
}

void RecordingServices::reset() {
    const std::lock_guard locked(lock_);
    use_flag_ = 1;
    use_flag_calls_ = 0;
    allocation_calls_ = 0;
    failing_allocation_.reset();
    records_ = true;
    observer_ = nullptr;
    allocations_.clear();
    releases_.clear();
    log_lines_.clear();
}

void RecordingServices::set_use_flag(std::uint32_t flag) {
    const std::lock_guard locked(lock_);
    use_flag_ = flag;
}

void RecordingServices::fail_allocation(std::size_t nth) {
    const std::lock_guard locked(lock_);
    failing_allocation_ = allocation_calls_ + nth;
}

void RecordingServices::record(bool on) {
    const std::lock_guard locked(lock_);
    records_ = on;
}

void RecordingServices::on_log(std::function<void(const LogLine&)> observer) {
    const std::lock_guard locked(lock_);
    observer_ = std::move(observer);
}

std::vector<Allocation> RecordingServices::allocations() const {
    const std::lock_guard locked(lock_);
    return allocations_;
}

std::vector<Release> RecordingServices::releases() const {
    const std::lock_guard locked(lock_);
    return releases_;
}

std::vector<LogLine> RecordingServices::log_lines() const {
    const std::lock_guard locked(lock_);
    return log_lines_;
}

std::size_t RecordingServices::use_flag_calls() const {
    const std::lock_guard locked(lock_);
    return use_flag_calls_;
}

std::size_t RecordingServices::live_blocks() const {
    const std::lock_guard locked(lock_);
    return live_.size();
}

std::size_t RecordingServices::foreign_releases() const {
    const std::lock_guard locked(lock_);
    return foreign_releases_;
}

std::uint32_t RecordingServices::answer_use_flag() {
    const std::lock_guard locked(lock_);
    ++use_flag_calls_;
    return use_flag_;
}

void* RecordingServices::allocate(Allocator allocator, std::uint32_t size, std::uint32_t owner_code,
                                  const char* caller) {
    const std::lock_guard locked(lock_);
    void* const block = allocation_calls_++ == failing_allocation_ ? nullptr : std::malloc(size);
    if (block != nullptr) live_[block] = caller;
    if (records_) allocations_.push_back({allocator, block, size, owner_code, caller});
    return block;
}

void RecordingServices::release(void* block, std::uint32_t owner_code, const char* caller) {
    const std::lock_guard locked(lock_);
    std::string allocated_by;
    if (const auto found = live_.find(block); found != live_.end()) {
        allocated_by = found->second;
        live_.erase(found);
        std::free(block);
    } else if (block != nullptr) {
        ++foreign_releases_;  // not ours to free
    }
    if (records_) releases_.push_back({block, owner_code, caller, std::move(allocated_by)});
}

void RecordingServices::log(const LogLine& line) {
    std::function<void(const LogLine&)> observer;
    {
        const std::lock_guard locked(lock_);
        observer = observer_;
        if (records_) log_lines_.push_back(line);
    }
    if (observer) observer(line);
}

}  // namespace tests

extern "C" {

std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t /*owner_code*/) {
    return tests::RecordingServices::instance().answer_use_flag();
}

void* ZEB_OsalMemCacheAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return tests::RecordingServices::instance().allocate(tests::Allocator::cache, size, owner_code, caller);
}

void* ZEB_OsalMemAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return tests::RecordingServices::instance().allocate(tests::Allocator::general, size, owner_code, caller);
}

void ZEB_OsalMemFree(void* block, std::uint32_t owner_code, const char* caller) {
    tests::RecordingServices::instance().release(block, owner_code, caller);
}

void ZEB_OsalLogWrite(const KaploLogModule* module, std::uint32_t level, std::uint32_t category,
                      const char* file, std::uint32_t line, const char* function, const char* format, ...) {
    std::array<char, 512> text = {};
    va_list values;
    va_start(values, format);
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, values));  // cut where it is longer
    va_end(values);
    tests::RecordingServices::instance().log({module->module_name, module->log_module_name,
                                              module->owner_code, level, category, file, line, function,
                                              format, text.data()});
}

}  // extern "C"
