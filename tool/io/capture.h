// SPDX-License-Identifier: Apache-2.0
// Captures that are read: messages of the bus in files of the pcapng or pcap format, one message a packet.
// docs/captures.md shows the bytes.
#ifndef TOOL_CAPTURE_H
#define TOOL_CAPTURE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tool/io/input.h"

namespace tool {

// Reserved for private use: Wireshark asks the dissector that is registered there.
inline constexpr std::uint16_t kCaptureLinkType = 147;  // LINKTYPE_USER0

// Bytes before each message in its packet.
inline constexpr std::uint32_t kCaptureHeaderBytes = 40;
inline constexpr std::uint8_t kCaptureHeaderVersion = 1;

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

// Whether bytes begin like a capture: the first four are enough.
bool is_capture(std::span<const std::uint8_t> beginning);

// Reads a capture from its beginning to its end, in either byte order, in memory that does not grow.
class CaptureReader {
  public:
    // "-" is standard input. Throws CommandError where it cannot be opened, or is no capture.
    explicit CaptureReader(const std::string& file);
    // A capture that follows in the input.
    explicit CaptureReader(Input& input);
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    // The next message, valid until the next call. False: the end, or what follows cannot be read, or no
    // packet held a message; complaint() has the reason.
    bool next(CapturedMessage& message);

    const std::string& name() const { return input_.name(); }

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

    // Of a packet, what does not depend on the format.
    struct PacketHead {
        std::uint64_t ticks;
        std::uint32_t bytes;
        std::uint32_t original_bytes;
    };

    void start();
    void start_pcap(std::uint64_t ticks_a_second);
    std::size_t get(std::uint8_t* to, std::size_t count);
    bool get_more(std::size_t count);
    bool next_pcapng(CapturedMessage& message);
    bool next_pcap(CapturedMessage& message);
    bool read_block(std::uint32_t& type);
    bool fail(std::string why);
    void read_section();
    void read_interface();
    void read_statistics();
    bool read_packet(CapturedMessage& message);
    static bool read_message(const Interface& interface, const PacketHead& packet, const std::uint8_t* head,
                             CapturedMessage& message);
    template <class T>
    T at(std::size_t offset) const;
    template <class Use>
    void each_option(std::size_t from, Use&& use) const;

    std::unique_ptr<Input> own_;
    Input& input_;
    bool is_pcap_ = false;  // the older format, of one interface and no blocks
    std::uint64_t position_ = 0;
    std::uint64_t block_at_ = 0;
    std::vector<std::uint8_t> block_;  // without type and lengths; of pcap: a packet without its head
    bool reversed_ = false;            // the section's byte order is not this machine's
    std::vector<Interface> interfaces_;
    std::string complaint_;
    std::string recorder_;
    std::uint64_t packets_ = 0;
    std::uint64_t lost_batches_ = 0;
    std::uint64_t foreign_packets_ = 0;
};

// Says on standard error how many packets held no message, if any; called at the end.
void report_foreign_packets(const CaptureReader& reader);

}  // namespace tool

#endif
