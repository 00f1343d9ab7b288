#include "sync/ProblemNotifier.h"

#include "platform/SettingsStore.h"
#include "sync/SyncManager.h"

namespace {
QList<SyncProblem::Kind> kindsOf(const SyncFolder &folder)
{
    QList<SyncProblem::Kind> kinds;
    for (const SyncProblem &problem : SyncProblem::forFolder(folder)) {
        if (!kinds.contains(problem.kind))
            kinds.append(problem.kind);
    }
    std::sort(kinds.begin(), kinds.end());
    return kinds;
}
} // namespace

ProblemNotifier::ProblemNotifier(SyncManager &manager, SettingsStore &settings, Send send, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_settings(settings)
    , m_send(std::move(send))
{
    // A failure that was there before this start has been seen already.
    for (const SyncFolder &folder : manager.folders()) {
        if (folder.status == SyncStatus::error)
            m_told.insert(folder.id, kindsOf(folder));
    }
    connect(&manager, &SyncManager::runCompleted, this, &ProblemNotifier::runCompleted);
    connect(&manager, &SyncManager::folderRemoved, this, [this] {
        m_told.removeIf([this](const auto &entry) { return !m_manager.folder(entry.key()); });
    });
}

bool ProblemNotifier::isEnabled(const SettingsStore &settings)
{
    return settings.boolValue(kShowNotificationsKey, true);
}

void ProblemNotifier::runCompleted(const QUuid &id, int conflicts)
{
    const std::optional<SyncFolder> folder = m_manager.folder(id);
    if (!folder)
        return;
    QList<Notification> due;
    if (folder->status == SyncStatus::error) {
        const QList<SyncProblem::Kind> kinds = kindsOf(*folder);
        if (m_told.value(id) != kinds || !m_told.contains(id)) {
            const QList<SyncProblem> problems = SyncProblem::forFolder(*folder);
            const SyncProblem first = problems.value(0);
            QString body = first.sentence();
            if (problems.size() > 1)
                body += QStringLiteral(" (%1 targets failed.)").arg(problems.size());
            due.append({folder->name + QStringLiteral(": ") + first.title(), body, id});
        }
        m_told.insert(id, kinds);
    } else if (m_told.remove(id)) {
        due.append({folder->name + QStringLiteral(" is back in sync"), QString(), id});
    }
    if (conflicts > 0) {
        const QString summary = conflicts == 1
            ? QStringLiteral("1 file in %1 had conflicting changes").arg(folder->name)
            : QStringLiteral("%1 files in %2 had conflicting changes").arg(conflicts).arg(folder->name);
        due.append({summary, QStringLiteral("Both copies were kept: the older one under a numbered name."), id});
    }
    if (!isEnabled(m_settings))
        return;
    for (const Notification &notification : std::as_const(due))
        m_send(notification);
}
