// SPDX-License-Identifier: Apache-2.0
// The verbs of nac, one source file each, and what they share.
#ifndef TOOL_COMMANDS_H
#define TOOL_COMMANDS_H

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

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

// What the command line asks for.
using Chosen = std::function<ExitCode()>;

// The verbs, in the order of --help: function, words on the command line, heading, purpose. All else that
// lists verbs is derived from it: main, --help, completion, the manual.
#define NAC_VERBS(VERB)                                                                                    \
    VERB(types, "types", "Message types", "List the message types: ids, sizes, fields")                    \
    VERB(describe, "describe", "Message types",                                                            \
         "Describe one type field by field: kinds, sizes, offsets in the record and in the fixed image")   \
    VERB(compat, "compat", "Message types",                                                                \
         "Compare two descriptions: what keeps old and new processes talking")                             \
    VERB(decode, "decode", "Messages",                                                                     \
         "Read received bytes as the library does; print the records as JSON lines")                       \
    VERB(encode, "encode", "Messages", "Write records as messages, as the library does")                   \
    VERB(verify, "verify", "Messages",                                                                     \
         "Check messages: print the offset, table and field of each fault, and what the library logs")     \
    VERB(hex, "hex", "Messages", "Print the bytes of messages with their meanings, damaged ones too")      \
    VERB(assemble, "assemble", "Messages", "Convert the text of nac hex back to bytes, edited or not")     \
    VERB(diff, "diff", "Messages", "Compare the messages of two files, field by field")                    \
    VERB(random, "random", "Messages", "Print random records as JSON lines, by seed")                      \
    VERB(exchange, "exchange", "Bus", "Send records over a bus within the tool and compare what arrives")  \
    VERB(send, "send", "Bus", "Send records to an address of the bus")                                     \
    VERB(listen, "listen", "Bus", "Print the records that arrive at an address")                           \
    VERB(bus, "bus", "Bus", "Ask the bus")                                                                 \
    VERB(bus_list, "bus list", "Bus", "Print the addresses in use, and what waits at each")                \
    VERB(bus_stats, "bus stats", "Bus", "Print the counters of open buses, also for Prometheus")           \
    VERB(bus_remove, "bus remove", "Bus", "Remove what a bus has left at an address")                      \
    VERB(doctor, "doctor", "Bus",                                                                          \
         "Print which host services and which bus a process gets, and whether an address is free")         \
    VERB(monitor, "monitor", "Captures", "Show what passes over the bus: rates by type, or each message")  \
    VERB(record, "record", "Captures",                                                                     \
         "Record what passes over the bus into a capture that Wireshark opens")                            \
    VERB(replay, "replay", "Captures", "Send what captures hold over the bus again, batch by batch")       \
    VERB(info, "info", "Captures",                                                                         \
         "Print what captures hold: counts by type and address, rates, damaged messages")                  \
    VERB(dissector, "dissector", "Captures",                                                               \
         "Print a dissector in Lua, with which Wireshark shows captures field by field")                   \
    VERB(bench, "bench", "This machine", "Measure how long this machine takes to pack and unpack records") \
    VERB(completion, "completion", "This machine",                                                         \
         "Print a script that completes this command line in a shell")

// add_types and so on: each gives a verb its options; parsed, the verb makes itself the chosen one.
#define NAC_DECLARE_VERB(function, words, heading, purpose) \
    void add_##function(CLI::App& verb, Chosen& chosen);
NAC_VERBS(NAC_DECLARE_VERB)
#undef NAC_DECLARE_VERB

}  // namespace tool

#endif
