// SPDX-License-Identifier: Apache-2.0
// Promise: no file makes the reader of captures misbehave, and what it reads of one is written and read again
// the same.
//
// Input: a capture, or anything.
#include "tool/io/capture_writer.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "fuzz/input_file.h"
#include "tool/commands.h"

namespace {

struct Read {
    tool::CapturedMessage message;
    std::vector<std::uint8_t> bytes;
};

// The messages up to the first that cannot be read; none of a file that is no capture.
std::vector<Read> read(const std::string& path) {
    std::vector<Read> messages;
    try {
        tool::CaptureReader reader(path);
        tool::CapturedMessage message;
        while (reader.next(message)) {
            fuzz::promise(message.bytes.size() <= message.bytes_on_bus,
                          "no packet holds more than its message");
            messages.push_back({message, {message.bytes.begin(), message.bytes.end()}});
        }
        fuzz::promise(reader.packets() >= messages.size(), "each message was in a packet");
    } catch (const tool::CommandError&) {
        messages.clear();
    }
    return messages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::InputFile file(std::span(data, size));
    const std::vector<Read> messages = read(file.path());
    if (messages.empty()) return 0;
    const fuzz::InputFile copy({});
    tool::CaptureWriter writer(copy.path(), 0, UINT32_MAX);
    for (const Read& each : messages) {
        tool::CapturedMessage message = each.message;
        message.bytes = each.bytes;
        writer.write(message);
    }
    writer.finish(0);
    const std::vector<Read> again = read(copy.path());
    fuzz::promise(std::equal(messages.begin(), messages.end(), again.begin(), again.end(),
                             [](const Read& a, const Read& b) {
                                 return a.bytes == b.bytes && a.message.time == b.message.time &&
                                        a.message.id == b.message.id &&
                                        a.message.source == b.message.source &&
                                        a.message.destination == b.message.destination &&
                                        a.message.target == b.message.target &&
                                        a.message.bytes_on_bus == b.message.bytes_on_bus;
                             }),
                  "a capture is read as it was written");
    return 0;
}
