#pragma once

#include <QString>

// Where the program's pieces sit, in an install and in the build tree alike:
//   <prefix>/bin/nimbrell                the command line, the headless service
//                                        and the launcher of the window
//   <prefix>/libexec/nimbrell/nimbrell   the program with the windows
//   <prefix>/libexec/nimbrell/rclone     the bundled rclone
// Either executable finds the others from its own location.
namespace InstallLayout {

QString libexecDirectory();
// The command users run, for autostart entries and messages.
QString launcherPath();
QString windowProgramPath();
QString bundledRclonePath();

} // namespace InstallLayout
