// SPDX-License-Identifier: Apache-2.0
// Carries what a handler throws around the C functions that call it.
#ifndef TOOL_CARRIED_EXCEPTION_H
#define TOOL_CARRIED_EXCEPTION_H

#include <exception>
#include <utility>

namespace tool {

// Used by one thread at a time.
class CarriedException {
  public:
    // Calls `use`, unless an exception is carried already.
    template <class Use>
    void call(Use&& use) noexcept {
        if (exception_ != nullptr) return;
        try {
            use();
        } catch (...) {
            exception_ = std::current_exception();
        }
    }

    bool is_empty() const { return exception_ == nullptr; }

    // Throws what is carried, if there is something.
    void rethrow() {
        if (exception_ != nullptr) std::rethrow_exception(std::exchange(exception_, nullptr));
    }

  private:
    std::exception_ptr exception_;
};

}  // namespace tool

#endif
