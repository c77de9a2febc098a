// SPDX-License-Identifier: Apache-2.0
// The verbs of nac, one source file each, and what they share.
#ifndef TOOL_COMMANDS_H
#define TOOL_COMMANDS_H

#include <cstdint>
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

// nac describe: one type field by field, with its fixed image.
struct DescribeOptions {
    std::vector<std::string> types;  // names or ids; tables inside messages by name
    bool json = false;
};
ExitCode run_describe(const DescribeOptions& options);

// nac decode: received bytes as records, with what is wrong in them.
struct DecodeOptions {
    std::vector<std::string> files;  // "-" is standard input
};
ExitCode run_decode(const DecodeOptions& options);

// nac exchange: sends records over a bus within the tool and compares what arrives with what was sent.
struct ExchangeOptions {
    std::vector<std::string> files;  // "-" is standard input
    bool json = false;
};
ExitCode run_exchange(const ExchangeOptions& options);

// nac send: records from files to an address.
struct SendOptions {
    std::vector<std::string> files;  // "-" is standard input
    std::string bus;                 // empty: the usual URL
    std::uint32_t to = 0;
    std::uint32_t as = 0;
    std::uint64_t target = 0;
    bool batch = false;
    double rate = 0;        // records a second; 0: as fast as they are taken
    double timeout_s = 10;  // for each send, and for the last to be handled
};
ExitCode run_send(const SendOptions& options);

// nac listen: prints what arrives at an address.
struct ListenOptions {
    std::string bus;
    std::uint32_t as = 0;
    bool json = false;
    std::uint64_t count = 0;  // messages to wait for; 0: no end
    double timeout_s = 0;     // of silence, after which it ends; 0: never
};
ExitCode run_listen(const ListenOptions& options);

// nac bus stats: the counters of open buses.
struct BusStatsOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;  // none: all that an ipc folder shows
    bool json = false;
    double timeout_s = 1;
};
ExitCode run_bus_stats(const BusStatsOptions& options);

// nac doctor: which host services, which bus and which place a process gets.
struct DoctorOptions {
    std::string program;  // empty: this one
    std::string bus;
    std::uint32_t as = 0;
};
ExitCode run_doctor(const DoctorOptions& options);

}  // namespace tool

#endif
