#include "platform/InstallLayout.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
// The prefix: two levels above libexec/nimbrell, one above bin.
QString prefix()
{
    // From the kernel, so it works before an application object exists.
    const QString directory = QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path();
    const bool inLibexec = directory.endsWith(QStringLiteral("/libexec/nimbrell"));
    return QDir::cleanPath(directory + (inLibexec ? QStringLiteral("/../..") : QStringLiteral("/..")));
}
} // namespace

namespace InstallLayout {

QString libexecDirectory()
{
    return prefix() + QStringLiteral("/libexec/nimbrell");
}

QString launcherPath()
{
    return prefix() + QStringLiteral("/bin/nimbrell");
}

QString windowProgramPath()
{
    return libexecDirectory() + QStringLiteral("/nimbrell");
}

QString bundledRclonePath()
{
    return libexecDirectory() + QStringLiteral("/rclone");
}

} // namespace InstallLayout
