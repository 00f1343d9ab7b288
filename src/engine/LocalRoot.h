#pragma once

#include <QDateTime>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QStringList>

#include <sys/types.h>

// The local folder a run began in, told apart from whatever takes its path
// while the run goes on. rclone writes by path: when the folder is renamed or
// removed, or its drive pulled and the bare mount point left, a run still
// going on makes a new folder there (or fills the mount point) with what it
// downloads.
class LocalRoot : public QObject
{
    Q_OBJECT

public:
    LocalRoot(const QString &path, QObject *parent);

    // A directory that holds nothing, not even hidden files.
    static bool isEmptyDirectory(const QString &path);
    // Where the volume holding an existing directory is mounted, or "".
    static QString mountPointOf(const QString &path);
    // Why no run may use the folder now, or "": it is not there ("Local
    // folder not found: …"), or it lies on another volume than the one it
    // was chosen on, `mountPoint` ("Local folder not mounted: …"; "" when
    // not known).
    static QString unavailable(const QString &path, const QString &mountPoint);

    // Whether the directory at the path is still the one the run began in.
    bool isStillThere() const;
    // Removes what the run wrote into what now stands at the path: the files
    // it downloaded (relative paths), and of what was made since the run
    // began, rclone's temporary files, the directories left empty and the
    // stand-in itself. Nothing is removed while the folder is back.
    void clearStandIn(const QStringList &downloaded) const;

Q_SIGNALS:
    // The folder left its path (emitted once).
    void gone();

private:
    // Born after the run began (false where the filesystem keeps no birth time).
    bool madeSince(const QFileInfo &entry) const;

    QString m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    bool m_known = false;
    bool m_gone = false;
    QDateTime m_began;
    QFileSystemWatcher m_watcher;
};
