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

// Each declares a verb with its options; parsed, the verb makes itself the chosen one.
void add_types(CLI::App& app, Chosen& chosen);
void add_describe(CLI::App& app, Chosen& chosen);
void add_decode(CLI::App& app, Chosen& chosen);
void add_encode(CLI::App& app, Chosen& chosen);
void add_verify(CLI::App& app, Chosen& chosen);
void add_hex(CLI::App& app, Chosen& chosen);
void add_assemble(CLI::App& app, Chosen& chosen);
void add_diff(CLI::App& app, Chosen& chosen);
void add_random(CLI::App& app, Chosen& chosen);
void add_exchange(CLI::App& app, Chosen& chosen);
void add_send(CLI::App& app, Chosen& chosen);
void add_listen(CLI::App& app, Chosen& chosen);
void add_record(CLI::App& app, Chosen& chosen);
void add_info(CLI::App& app, Chosen& chosen);
void add_replay(CLI::App& app, Chosen& chosen);
void add_monitor(CLI::App& app, Chosen& chosen);
void add_dissector(CLI::App& app, Chosen& chosen);
void add_bus_stats(CLI::App& app, Chosen& chosen);
void add_doctor(CLI::App& app, Chosen& chosen);
void add_bench(CLI::App& app, Chosen& chosen);
void add_completion(CLI::App& app, Chosen& chosen);

}  // namespace tool

#endif
