// SPDX-License-Identifier: Apache-2.0
// How other threads call the one thread that owns a bus's sockets.
#ifndef VORN_ZMQ_SERVICE_H
#define VORN_ZMQ_SERVICE_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace vorn {

class Notifier {
  public:
    Notifier() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (descriptor_ < 0) throw std::system_error(errno, std::generic_category());
    }
    ~Notifier() { ::close(descriptor_); }
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    // There is work. A call of the system only where the thread sleeps.
    void notify() {
        work_.store(true);
        if (asleep_.load() && asleep_.exchange(false)) eventfd_write(descriptor_, 1);
    }

    // Before sleeping on descriptor(). False: there is work.
    bool may_sleep() {
        asleep_.store(true);
        if (!work_.exchange(false)) return true;
        asleep_.store(false);
        return false;
    }
    void woken() {
        asleep_.store(false);
        work_.store(false);
        eventfd_t value = 0;
        static_cast<void>(eventfd_read(descriptor_, &value));
    }

    int descriptor() const { return descriptor_; }

  private:
    int descriptor_;
    std::atomic<bool> work_ = false;
    std::atomic<bool> asleep_ = false;
};

}  // namespace vorn

#endif
