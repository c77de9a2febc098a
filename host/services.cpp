// SPDX-License-Identifier: Apache-2.0
// The recording host services and the ZEB_Osal functions that lead to them.
#include "host/services.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace host {

Services& Services::instance() {
    static Services services;
    return services;
}

void Services::reset() {
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

void Services::set_use_flag(std::uint32_t flag) {
    const std::lock_guard locked(lock_);
    use_flag_ = flag;
}

void Services::fail_allocation(std::size_t nth) {
    const std::lock_guard locked(lock_);
    failing_allocation_ = allocation_calls_ + nth;
}

void Services::record(bool on) {
    const std::lock_guard locked(lock_);
    records_ = on;
}

void Services::on_log(std::function<void(const LogLine&)> observer) {
    const std::lock_guard locked(lock_);
    observer_ = std::move(observer);
}

std::vector<Allocation> Services::allocations() const {
    const std::lock_guard locked(lock_);
    return allocations_;
}

std::vector<Release> Services::releases() const {
    const std::lock_guard locked(lock_);
    return releases_;
}

std::vector<LogLine> Services::log_lines() const {
    const std::lock_guard locked(lock_);
    return log_lines_;
}

std::size_t Services::use_flag_calls() const {
    const std::lock_guard locked(lock_);
    return use_flag_calls_;
}

std::size_t Services::live_blocks() const {
    const std::lock_guard locked(lock_);
    return live_.size();
}

std::size_t Services::foreign_releases() const {
    const std::lock_guard locked(lock_);
    return foreign_releases_;
}

std::uint32_t Services::answer_use_flag() {
    const std::lock_guard locked(lock_);
    ++use_flag_calls_;
    return use_flag_;
}

void* Services::allocate(Allocator allocator, std::uint32_t size, std::uint32_t owner_code,
                         const char* caller) {
    const std::lock_guard locked(lock_);
    void* const block = allocation_calls_++ == failing_allocation_ ? nullptr : std::malloc(size);
    if (block != nullptr) live_[block] = caller;
    if (records_) allocations_.push_back({allocator, block, size, owner_code, caller});
    return block;
}

void Services::release(void* block, std::uint32_t owner_code, const char* caller) {
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

void Services::log(const LogLine& line) {
    std::function<void(const LogLine&)> observer;
    {
        const std::lock_guard locked(lock_);
        observer = observer_;
        if (records_) log_lines_.push_back(line);
    }
    if (observer) observer(line);
}

}  // namespace host

extern "C" {

std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t /*owner_code*/) {
    return host::Services::instance().answer_use_flag();
}

void* ZEB_OsalMemCacheAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return host::Services::instance().allocate(host::Allocator::cache, size, owner_code, caller);
}

void* ZEB_OsalMemAlloc(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    return host::Services::instance().allocate(host::Allocator::general, size, owner_code, caller);
}

void ZEB_OsalMemFree(void* block, std::uint32_t owner_code, const char* caller) {
    host::Services::instance().release(block, owner_code, caller);
}

void ZEB_OsalLogWrite(const KaploLogModule* module, std::uint32_t level, std::uint32_t category,
                      const char* file, std::uint32_t line, const char* function, const char* format, ...) {
    std::array<char, 512> text = {};
    va_list values;
    va_start(values, format);
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, values));  // cut where it is longer
    va_end(values);
    host::Services::instance().log({module->module_name, module->log_module_name, module->owner_code, level,
                                    category, file, line, function, format, text.data()});
}

}  // extern "C"
