// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/service.h"

#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

namespace vorn {
namespace {

void add(const Descriptor& epoll, const Descriptor& descriptor, std::uint32_t events, void* data) {
    epoll_event event = {};
    event.events = events;
    event.data.ptr = data;
    if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor.get(), &event) != 0) {
        throw std::system_error(errno, std::generic_category());
    }
}

}  // namespace

std::shared_ptr<Service> Service::get() {
    static std::mutex lock;
    static std::weak_ptr<Service> known;
    const std::lock_guard locked(lock);
    std::shared_ptr<Service> service = known.lock();
    if (service == nullptr) {
        if (!Descriptor::close_in_forked_children()) throw std::bad_alloc();
        service = std::make_shared<Service>();
        known = service;
    }
    return service;
}

Service::Service()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)),
      folders_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!epoll_ || !wake_) throw std::system_error(errno, std::generic_category());
    add(epoll_, wake_, EPOLLIN | EPOLLET, nullptr);
    if (folders_) add(epoll_, folders_, EPOLLIN, &folders_);
    thread_ = start_thread([this] { run(); });
}

Service::~Service() {
    {
        const std::lock_guard locked(lock_);
        ends_ = true;
    }
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

void Service::post(Task& task) {
    {
        const std::lock_guard locked(lock_);
        if (std::exchange(task.is_posted_, true)) return;
        (first_ == nullptr ? first_ : last_->next_) = &task;
        last_ = &task;
    }
    eventfd_write(wake_.get(), 1);
}

void Service::call(std::function<void()> work) {
    struct {
        std::function<void()> work;
        std::exception_ptr thrown;
        bool is_done = false;
    } state = {std::move(work), nullptr};
    Task task([this, &state] {
        try {
            state.work();
        } catch (...) {
            state.thrown = std::current_exception();
        }
        const std::lock_guard locked(lock_);
        state.is_done = true;
        done_.notify_all();
    });
    post(task);
    std::unique_lock locked(lock_);
    done_.wait(locked, [&state] { return state.is_done; });
    if (state.thrown != nullptr) std::rethrow_exception(state.thrown);
}

bool Service::watch(const Descriptor& descriptor, Handler& handler) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = &handler;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor.get(), &event) == 0;
}

void Service::unwatch(const Descriptor& descriptor, Handler& handler) {
    if (descriptor) epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor.get(), nullptr);
    for (int i = 0; i < event_count_; ++i) {
        auto& event = events_[static_cast<std::size_t>(i)];
        if (event.data.ptr == &handler) event.data.ptr = nullptr;
    }
}

void Service::watch_folder(const Folder& folder, const void* owner, Appeared appeared) {
    if (!folders_) return;
    const int number = inotify_add_watch(folders_.get(), folder.descriptor_path().c_str(), IN_MOVED_TO);
    if (number < 0) return;
    folder_watches_.push_back(std::make_shared<FolderWatch>(FolderWatch{number, owner, std::move(appeared)}));
}

void Service::at(Deadline time, Task& task) {
    if (!task.has_time_) timed_.push_back(&task);
    task.has_time_ = true;
    task.time_ = time;
}

void Service::forget(Task& task) {
    if (std::exchange(task.has_time_, false)) std::erase(timed_, &task);
}

void Service::forget_folder(const void* owner) {
    for (const auto& watch : folder_watches_) {
        if (watch->owner != owner) continue;
        const auto shares = [&watch](const auto& other) { return other->number == watch->number; };
        if (std::count_if(folder_watches_.begin(), folder_watches_.end(), shares) == 1) {
            inotify_rm_watch(folders_.get(), watch->number);
        }
        watch->number = -1;
    }
    std::erase_if(folder_watches_, [](const auto& watch) { return watch->number < 0; });
}

void Service::run() {
    for (;;) {
        {
            const std::lock_guard locked(lock_);
            if (ends_ && first_ == nullptr) return;
        }
        try {
            do_work();
            do_timers();
            wait();
        } catch (const std::exception&) {  // mostly memory is lacking: what was to be done is there still
            std::this_thread::sleep_for(kAfterFault);
        }
    }
}

void Service::do_work() {
    for (;;) {
        Task* task = nullptr;
        {
            const std::lock_guard locked(lock_);
            task = first_;
            if (task == nullptr) return;
            first_ = std::exchange(task->next_, nullptr);
            task->is_posted_ = false;  // from here on it may be posted again
        }
        try {
            task->work_();
        } catch (...) {
            post(*task);
            throw;
        }
    }
}

void Service::do_timers() {
    const Deadline now = Clock::now();
    for (;;) {
        const auto due = std::find_if(timed_.begin(), timed_.end(),
                                      [now](const Task* task) { return task->time_ <= now; });
        if (due == timed_.end()) return;
        Task& task = **due;
        forget(task);
        post(task);  // so that it is done again where it throws
        do_work();
    }
}

int Service::milliseconds_to_next() const {
    const auto next = std::min_element(timed_.begin(), timed_.end(), [](const Task* left, const Task* right) {
        return left->time_ < right->time_;
    });
    if (next == timed_.end()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>((*next)->time_ - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

void Service::wait() {
    event_count_ = 0;
    const int count =
        epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()), milliseconds_to_next());
    event_count_ = std::max(count, 0);
    for (int i = 0; i < event_count_; ++i) {
        void* const data = events_[static_cast<std::size_t>(i)].data.ptr;
        if (data == &folders_) {
            read_folders();
        } else if (data != nullptr) {
            static_cast<Handler*>(data)->ready();
        }
    }
}

void Service::read_folders() {
    alignas(inotify_event) std::array<char, 64 * (sizeof(inotify_event) + NAME_MAX + 1)> bytes;
    const ssize_t size = read(folders_.get(), bytes.data(), bytes.size());
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= size;) {
        inotify_event event;
        std::memcpy(&event, bytes.data() + at, sizeof event);
        const char* const name = bytes.data() + at + sizeof event;
        at += static_cast<ssize_t>(sizeof event) + static_cast<ssize_t>(event.len);
        std::uint32_t address = 0;
        if (event.len == 0 || !Folder::address_of(name, address)) continue;
        const auto watches = folder_watches_;  // what is called may forget some
        for (const auto& watch : watches) {
            if (watch->number == event.wd) watch->appeared(address);
        }
    }
}

}  // namespace vorn
