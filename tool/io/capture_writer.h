// SPDX-License-Identifier: Apache-2.0
// Captures that are written, in the pcapng format.
#ifndef TOOL_CAPTURE_WRITER_H
#define TOOL_CAPTURE_WRITER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tool/io/capture.h"
#include "tool/io/output.h"

namespace tool {

// Wireshark takes no packet that is larger.
inline constexpr std::uint32_t kUsualSnapshotBytes = 262144;

// Writes one file, or several: OUT.pcapng, OUT-2.pcapng ... A batch is never divided between two.
class CaptureWriter {
  public:
    // "-" is standard output, which is not divided. Throws CommandError, here and later.
    CaptureWriter(std::string file, std::uint64_t split_bytes, std::uint32_t snapshot_bytes);
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;

    void write(const CapturedMessage& message);
    // What has been written is in the file when it returns.
    void flush();
    // Ends the file with its totals. Called once.
    void finish(std::uint64_t lost_batches);

    std::uint64_t messages() const { return messages_; }
    std::uint64_t bytes() const { return bytes_; }
    std::uint64_t cut_messages() const { return cut_messages_; }
    const std::vector<std::string>& files() const { return files_; }

  private:
    void open();
    void put(std::span<const std::uint8_t> bytes);

    const std::string file_;
    const std::uint64_t split_bytes_;  // 0: one file
    const std::uint32_t snapshot_bytes_;
    std::optional<Output> out_;
    std::vector<std::uint8_t> packet_;
    std::vector<std::string> files_;
    std::uint64_t batch_ = 0;
    std::uint64_t last_time_ = 0;
    std::uint64_t in_file_ = 0;
    std::uint64_t messages_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t cut_messages_ = 0;
};

}  // namespace tool

#endif
