#pragma once

#include "cli/CliSupport.h"

struct CliCommand;

// The command line's subcommands and the headless service. With a running
// instance every subcommand goes through its channel; with none, status,
// list and remotes read the store and rclone here, and `sync --wait` runs
// the syncs itself. Needs a QCoreApplication.
namespace CliRunner {

using enum CliSupport::ExitCode;

int run(const CliCommand &command);
int runHeadless();

} // namespace CliRunner
