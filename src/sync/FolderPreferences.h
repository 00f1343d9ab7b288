#pragma once

#include "model/FolderSelection.h"

#include <QSet>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QUuid>

// Nimbrell's own settings of each folder, kept apart from the folder store,
// whose format does not change: ~/.config/nimbrell/folders.conf, one group
// per folder id. A group whose id is no folder's is never read.
class FolderPreferences
{
public:
    static QString defaultPath();
    explicit FolderPreferences(const QString &path = defaultPath());

    // Only a user's "Sync Now" runs a paused folder.
    bool isPaused(const QUuid &id) const;
    void setPaused(const QUuid &id, bool paused);
    // "Keep removed and replaced files"; once on, `hasKept` stays true.
    bool keepsRemoved(const QUuid &id) const;
    bool hasKept(const QUuid &id) const;
    void setKeepsRemoved(const QUuid &id, bool keep);
    // Something was kept without the switch (a reviewed resync).
    void markKept(const QUuid &id) { set(key(id, "hasKept"), true, false); }
    // How long kept files stay: 7, 30 (the default) or 90 days.
    static constexpr int kDefaultKeepDays = 30;
    int keepDays(const QUuid &id) const;
    void setKeepDays(const QUuid &id, int days);
    // The runs that kept something on a target's remote, by directory name:
    // pruning starts rclone only when one of them is old enough.
    QStringList keptRuns(const QUuid &id, const QUuid &targetId) const;
    void setKeptRuns(const QUuid &id, const QUuid &targetId, const QStringList &runs);
    // The target has synced with the folder at least once: a resync into an
    // empty side is then never made by itself, even after the folder store
    // forgot that the pair had synced.
    bool hasSynced(const QUuid &id, const QUuid &targetId) const;
    void setSynced(const QUuid &id, const QUuid &targetId);
    // Where the volume holding the local folder was mounted when the folder
    // was chosen ("/", "/media/user/Backup"), or "" when not known.
    QString mountPoint(const QUuid &id) const;
    void setMountPoint(const QUuid &id, const QString &mountPoint);
    // Skipped directories, ignore rules and direction; the default when
    // none was chosen.
    FolderSelection selection(const QUuid &id) const;
    void setSelection(const QUuid &id, const FolderSelection &selection);
    // Targets whose next bisync follows a change of what syncs: files left
    // out now, or back in again, make that run special (see Bisync).
    bool followsSelectionChange(const QUuid &id, const QUuid &targetId) const;
    void setFollowsSelectionChange(const QUuid &id, const QList<QUuid> &targetIds, bool follows);
    // Targets that made a one-way run in the folder's current direction: a
    // first one that would delete or replace anything waits for a review.
    bool hasSyncedOneWay(const QUuid &id, const QUuid &targetId) const;
    void setSyncedOneWay(const QUuid &id, const QUuid &targetId);
    // A deleted folder's settings go with it.
    void remove(const QUuid &id);

private:
    static QString key(const QUuid &id, const char *name);
    void set(const QString &key, const QVariant &value, const QVariant &byDefault);
    void write();
    QStringList targets(const QUuid &id, const char *name) const;
    void setTargets(const QUuid &id, const char *name, const QList<QUuid> &targetIds, bool in);

    QSettings m_settings;
    QSet<QUuid> m_paused; // asked on every progress report: kept at hand
};
