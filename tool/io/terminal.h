// SPDX-License-Identifier: Apache-2.0
// The terminal of a verb that draws: its size, and keys one by one.
#ifndef TOOL_TERMINAL_H
#define TOOL_TERMINAL_H

#include <termios.h>

#include <cstddef>
#include <optional>

namespace tool {

struct TerminalSize {
    std::size_t columns;
    std::size_t lines;
};

// Of the terminal that standard output is; 80 by 24 where it does not say.
TerminalSize terminal_size();

// While it lives, keys of standard input come without Enter and are not shown, if that is a terminal.
class Keys {
  public:
    Keys();
    ~Keys();
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    // A key that was pressed; does not wait.
    std::optional<char> next() const;

  private:
    std::optional<termios> before_;
};

}  // namespace tool

#endif
