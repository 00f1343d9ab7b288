#pragma once

struct CliCommand;

// `nimbrell remotes add|test|remove|types` and `nimbrell folders
// add|edit|remove`. Remotes are made and checked here, with rclone; a change
// of the folders goes through the running instance, or, with none, is made
// here with the instance lock held.
namespace ConfigCommands {

int remotes(const CliCommand &command);
int folders(const CliCommand &command);
// `nimbrell --complete remotes|folders|types`: one name a line.
int complete(const CliCommand &command);

} // namespace ConfigCommands
