// SPDX-License-Identifier: Apache-2.0
// A file descriptor with an owner. A forked child closes those of its parent's buses at once: they would keep
// locks and connections alive that their process no longer has.
#ifndef VORN_DESCRIPTOR_H
#define VORN_DESCRIPTOR_H

#include <utility>

namespace vorn {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number);
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept { *this = std::move(other); }
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    void reset();

    // Before the first one is made. False: the system refused.
    static bool close_in_forked_children();

  private:
    friend struct OpenDescriptors;
    int number_ = -1;
    Descriptor* before_ = nullptr;  // in the list of all
    Descriptor* after_ = nullptr;
};

}  // namespace vorn

#endif
