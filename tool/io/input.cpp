// SPDX-License-Identifier: Apache-2.0
#include "tool/io/input.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

namespace tool {
namespace {

constexpr std::size_t kBufferBytes = 1U << 18;
constexpr std::size_t kPackedBytes = 1U << 16;
constexpr int kGzipOnly = 16 + MAX_WBITS;

CommandError refused(const std::string& name) {
    return {kTrouble, fmt::format("{}: {}", name, std::generic_category().message(errno))};
}

}  // namespace

struct Input::Unpacker {
    Unpacker() : packed(kPackedBytes) {
        if (inflateInit2(&stream, kGzipOnly) != Z_OK) throw std::bad_alloc();
    }
    ~Unpacker() { inflateEnd(&stream); }
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;

    z_stream stream = {};
    std::vector<std::uint8_t> packed;
    std::uint64_t unpacked_bytes = 0;
    bool within = false;  // a member of the file, of which there may be several
};

Input::Input(const std::string& file)
    : name_(file == "-" ? "standard input" : file),
      file_(file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC)),
      buffer_(kBufferBytes) {
    if (file_ < 0) throw refused(name_);
}

Input::~Input() {
    if (file_ != STDIN_FILENO) static_cast<void>(::close(file_));
}

CommandError Input::bad(const char* what) const { return {kBadData, fmt::format("{}: {}", name_, what)}; }

std::size_t Input::read_file(std::span<std::uint8_t> to) const {
    while (true) {
        const ssize_t got = ::read(file_, to.data(), to.size());
        if (got >= 0) return static_cast<std::size_t>(got);
        if (errno != EINTR) throw refused(name_);
    }
}

std::size_t Input::unpack(std::span<std::uint8_t> to) {
    z_stream& stream = unpacker_->stream;
    stream.next_out = to.data();
    stream.avail_out = static_cast<uInt>(to.size());
    while (stream.avail_out == to.size()) {
        if (stream.avail_in == 0) {
            stream.next_in = unpacker_->packed.data();
            stream.avail_in = static_cast<uInt>(read_file(unpacker_->packed));
            if (stream.avail_in == 0) {
                if (unpacker_->within) throw bad("gzip that ends early: its end is missing");
                return 0;
            }
        }
        unpacker_->within = true;
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result == Z_STREAM_END) {
            unpacker_->within = false;
            inflateReset(&stream);
        } else if (result == Z_MEM_ERROR) {
            throw std::bad_alloc();
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            throw bad("damaged gzip; gzip -t tests it");
        }
    }
    const std::size_t got = to.size() - stream.avail_out;
    unpacker_->unpacked_bytes += got;
    if (unpacker_->unpacked_bytes > kMostUnpackedBytes) {
        throw bad("gzip of more than 64 GiB; unpack it with gunzip first, if that is meant");
    }
    return got;
}

bool Input::fill() {
    if (begin_ == end_) begin_ = end_ = 0;
    const std::span to = std::span(buffer_).subspan(end_);
    const std::size_t got = unpacker_ != nullptr ? unpack(to) : read_file(to);
    end_ += got;
    if (begun_ || end_ - begin_ < 2) return got != 0;
    begun_ = true;
    if (buffer_[begin_] != 0x1F || buffer_[begin_ + 1] != 0x8B) return true;
    unpacker_ = std::make_unique<Unpacker>();
    unpacker_->packed.assign(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(end_));
    unpacker_->packed.resize(std::max(end_, kPackedBytes));
    unpacker_->stream.next_in = unpacker_->packed.data();
    unpacker_->stream.avail_in = static_cast<uInt>(end_);
    begin_ = end_ = 0;
    return fill();
}

std::span<const std::uint8_t> Input::beginning(std::size_t most) {
    constexpr std::size_t kLeast = 4;
    const auto is_line = [this] {
        return end_ - begin_ >= kLeast &&
               std::find(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
                         buffer_.begin() + static_cast<std::ptrdiff_t>(end_),
                         '\n') != buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
    };
    while (end_ - begin_ < most && !is_line() && fill()) {
    }
    return {buffer_.data() + begin_, std::min(end_ - begin_, most)};
}

std::span<const std::uint8_t> Input::some() {
    // One byte alone may be the first of gzip.
    while (begin_ == end_ || !begun_) {
        if (!fill()) break;
    }
    const std::span<const std::uint8_t> there(buffer_.data() + begin_, end_ - begin_);
    begin_ = end_;
    return there;
}

std::size_t Input::read(std::uint8_t* to, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        if ((begin_ == end_ || !begun_) && !fill() && begin_ == end_) break;
        const std::size_t step = std::min(count - done, end_ - begin_);
        std::copy_n(buffer_.data() + begin_, step, to + done);
        begin_ += step;
        done += step;
    }
    return done;
}

}  // namespace tool
