#include "ui/FolderStatistics.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// One directory, read through its file descriptor so that every entry costs
// one fstatat() and no path building, the way du(1) does it. Entries are
// taken as they are: links are not followed.
void walk(int directoryFd, FolderStatistics &statistics, const std::atomic_bool *stop)
{
    if (stop && stop->load(std::memory_order_relaxed)) {
        close(directoryFd);
        return;
    }
    DIR *directory = fdopendir(directoryFd);
    if (!directory) {
        close(directoryFd);
        return;
    }
    while (const dirent *entry = readdir(directory)) {
        const char *name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        if (entry->d_type == DT_DIR) {
            const int child = openat(dirfd(directory), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child >= 0)
                walk(child, statistics, stop);
            continue;
        }
        struct stat info;
        if (fstatat(dirfd(directory), name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(info.st_mode)) { // a file system that does not report types
            const int child = openat(dirfd(directory), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child >= 0)
                walk(child, statistics, stop);
            continue;
        }
        ++statistics.fileCount;
        statistics.totalBytes += info.st_size;
    }
    closedir(directory);
}

} // namespace

FolderStatistics FolderStatistics::of(const QString &path, const std::atomic_bool *stop)
{
    FolderStatistics statistics;
    const int root = open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (root >= 0)
        walk(root, statistics, stop);
    return statistics;
}
