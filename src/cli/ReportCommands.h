#pragma once

struct CliCommand;

// `nimbrell status`, `list` and `remotes`: from the running instance, or,
// with none, read here from the store and rclone.
namespace ReportCommands {

int report(const CliCommand &command);
// `nimbrell share PATH`: a link to a file of a sync folder, asked of the
// running instance or, with none, made here.
int share(const CliCommand &command);
// `nimbrell file-status PATH...`: what a file manager shows on each path.
int fileStatus(const CliCommand &command);

} // namespace ReportCommands
