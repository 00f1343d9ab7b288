#include "platform/PrivateFiles.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

bool makePrivateDirectory(const QString &path)
{
    return QDir().mkpath(path)
        && QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

bool isPrivateDirectory(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode)
        && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}
