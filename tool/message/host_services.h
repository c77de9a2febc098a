// SPDX-License-Identifier: Apache-2.0
// The host services that the tool gives the library, which finds them by name: memory that is counted, and
// log lines that are collected or shown. The executable exports them (vorn_host in CMake).
#ifndef TOOL_HOST_SERVICES_H
#define TOOL_HOST_SERVICES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

// Collects what the library logs in this thread, "function: text", while it lives. One at a time in a thread.
class LogLines {
  public:
    LogLines();
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    std::vector<std::string> take();

  private:
    friend struct LogWriter;
    std::vector<std::string> lines_;
};

// From now on log lines that nobody collects go to standard error; until then they are dropped.
void show_log_lines();
// The number of those that were shown.
std::uint64_t shown_log_lines();

// Blocks that the library has allocated and not freed.
std::uint64_t live_blocks();

}  // namespace tool

#endif
