#include "platform/PrivateFiles.h"

#include <QDir>
#include <QFile>

bool makePrivateDirectory(const QString &path)
{
    return QDir().mkpath(path)
        && QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}
