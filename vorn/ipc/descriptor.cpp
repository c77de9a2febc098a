// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/descriptor.h"

#include <pthread.h>
#include <unistd.h>

#include <mutex>

namespace vorn {

// The list of all, under a lock that a fork waits for.
struct OpenDescriptors {
    std::mutex lock;
    Descriptor* first = nullptr;

    static OpenDescriptors& instance() {
        static auto* const open = new OpenDescriptors;  // never destroyed: a process may fork while it ends
        return *open;
    }

    void add(Descriptor& one) {
        one.before_ = nullptr;
        one.after_ = first;
        if (first != nullptr) first->before_ = &one;
        first = &one;
    }
    void remove(Descriptor& one) {
        (one.before_ != nullptr ? one.before_->after_ : first) = one.after_;
        if (one.after_ != nullptr) one.after_->before_ = one.before_;
    }

    static void in_child() {
        OpenDescriptors& open = instance();
        for (Descriptor* one = open.first; one != nullptr; one = one->after_) {
            ::close(one->number_);
            one->number_ = -1;
        }
        open.first = nullptr;
        open.lock.unlock();
    }
};

bool Descriptor::close_in_forked_children() {
    static const int registered =
        pthread_atfork([] { OpenDescriptors::instance().lock.lock(); },
                       [] { OpenDescriptors::instance().lock.unlock(); }, OpenDescriptors::in_child);
    return registered == 0;
}

Descriptor::Descriptor(int number) : number_(number) {
    if (number_ < 0) return;
    OpenDescriptors& open = OpenDescriptors::instance();
    const std::lock_guard locked(open.lock);
    open.add(*this);
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this == &other) return *this;
    reset();
    OpenDescriptors& open = OpenDescriptors::instance();
    const std::lock_guard locked(open.lock);
    if (other.number_ < 0) return *this;
    open.remove(other);
    number_ = std::exchange(other.number_, -1);
    open.add(*this);
    return *this;
}

void Descriptor::reset() {
    if (number_ < 0) return;
    OpenDescriptors& open = OpenDescriptors::instance();
    const std::lock_guard locked(open.lock);
    open.remove(*this);
    ::close(std::exchange(number_, -1));
}

}  // namespace vorn
