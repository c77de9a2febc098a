// SPDX-License-Identifier: Apache-2.0
#include "tool/io/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {

TerminalSize terminal_size() {
    winsize size = {};
    const bool is_known =
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 && size.ws_row != 0;
    return is_known ? TerminalSize{size.ws_col, size.ws_row} : TerminalSize{80, 24};
}

Keys::Keys() {
    termios now = {};
    if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &now) != 0) return;
    before_ = now;
    now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    now.c_cc[VMIN] = 0;
    now.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &now);
}

Keys::~Keys() {
    if (before_) tcsetattr(STDIN_FILENO, TCSANOW, &*before_);
}

std::optional<char> Keys::next() const {
    pollfd ready = {STDIN_FILENO, POLLIN, 0};
    char key = 0;
    if (!before_ || ::poll(&ready, 1, 0) != 1 || ::read(STDIN_FILENO, &key, 1) != 1) return std::nullopt;
    return key;
}

}  // namespace tool
