// SPDX-License-Identifier: Apache-2.0
// Records from JSON that has been parsed.
#ifndef INSPECT_RECORD_READER_H
#define INSPECT_RECORD_READER_H

#include <stdexcept>
#include <string>

#include "inspect/json_text.h"
#include "inspect/vorn_inspect.h"

namespace inspect {

// What is wrong with a record, and where: "f6.f4: ...".
class RecordError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    RecordError(const std::string& path, const std::string& what) : std::runtime_error(path + ": " + what) {}
};

// Into a zeroed record. `path` is that of the record in a larger one, with a dot. Throws RecordError and
// std::bad_alloc; what has been read until then is the record's, for vorn_inspect_free_record.
void read_record(const Json& object, const vorn_type& type, void* record, const std::string& path = "");

}  // namespace inspect

#endif
