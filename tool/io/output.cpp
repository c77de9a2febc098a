// SPDX-License-Identifier: Apache-2.0
#include "tool/io/output.h"
#include "inspect/byte_text.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "tool/commands.h"
#include "tool/io/message_files.h"

namespace tool {
namespace {

constexpr std::size_t kBufferBytes = 1U << 18;

CommandError refused(const std::string& name) {
    const int error = errno;
    const char* const next = error == ENOSPC ? "; free space there, or write elsewhere" : "";
    return {kTrouble, fmt::format("{}: {}{}", name, std::generic_category().message(error), next)};
}

void flush(std::FILE* file, const std::string& name) {
    if (std::fflush(file) != 0) throw refused(name);
    // An earlier write failed, and what it held is gone.
    if (std::ferror(file) != 0) throw CommandError(kTrouble, name + ": cannot be written");
}

std::array<std::uint8_t, 4> number_bytes(std::uint64_t number) {
    std::array<std::uint8_t, 4> bytes = {};
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
}

}  // namespace

Output::Output(const std::string& file)
    : name_(file.empty() || file == "-" ? "standard output" : file),
      file_(file.empty() || file == "-" ? stdout : std::fopen(file.c_str(), "wbe")) {
    if (file_ == nullptr) throw refused(name_);
    if (file_ != stdout) static_cast<void>(std::setvbuf(file_, nullptr, _IOFBF, kBufferBytes));
}

Output::~Output() {
    if (file_ != nullptr && file_ != stdout) static_cast<void>(std::fclose(file_));
}

void Output::write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) throw refused(name_);
}

void Output::write(std::span<const std::uint8_t> bytes) {
    write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void Output::write_line(const Json& object) { write(json_text(object) + "\n"); }

void Output::write(Format format, const MessageType* type, std::span<const std::uint8_t> bytes) {
    switch (format) {
        case Format::lines:
            return write_line({{"type", type->name}, {"hex", inspect::to_hex(bytes)}});
        case Format::hex:
            return write(inspect::to_hex(bytes) + "\n");
        case Format::tagged:
            write(number_bytes(type->id));
            [[fallthrough]];
        case Format::prefixed:
            write(number_bytes(bytes.size()));
            [[fallthrough]];
        case Format::raw:
            return write(bytes);
        case Format::dump:
        case Format::pcapng:
            break;
    }
}

void Output::flush() { tool::flush(file_, name_); }

void Output::finish() {
    flush();
    if (file_ != stdout && std::fclose(std::exchange(file_, nullptr)) != 0) throw refused(name_);
}

std::string open_object(const Json& object) {
    std::string text = json_text(object);
    text.pop_back();
    return text;
}

void write_record(const MessageType& type, const void* record, Output& output) {
    write_json(type, record, SIZE_MAX, [&output](std::string_view piece) { output.write(piece); });
}

void flush_standard_output() { flush(stdout, "standard output"); }

}  // namespace tool
