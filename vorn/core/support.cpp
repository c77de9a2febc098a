// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/support.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <system_error>
#include <utility>

namespace vorn {

const char* url_or_default(const char* url) {
    if (url != nullptr) return url;
    const char* const named =
        std::getenv("VORN_BUS_URL");  // NOLINT(concurrency-mt-unsafe): nobody here sets it
    return named != nullptr && *named != '\0' ? named : "loop:";
}

std::string default_folder() {
    // NOLINTBEGIN(concurrency-mt-unsafe): nobody here sets the environment
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime == '/') return std::string(runtime) + "/vorn";
    const char* const home = std::getenv("HOME");
    // NOLINTEND(concurrency-mt-unsafe)
    if (home != nullptr && *home == '/') return std::string(home) + "/.vorn";
    std::array<char, 4096> names = {};
    passwd user = {};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &user, names.data(), names.size(), &found) == 0 && found != nullptr) {
        return std::string(user.pw_dir) + "/.vorn";
    }
    return "/tmp/vorn-" + std::to_string(getuid());
}

std::string system_error_text() { return std::generic_category().message(errno); }

std::uint64_t random_name() {
    std::random_device device;
    for (;;) {
        const std::uint64_t name = std::uint64_t{device()} << 32 | device();
        if (name != 0) return name;
    }
}

Log::Log(vorn_bus_log write, void* context, std::string prefix)
    : write_(write), context_(context), prefix_(std::move(prefix)), second_(Clock::now()) {}

// Paths, URLs and a server's words may hold anything.
void Log::write_text(std::string& text) const {
    constexpr std::size_t kMostBytes = 1000;
    if (text.size() > kMostBytes) text = text.substr(0, kMostBytes) + "...";
    for (char& byte : text) {
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) byte = '?';
    }
    write_line(text.c_str());
}

void Log::write_line(const char* text) const noexcept {
    try {
        if (write_ != nullptr) return write_(text, context_);
        timespec now = {};
        tm utc = {};
        clock_gettime(CLOCK_REALTIME, &now);
        gmtime_r(&now.tv_sec, &utc);
        std::array<char, sizeof "2026-01-01T00:00:00"> time = {};
        static_cast<void>(std::strftime(time.data(), time.size(), "%FT%T", &utc));
        static_cast<void>(std::fprintf(stderr, "%s.%03ldZ %s\n", time.data(), now.tv_nsec / 1'000'000, text));
    } catch (...) {  // NOLINT(bugprone-empty-catch): the host's function owes its line to nobody here
    }
}

bool Log::may_warn(std::uint64_t& left_out) noexcept {
    const std::lock_guard locked(lock_);
    const auto now = Clock::now();
    if (now - second_ >= std::chrono::seconds(1)) {
        second_ = now;
        in_second_ = 0;
        left_out = std::exchange(left_out_, 0);
    }
    if (in_second_ == kWarningsASecond) {
        ++left_out_;
        return false;
    }
    ++in_second_;
    return true;
}

}  // namespace vorn
