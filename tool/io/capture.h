// SPDX-License-Identifier: Apache-2.0
// Captures: messages of the bus in files of the pcapng format, one message a packet, written and read one by
// one. docs/captures.md shows the bytes.
#ifndef TOOL_CAPTURE_H
#define TOOL_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tool/io/opened_file.h"
#include "tool/io/output.h"

namespace tool {

// Reserved for private use: Wireshark asks the dissector that is registered there.
inline constexpr std::uint16_t kCaptureLinkType = 147;  // LINKTYPE_USER0

// Bytes before each message in its packet.
inline constexpr std::uint32_t kCaptureHeaderBytes = 40;
inline constexpr std::uint8_t kCaptureHeaderVersion = 1;

// Wireshark takes no packet that is larger.
inline constexpr std::uint32_t kUsualSnapshotBytes = 262144;

struct CapturedMessage {
    std::uint64_t time = 0;   // nanoseconds since 1970
    std::uint64_t batch = 0;  // number of the batch in the capture, from 1
    std::uint64_t target = 0;
    std::uint32_t id = 0;
    std::uint32_t source = 0;
    std::uint32_t destination = 0;
    std::uint32_t flags = 0;     // none is defined yet
    std::uint32_t position = 0;  // in the batch, from 0
    std::uint32_t count = 0;     // of messages in the batch
    std::uint32_t bytes_on_bus = 0;
    std::span<const std::uint8_t> bytes;  // fewer than bytes_on_bus where the packet was cut
    bool is_cut() const { return bytes.size() < bytes_on_bus; }
};

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

// Whether bytes begin like a capture: the first four are enough.
bool is_capture(std::span<const std::uint8_t> beginning);

// Reads a capture from its beginning to its end, in either byte order, in memory that does not grow.
class CaptureReader {
  public:
    // "-" is standard input. Throws CommandError where it cannot be opened, or is no capture.
    explicit CaptureReader(const std::string& file);
    // Takes a stream whose first bytes have been read already, and does not close it.
    CaptureReader(std::FILE* in, std::span<const std::uint8_t> beginning, std::string name);
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    // The next message, valid until the next call. False: the end, or what follows cannot be read, or no
    // packet held a message; complaint() has the reason.
    bool next(CapturedMessage& message);

    const std::string& name() const { return name_; }

    // Empty, or why reading ended before the end: "ends within a packet, at byte 1234".
    const std::string& complaint() const { return complaint_; }

    std::uint64_t packets() const { return packets_; }  // so far, of any kind; from 1 for the last message
    std::uint64_t bytes() const { return position_; }
    std::uint64_t block_bytes() const { return block_.size() + 12; }    // of the last message's block
    std::uint64_t lost_batches() const { return lost_batches_; }        // as the recorder counted them
    std::uint64_t foreign_packets() const { return foreign_packets_; }  // that hold no message of the bus
    const std::string& recorder() const { return recorder_; }

  private:
    struct Interface {
        std::uint16_t link_type;
        std::uint64_t ticks_a_second;
    };

    std::size_t get(std::uint8_t* to, std::size_t count);
    bool read_block(std::uint32_t& type);
    bool fail(std::string why);
    void read_section(bool first);
    void read_interface();
    void read_statistics();
    bool read_packet(CapturedMessage& message);
    template <class T>
    T at(std::size_t offset) const;
    template <class Use>
    void each_option(std::size_t from, Use&& use) const;

    std::string name_;
    OpenedFile opened_;  // null: the stream is another's
    std::FILE* in_;
    std::vector<std::uint8_t> beginning_;
    std::uint64_t position_ = 0;
    std::uint64_t block_at_ = 0;
    std::vector<std::uint8_t> block_;  // without type and lengths
    bool reversed_ = false;            // the section's byte order is not this machine's
    std::vector<Interface> interfaces_;
    std::string complaint_;
    std::string recorder_;
    std::uint64_t packets_ = 0;
    std::uint64_t lost_batches_ = 0;
    std::uint64_t foreign_packets_ = 0;
};

}  // namespace tool

#endif
