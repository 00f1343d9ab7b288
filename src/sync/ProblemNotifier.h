#pragma once

#include "sync/SyncProblem.h"

#include <QHash>
#include <QObject>
#include <QUuid>

#include <functional>

class SettingsStore;
class SyncManager;

// Tells the user, through desktop notifications, what they would otherwise
// only see in the window: a folder that started failing (once per kind of
// failure, however often it is retried), its recovery, and conflicting
// changes. Routine success says nothing.
class ProblemNotifier final : public QObject
{
    Q_OBJECT

public:
    static inline const QString kShowNotificationsKey = QStringLiteral("showNotifications");

    struct Notification
    {
        QString summary;
        QString body;
        QUuid folderId;
        friend bool operator==(const Notification &, const Notification &) = default;
    };
    using Send = std::function<void(const Notification &)>;

    ProblemNotifier(SyncManager &manager, SettingsStore &settings, Send send, QObject *parent = nullptr);

    // "Show Notifications", on unless the user turned it off.
    static bool isEnabled(const SettingsStore &settings);

private:
    void runCompleted(const QUuid &id, int conflicts);

    SyncManager &m_manager;
    SettingsStore &m_settings;
    Send m_send;
    // The kinds of failure already told, per folder in error.
    QHash<QUuid, QList<SyncProblem::Kind>> m_told;
};
