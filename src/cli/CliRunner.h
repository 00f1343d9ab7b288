#pragma once

struct CliCommand;

// The command line's subcommands and the headless service. With a running
// instance every subcommand goes through its channel; with none, status,
// list and remotes read the store and rclone here, and `sync --wait` runs
// the syncs itself. Needs a QCoreApplication.
namespace CliRunner {

enum ExitCode { kOk = 0, kFailed = 1, kUsage = 2, kNotRunning = 3 };

int run(const CliCommand &command);
int runHeadless();

} // namespace CliRunner
