#include "sync/ProblemNotifier.h"

#include "model/UuidString.h"
#include "platform/DesktopNotifier.h"
#include "platform/SettingsStore.h"
#include "sync/SyncManager.h"

ProblemNotifier::ProblemNotifier(SyncManager &manager, SettingsStore &settings, DesktopNotifier &notifier,
                                 QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_settings(settings)
    , m_notifier(notifier)
{
    // A failure that was there before this start has been seen already.
    for (const SyncFolder &folder : manager.folders()) {
        if (folder.status == SyncStatus::error)
            m_told.insert(folder.id, kindsOf(folder.id));
    }
    connect(&manager, &SyncManager::runCompleted, this, &ProblemNotifier::runCompleted);
    // The folder list could not be read or saved: once per problem.
    const auto storeProblem = [this](const QString &problem) {
        if (!problem.isEmpty() && isEnabled(m_settings))
            m_notifier.notify(QStringLiteral("Folder list needs attention"), problem, QString());
    };
    connect(&manager.repository(), &FolderRepository::problemChanged, this, storeProblem);
    storeProblem(manager.repository().problem());
    connect(&manager.repository(), &FolderRepository::folderRemoved, this, [this] {
        m_told.removeIf([this](const auto &entry) { return !m_manager.folder(entry.key()); });
    });
}

bool ProblemNotifier::isEnabled(const SettingsStore &settings)
{
    return settings.boolValue(kShowNotificationsKey, true);
}

QList<SyncProblem::Kind> ProblemNotifier::kindsOf(const QUuid &id) const
{
    QList<SyncProblem::Kind> kinds;
    for (const SyncProblem &problem : m_manager.problems(id)) {
        if (!kinds.contains(problem.kind))
            kinds.append(problem.kind);
    }
    std::sort(kinds.begin(), kinds.end());
    return kinds;
}

void ProblemNotifier::runCompleted(const QUuid &id, int conflicts)
{
    const std::optional<SyncFolder> folder = m_manager.folder(id);
    if (!folder)
        return;
    const bool enabled = isEnabled(m_settings);
    const auto notify = [&](const QString &summary, const QString &body) {
        if (enabled)
            m_notifier.notify(summary, body, uuidString(id));
    };
    if (folder->status == SyncStatus::error) {
        const QList<SyncProblem::Kind> kinds = kindsOf(id);
        if (!m_told.contains(id) || m_told.value(id) != kinds) {
            const QList<SyncProblem> problems = m_manager.problems(id);
            const SyncProblem first = problems.value(0);
            QString body = first.sentence();
            if (problems.size() > 1)
                body += QStringLiteral(" (%1 targets failed.)").arg(problems.size());
            notify(folder->name + QStringLiteral(": ") + first.title(), body);
        }
        m_told.insert(id, kinds);
    } else if (m_told.remove(id)) {
        notify(folder->name + QStringLiteral(" is back in sync"), QString());
    }
    if (conflicts > 0) {
        notify(conflicts == 1 ? QStringLiteral("1 file in %1 had conflicting changes").arg(folder->name)
                              : QStringLiteral("%1 files in %2 had conflicting changes").arg(conflicts).arg(folder->name),
               QStringLiteral("Both copies were kept: the older one under a numbered name."));
    }
}
