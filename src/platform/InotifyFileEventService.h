#pragma once

#include "platform/FileEventService.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>

class QSocketNotifier;
class InotifyWatch;

// Recursive watching with inotify: one kernel watch per directory of each
// tree, added for directories created or moved in and dropped for those
// deleted or moved out. All trees share one inotify instance (the kernel
// allows a user only a few instances, but many watches). When the kernel's
// watch limit is reached, a tree keeps the watches it has and one error line
// is logged for it. Trees are walked a slice of kWalkSlice at a time, between
// other events; what `watch` returns watches the rest as the walk proceeds.
class InotifyFileEventService final : public QObject, public FileEventService
{
    Q_OBJECT

public:
    using Duration = std::chrono::milliseconds;
    static constexpr Duration kDefaultLatency{1000};

    // `watchBudget` caps the watches of this service below the kernel's own
    // limit (0: only the kernel's).
    explicit InotifyFileEventService(Duration latency = kDefaultLatency, int watchBudget = 0,
                                     QObject *parent = nullptr);
    ~InotifyFileEventService() override;

    std::unique_ptr<FileWatch> watch(const QString &path, const QStringList &ignored,
                                     Changes onChange) override;

    // Directories watched for all trees together.
    int watchCount() const { return int(m_directories.size()); }
    // Some tree is still being walked.
    bool isWalking() const;

    static constexpr Duration kWalkSlice{8};

private:
    friend class InotifyWatch;
    struct Directory
    {
        QByteArray path;
        QList<InotifyWatch *> owners; // nearly always one
    };

    // Adds a kernel watch for one directory on behalf of `owner`: its watch
    // descriptor, or -1 (with errno set).
    int addDirectory(InotifyWatch *owner, const QByteArray &path);
    void removeDirectory(InotifyWatch *owner, int wd);
    void readEvents();
    void scheduleWalk();
    void walkSlice();

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    Duration m_latency;
    int m_watchBudget;
    QHash<int, Directory> m_directories;
    QSet<InotifyWatch *> m_watches;
    QTimer m_walkTimer;
};
