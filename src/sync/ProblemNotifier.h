#pragma once

#include "sync/SyncProblem.h"

#include <QHash>
#include <QObject>
#include <QUuid>

class DesktopNotifier;
class SettingsStore;
class SyncManager;

// Tells the user, through desktop notifications, what they would otherwise
// only see in the window: a folder that started failing (once per kind of
// failure, however often it is retried), its recovery, and conflicting
// changes. Routine success says nothing. A notification's key is its
// folder's id.
class ProblemNotifier final : public QObject
{
    Q_OBJECT

public:
    static inline const QString kShowNotificationsKey = QStringLiteral("showNotifications");

    ProblemNotifier(SyncManager &manager, SettingsStore &settings, DesktopNotifier &notifier,
                    QObject *parent = nullptr);

    // "Show Notifications", on unless the user turned it off.
    static bool isEnabled(const SettingsStore &settings);

private:
    void runCompleted(const QUuid &id, int conflicts);
    QList<SyncProblem::Kind> kindsOf(const QUuid &id) const;

    SyncManager &m_manager;
    SettingsStore &m_settings;
    DesktopNotifier &m_notifier;
    // The kinds of failure already told, per folder in error.
    QHash<QUuid, QList<SyncProblem::Kind>> m_told;
};
