// SPDX-License-Identifier: Apache-2.0
// The verbs of nac, one source file each, and what they share.
#ifndef TOOL_COMMANDS_H
#define TOOL_COMMANDS_H

#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

enum ExitCode : int {
    kOk = 0,
    kBadData = 1,   // the data was read and found bad, or differs
    kBadUsage = 2,  // the command line is wrong
    kTrouble = 3,   // a file or the bus failed
};

// Ends the command with a message on standard error.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode code, const std::string& what) : std::runtime_error(what), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

// nac types: the message types with their ids, sizes and fields.
struct TypesOptions {
    bool json = false;
};
ExitCode run_types(const TypesOptions& options);

// nac decode: received bytes as records, with what is wrong in them.
struct DecodeOptions {
    std::vector<std::string> files;  // "-" is standard input
};
ExitCode run_decode(const DecodeOptions& options);

// nac exchange: sends records over the loopback bus and compares what arrives with what was sent.
struct ExchangeOptions {
    std::vector<std::string> files;  // "-" is standard input
    bool json = false;
};
ExitCode run_exchange(const ExchangeOptions& options);

}  // namespace tool

#endif
