// SPDX-License-Identifier: Apache-2.0
// A line on the terminal that shows how far a long input is, how fast, and how long it will take.
#ifndef TOOL_PROGRESS_H
#define TOOL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tool {

// Shown on standard error where that is a terminal, from the first half second on.
class Progress {
  public:
    // The sizes of the files, each read `times` times, make the whole; standard input has none, and then only
    // numbers are shown.
    explicit Progress(const std::vector<std::string>& files, std::uint64_t times = 1);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(std::uint64_t bytes);

  private:
    void show() const;

    bool on_terminal_;
    bool shown_ = false;
    std::uint64_t whole_ = 0;  // 0: not known
    std::uint64_t bytes_ = 0;
    std::uint64_t records_ = 0;
    std::chrono::steady_clock::time_point begun_;
    std::chrono::steady_clock::time_point next_;
};

}  // namespace tool

#endif
