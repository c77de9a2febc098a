// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

namespace vorn {
namespace {

constexpr std::uint64_t kMark = 0x334C4E524A4E5256;  // "VRNJRNL3"

[[noreturn]] void fail(const std::string& file) {
    throw std::system_error(errno, std::generic_category(), file);
}

}  // namespace

Journal::~Journal() {
    if (file_ < 0) return;
    if (contents_ != nullptr) munmap(const_cast<Contents*>(contents_), sizeof(Contents));
    ::close(file_);
}

void Journal::open(const std::string& file) {
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder.parent_path(), error);
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) fail(folder.string());
    file_ = ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file_ < 0 || flock(file_, LOCK_EX | LOCK_NB) != 0) fail(file);
    // With all its bytes on the disk: what is written through memory cannot be refused any more.
    if (ftruncate(file_, sizeof(Contents)) != 0) fail(file);
    if (const int fault = posix_fallocate(file_, 0, sizeof(Contents)); fault != 0) {
        errno = fault;
        fail(file);
    }
    void* const at = mmap(nullptr, sizeof(Contents), PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    if (at == MAP_FAILED) fail(file);
    contents_ = static_cast<volatile Contents*>(at);
    find_sessions();
}

void Journal::open(Contents& contents) {
    contents_ = &contents;
    find_sessions();
}

bool Journal::is_about(std::int64_t stream_created) const {
    return contents_->mark == kMark && contents_->stream_created == stream_created;
}

void Journal::begin(std::int64_t stream_created, std::uint64_t name, std::uint64_t delivered_before) {
    contents_->mark = 0;  // until the rest is right
    contents_->started = 0;
    contents_->started_batch = 0;
    contents_->finished = 0;
    contents_->name = name;
    contents_->stream_created = stream_created;
    forget();
    contents_->delivered_before = delivered_before;
    contents_->forgot = delivered_before != 0 ? 1 : 0;
    contents_->mark = kMark;
}

void Journal::forget() {
    contents_->forgot = 1;  // first: a kill between leaves none that is missing unnoticed
    for (volatile Session& session : contents_->sessions) session.name = 0;
    entries_.clear();
}

void Journal::find_sessions() {
    entries_.clear();
    for (std::size_t at = 0; at < kSessions; ++at) {
        const std::uint64_t name = contents_->sessions[at].name;
        if (name != 0) entries_[name] = at;
    }
}

void Journal::start(std::uint64_t position, std::uint64_t batch) {
    contents_->started_batch = batch;
    contents_->started = position;
}

std::vector<Journal::Session> Journal::sessions() const {
    std::vector<Session> all;
    for (const auto& [name, at] : entries_) {
        all.push_back({name, contents_->sessions[at].last, contents_->sessions[at].position});
    }
    return all;
}

void Journal::remember(const Session& session) {
    const auto found = entries_.find(session.name);
    const std::size_t at = found != entries_.end() ? found->second : entry_for(session.name);
    volatile Session& kept = contents_->sessions[at];
    if (kept.name != session.name || kept.last < session.last) kept.last = session.last;
    kept.position = session.position;
    kept.name = session.name;  // last: a kill between leaves no name without its numbers
}

// A free entry, or that of the session that was silent longest.
std::size_t Journal::entry_for(std::uint64_t session) {
    std::size_t best = 0;
    for (std::size_t at = 0; at < kSessions; ++at) {
        if (contents_->sessions[at].name == session) return at;
        if (contents_->sessions[at].name == 0) {
            best = at;
            break;
        }
        if (contents_->sessions[at].position < contents_->sessions[best].position) best = at;
    }
    if (const std::uint64_t old = contents_->sessions[best].name; old != 0) {
        contents_->forgot = 1;
        entries_.erase(old);
    }
    contents_->sessions[best].name = 0;
    try {
        entries_[session] = best;
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): it is found by its name, more slowly
    }
    return best;
}

}  // namespace vorn
