#pragma once

struct CliCommand;

// `nimbrell sync [--wait]` and `nimbrell review [--apply]`: through the
// running instance, or, for `sync --wait` with none, run here.
namespace SyncCommands {

int sync(const CliCommand &command);
// The review of a failed run's recovery, and with --apply the run itself.
int review(const CliCommand &command);

} // namespace SyncCommands
