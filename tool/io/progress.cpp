// SPDX-License-Identifier: Apache-2.0
#include "tool/io/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace tool {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t kBarWidth = 40;

}  // namespace

Progress::Progress(const std::vector<std::string>& files, std::uint64_t times)
    : on_terminal_(isatty(STDERR_FILENO) != 0),
      begun_(std::chrono::steady_clock::now()),
      next_(begun_ + 500ms) {
    for (const std::string& file : files) {
        std::error_code error;
        const auto size = std::filesystem::file_size(file, error);
        if (error) {
            whole_ = 0;
            return;
        }
        whole_ += size * times;
    }
}

Progress::~Progress() {
    if (shown_) static_cast<void>(std::fputs("\r\033[K", stderr));
}

void Progress::add(std::uint64_t bytes) {
    bytes_ += bytes;
    ++records_;
    if (!on_terminal_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + 100ms;
    shown_ = true;
    show();
}

void Progress::show() const {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begun_;
    const double rate = static_cast<double>(records_) / passed.count();
    if (whole_ == 0) {
        fmt::print(stderr, "\r{} records  {:.0f}/s\033[K", records_, rate);
        return;
    }
    const std::uint64_t done = std::clamp<std::uint64_t>(bytes_, 1, whole_);
    const std::uint64_t filled = done * kBarWidth / whole_;
    const double left = passed.count() / static_cast<double>(done) * static_cast<double>(whole_ - done);
    fmt::print(stderr, "\r[{:#<{}}{:.<{}}] {:3}%  {} records  {:.0f}/s  {:.0f} s left\033[K", "", filled, "",
               kBarWidth - filled, done * 100 / whole_, records_, rate, left);
}

}  // namespace tool
