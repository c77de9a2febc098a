// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats_journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace vorn {
namespace {

constexpr std::uint64_t kMark = 0x314C4E524A4E5256;  // "VRNJRNL1"

[[noreturn]] void fail(const std::string& file) {
    throw std::system_error(errno, std::generic_category(), file);
}

}  // namespace

Journal::~Journal() {
    if (numbers_ != nullptr) munmap(const_cast<Numbers*>(numbers_), sizeof(Numbers));
    if (file_ >= 0) ::close(file_);
}

void Journal::open(const std::string& file) {
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder.parent_path(), error);
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) fail(folder.string());
    file_ = ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file_ < 0 || ftruncate(file_, sizeof(Numbers)) != 0) fail(file);
    void* const at = mmap(nullptr, sizeof(Numbers), PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    if (at == MAP_FAILED) fail(file);
    numbers_ = static_cast<volatile Numbers*>(at);
}

void Journal::begin(std::int64_t stream_created) {
    if (numbers_->mark == kMark && numbers_->stream_created == stream_created) return;
    numbers_->mark = 0;  // until the rest is right
    numbers_->started = 0;
    numbers_->finished = 0;
    numbers_->stream_created = stream_created;
    numbers_->mark = kMark;
}

std::uint64_t Journal::finished() const { return numbers_->finished; }
std::uint64_t Journal::started() const { return numbers_->started; }
void Journal::start(std::uint64_t number) { numbers_->started = number; }
void Journal::finish(std::uint64_t number) { numbers_->finished = number; }

}  // namespace vorn
