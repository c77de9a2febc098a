// SPDX-License-Identifier: Apache-2.0
// The one thread that all buses of ipc:// in a process share. It is not on the road of a message: it
// connects, says hello, and sees at once that a peer has come or gone.
#ifndef VORN_SERVICE_H
#define VORN_SERVICE_H

#include <sys/epoll.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "vorn/core/support.h"
#include "vorn/ipc/descriptor.h"
#include "vorn/ipc/folder.h"

namespace vorn {

class Service {
  public:
    // What it calls, in its thread. A throw of ready() ends that call: the descriptor is ready still, and
    // ready() is called again a moment later.
    class Handler {
      public:
        virtual ~Handler() = default;
        virtual void ready() = 0;
    };
    // Called with each address whose socket appears in a folder.
    using Appeared = std::function<void(std::uint32_t address)>;

    // Something to do, once each time that it is posted or its time comes. It belongs to who posts it, so
    // that posting needs no memory. Where it throws, it is done again a moment later.
    class Task {
      public:
        explicit Task(std::function<void()> work) : work_(std::move(work)) {}
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;

      private:
        friend class Service;
        std::function<void()> work_;
        Task* next_ = nullptr;
        bool is_posted_ = false;
        bool has_time_ = false;
        Deadline time_;
    };

    // That of this process; it ends with its last owner. Throws system_error and bad_alloc.
    static std::shared_ptr<Service> get();
    Service();
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Any thread. call() waits until it is done, post() does not; both are done in their order. Neither
    // allocates anything for work that is a lambda of a pointer or two.
    void call(std::function<void()> work);
    void post(Task& task);

    // In its thread.
    bool watch(const Descriptor& descriptor, Handler& handler);  // false: the system refused
    void unwatch(const Descriptor& descriptor, Handler& handler);
    // Calls with what the system reports, which may be nothing: its owner looks by itself from time to time.
    void watch_folder(const Folder& folder, const void* owner, Appeared appeared);
    void forget_folder(const void* owner);
    void at(Deadline time, Task& task);
    void forget(Task& task);  // its time

    // Is readable at any time.
    const Descriptor& readable() const { return wake_; }

  private:
    struct FolderWatch {
        int number;
        const void* owner;
        Appeared appeared;
    };

    void run();
    void do_work();
    void do_timers();
    void wait();
    void read_folders();
    int milliseconds_to_next() const;

    Descriptor epoll_;
    Descriptor wake_;  // an eventfd that is never read, waited for edge by edge
    Descriptor folders_;
    std::array<epoll_event, 64> events_ = {};
    int event_count_ = 0;
    std::vector<Task*> timed_;
    std::vector<std::shared_ptr<FolderWatch>> folder_watches_;

    std::mutex lock_;
    Task* first_ = nullptr;
    Task* last_ = nullptr;
    std::condition_variable done_;  // a task
    bool ends_ = false;
    std::thread thread_;
};

}  // namespace vorn

#endif
