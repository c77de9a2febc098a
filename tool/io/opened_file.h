// SPDX-License-Identifier: Apache-2.0
// A file that is read, closed with its scope.
#ifndef TOOL_OPENED_FILE_H
#define TOOL_OPENED_FILE_H

#include <cstdio>
#include <memory>
#include <string>

namespace tool {

struct CloseFile {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }  // nothing was written
};
using OpenedFile = std::unique_ptr<std::FILE, CloseFile>;

// Null: errno has the reason.
inline OpenedFile open_file(const std::string& path) { return OpenedFile(std::fopen(path.c_str(), "rbe")); }

}  // namespace tool

#endif
