#pragma once

struct CliCommand;

// `nimbrell status`, `list` and `remotes`: from the running instance, or,
// with none, read here from the store and rclone.
namespace ReportCommands {

int report(const CliCommand &command);

} // namespace ReportCommands
