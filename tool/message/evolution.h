// SPDX-License-Identifier: Apache-2.0
// What has changed from one description of a package to another, and what that means for processes which
// talk.
#ifndef TOOL_EVOLUTION_H
#define TOOL_EVOLUTION_H

#include <string>
#include <vector>

#include "tool/message/described_package.h"

namespace tool {

enum Verdict {
    kCompatible,  // old and new processes read each other's messages
    kLoses,       // they do, but for a value
    kBreaks,      // one of them misreads or refuses the other's
};

struct Change {
    Verdict verdict;
    std::string type;
    std::string field;  // empty: of the type as a whole
    std::string what;
    std::string before;  // empty: nothing was there
    std::string after;   // empty: nothing is there
    std::string reason;
};

std::vector<Change> changes_between(const DescribedPackage& before, const DescribedPackage& after);

// The messages that hold a table, or are it.
std::vector<std::string> messages_with(const DescribedPackage& package, const std::string& table);

}  // namespace tool

#endif
