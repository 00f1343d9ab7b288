#include "platform/InotifyFileEventService.h"

#include "platform/AppLogger.h"
#include "platform/StallProbe.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// Everything that changes the tree's content or shape. IN_ONLYDIR and
// IN_DONT_FOLLOW keep a race from putting a watch on a file or a link.
constexpr uint32_t kEventMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM |
                                IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW |
                                IN_EXCL_UNLINK;
} // namespace

// One watched tree: the kernel watches of its directories and the batching of
// its events.
class InotifyWatch final : public FileWatch
{
public:
    InotifyWatch(InotifyFileEventService *service, const QByteArray &root, const QStringList &ignored,
                 FileEventService::Changes onChange)
        : m_service(service)
        , m_root(root)
        , m_onChange(std::move(onChange))
    {
        for (const QString &path : ignored)
            m_ignored.append(QFile::encodeName(path));
        m_batch.setSingleShot(true);
        m_batch.setInterval(service->m_latency);
        m_batch.callOnTimeout([this] {
            QStringList paths;
            if (!m_unknown) {
                paths.reserve(m_changed.size());
                for (const QByteArray &path : std::as_const(m_changed))
                    paths.append(QFile::decodeName(path));
            }
            m_changed.clear();
            m_unknown = false;
            if (m_onChange)
                m_onChange(paths);
        });
        m_service->m_watches.insert(this);
        addTree(root);
    }

    ~InotifyWatch() override
    {
        if (!m_service)
            return;
        m_service->m_watches.remove(this);
        for (const int wd : std::as_const(m_wds))
            m_service->removeDirectory(this, wd);
    }

    // The first event of a batch starts it; the batch is delivered once the
    // latency has passed. Without a path, what changed is not known.
    void noteChange(const QByteArray &path = {})
    {
        if (path.isEmpty() || m_changed.size() >= kMaxBatchPaths)
            m_unknown = true;
        else if (!m_unknown)
            m_changed.insert(path);
        if (!m_batch.isActive())
            m_batch.start();
    }

    bool isIgnored(const QByteArray &path) const
    {
        return std::any_of(m_ignored.begin(), m_ignored.end(), [&path](const QByteArray &ignored) {
            if (ignored.endsWith('/'))
                return path.startsWith(ignored) || (path.size() + 1 == ignored.size() && ignored.startsWith(path));
            return path.startsWith(ignored)
                && (path.size() == ignored.size() || path.at(ignored.size()) == '/' || path.at(ignored.size()) == '.');
        });
    }

    // Watches a directory and everything below it, each directory before its
    // entries are read, so nothing created meanwhile goes unseen. The walk
    // goes a slice at a time (InotifyFileEventService::walkSlice), so a tree
    // of any size never holds up the event loop; a directory created while
    // its parent waits for its turn is walked when the parent is.
    void addTree(const QByteArray &path)
    {
        if (m_limitReached)
            return;
        m_toWalk.append(path);
        m_service->scheduleWalk();
    }

    bool isWalking() const { return !m_toWalk.isEmpty(); }

    // Walks queued directories until `deadline`; false when some are left.
    bool walk(const QDeadlineTimer &deadline)
    {
        while (!m_toWalk.isEmpty()) {
            if (deadline.hasExpired())
                return false;
            const QByteArray path = m_toWalk.takeLast();
            if (!add(path)) {
                if (m_limitReached)
                    m_toWalk.clear();
                continue;
            }
            DIR *directory = ::opendir(path.constData());
            if (!directory)
                continue;
            while (const dirent *entry = ::readdir(directory)) {
                const char *name = entry->d_name;
                if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
                    continue;
                const QByteArray child = path + '/' + name;
                bool isDirectory = entry->d_type == DT_DIR;
                if (entry->d_type == DT_UNKNOWN) { // some file systems leave the type out
                    struct stat info;
                    isDirectory = ::lstat(child.constData(), &info) == 0 && S_ISDIR(info.st_mode);
                }
                if (isDirectory && !isIgnored(child))
                    m_toWalk.append(child);
            }
            ::closedir(directory);
        }
        return true;
    }

    // Drops the watches of a directory that left the tree and of everything below it.
    void removeTree(const QByteArray &path)
    {
        const QByteArray prefix = path + '/';
        m_toWalk.removeIf([&](const QByteArray &queued) { return queued == path || queued.startsWith(prefix); });
        const QSet<int> wds = m_wds;
        for (const int wd : wds) {
            const QByteArray &watched = m_service->m_directories.value(wd).path;
            if (watched == path || watched.startsWith(prefix)) {
                m_wds.remove(wd);
                m_service->removeDirectory(this, wd);
            }
        }
    }

    void forget(int wd) { m_wds.remove(wd); }
    void detach() { m_service = nullptr; }

private:
    bool add(const QByteArray &path)
    {
        const int wd = m_service->addDirectory(this, path);
        if (wd >= 0) {
            m_wds.insert(wd);
            return true;
        }
        if (errno == ENOSPC && !m_limitReached) {
            m_limitReached = true;
            qCCritical(lcSyncManager,
                       "Cannot watch all of %s: the limit of file watches is reached (%d watched); "
                       "the periodic sync still covers it",
                       m_root.constData(), m_service->watchCount());
        }
        return false;
    }

    QPointer<InotifyFileEventService> m_service;
    QByteArray m_root;
    // A batch names at most this many paths; beyond, it names none.
    static constexpr qsizetype kMaxBatchPaths = 10000;

    FileEventService::Changes m_onChange;
    QSet<QByteArray> m_changed; // of the batch under way
    bool m_unknown = false;
    QList<QByteArray> m_ignored;
    QSet<int> m_wds;
    QTimer m_batch;
    bool m_limitReached = false;
    QList<QByteArray> m_toWalk; // directories still to watch and read, the next one last
};

InotifyFileEventService::InotifyFileEventService(Duration latency, int watchBudget, QObject *parent)
    : QObject(parent)
    , m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    , m_latency(latency)
    , m_watchBudget(watchBudget)
{
    if (m_fd < 0) {
        qCCritical(lcSyncManager, "Cannot watch folders for changes: %s", std::strerror(errno));
        return;
    }
    m_walkTimer.setSingleShot(true);
    m_walkTimer.setInterval(0);
    m_walkTimer.callOnTimeout(this, [this] { walkSlice(); });
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InotifyFileEventService::readEvents);
}

InotifyFileEventService::~InotifyFileEventService()
{
    for (InotifyWatch *watch : std::as_const(m_watches))
        watch->detach();
    if (m_fd >= 0)
        ::close(m_fd);
}

std::unique_ptr<FileWatch> InotifyFileEventService::watch(const QString &path, const QStringList &ignored,
                                                          Changes onChange)
{
    auto watch = std::make_unique<InotifyWatch>(this, QFile::encodeName(path), ignored, std::move(onChange));
    walkSlice(); // a small tree is watched before this returns
    return watch;
}

bool InotifyFileEventService::isWalking() const
{
    return std::any_of(m_watches.begin(), m_watches.end(), [](const InotifyWatch *watch) { return watch->isWalking(); });
}

void InotifyFileEventService::scheduleWalk()
{
    if (!m_walkTimer.isActive())
        m_walkTimer.start();
}

void InotifyFileEventService::walkSlice()
{
    StallProbe::Step step("inotify walk");
    const QDeadlineTimer deadline(kWalkSlice);
    bool done = true;
    for (InotifyWatch *watch : std::as_const(m_watches))
        done = watch->walk(deadline) && done;
    if (done)
        m_walkTimer.stop();
    else
        scheduleWalk();
}

int InotifyFileEventService::addDirectory(InotifyWatch *owner, const QByteArray &path)
{
    if (m_fd < 0) {
        errno = EBADF;
        return -1;
    }
    const int wd = inotify_add_watch(m_fd, path.constData(), kEventMask);
    if (wd < 0)
        return -1;
    auto it = m_directories.find(wd);
    if (it == m_directories.end()) {
        if (m_watchBudget > 0 && m_directories.size() >= m_watchBudget) {
            inotify_rm_watch(m_fd, wd);
            errno = ENOSPC;
            return -1;
        }
        it = m_directories.insert(wd, Directory{});
    }
    it->path = path; // a directory moved within the tree keeps its watch
    if (!it->owners.contains(owner))
        it->owners.append(owner);
    return wd;
}

void InotifyFileEventService::removeDirectory(InotifyWatch *owner, int wd)
{
    const auto it = m_directories.find(wd);
    if (it == m_directories.end())
        return;
    it->owners.removeOne(owner);
    if (it->owners.isEmpty()) {
        inotify_rm_watch(m_fd, wd);
        m_directories.erase(it);
    }
}

void InotifyFileEventService::readEvents()
{
    StallProbe::Step step("inotify events");
    // What is left after a slice is read on the next turn: the notifier
    // fires again while the queue holds events.
    const QDeadlineTimer deadline(kWalkSlice);
    alignas(inotify_event) char buffer[64 * 1024];
    while (!deadline.hasExpired()) {
        const ssize_t length = ::read(m_fd, buffer, sizeof buffer);
        if (length <= 0)
            return;
        for (const char *at = buffer; at < buffer + length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            at += sizeof(inotify_event) + event->len;

            if (event->mask & IN_Q_OVERFLOW) { // events were lost: count it as a change everywhere
                for (InotifyWatch *watch : std::as_const(m_watches))
                    watch->noteChange();
                continue;
            }
            const auto it = m_directories.constFind(event->wd);
            if (it == m_directories.cend())
                continue;
            if (event->mask & IN_IGNORED) { // the directory is gone
                for (InotifyWatch *owner : it->owners)
                    owner->forget(event->wd);
                m_directories.erase(it);
                continue;
            }
            const QByteArray directory = it->path;
            const QList<InotifyWatch *> owners = it->owners;
            const QByteArray child = event->len > 0 ? directory + '/' + QByteArray(event->name) : directory;
            for (InotifyWatch *owner : owners) {
                if (!owner->isIgnored(child))
                    owner->noteChange(child);
            }
            if ((event->mask & IN_ISDIR) && event->len > 0) {
                for (InotifyWatch *owner : owners) {
                    if (!m_watches.contains(owner) || owner->isIgnored(child))
                        continue;
                    if (event->mask & (IN_CREATE | IN_MOVED_TO))
                        owner->addTree(child);
                    else if (event->mask & IN_MOVED_FROM)
                        owner->removeTree(child);
                }
            }
        }
    }
}
