#pragma once

#include "sync/ActivityLog.h"
#include "sync/ConflictCopies.h"

#include <QHash>
#include <QObject>
#include <QUuid>

#include <functional>

class RcloneEngine;
class SyncManager;

// The conflicts of each folder's runs whose two copies are both still on this
// computer, and how one is settled.
class OpenConflicts final : public QObject
{
    Q_OBJECT

public:
    // `activity` may be null: then no conflict is ever open.
    OpenConflicts(SyncManager &manager, RcloneEngine &engine, ActivityLog *activity, QObject *parent = nullptr);

    // Newest first.
    QList<ActivityRecord> of(const QUuid &id) const { return m_open.value(id); }
    // Looks again whether the folder's conflicts are open: after a run, or
    // after one was settled, here or in a file manager.
    void recheck(const QUuid &id);
    void remove(const QUuid &id) { m_open.remove(id); }

    // A conflict by its two names: the original, and the renamed copy.
    struct Paths
    {
        QString original;
        QString renamed;
    };
    // Settles the folder's open conflict of these names as `choice` says: on
    // this computer, then on the remote where the next run cannot do it (its
    // runs wait meanwhile). A conflict that is no longer open is refused.
    // `done` gets an error sentence, or an empty one.
    void settle(const QUuid &id, const Paths &conflict, ConflictCopies::Choice choice, const QObject *context,
                const std::function<void(const QString &error)> &done);

signals:
    // Also reported as a change of the folder's row.
    void changed(const QUuid &id);

private:
    SyncManager &m_manager;
    RcloneEngine &m_engine;
    ActivityLog *m_activity;
    QHash<QUuid, QList<ActivityRecord>> m_open;
};
