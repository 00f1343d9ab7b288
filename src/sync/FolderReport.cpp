#include "sync/FolderReport.h"

#include "model/Formatting.h"
#include "model/UuidString.h"
#include "sync/SyncProblem.h"

#include <QJsonArray>

namespace {
QJsonValue optionalText(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}
} // namespace

namespace FolderReport {

QString targetText(const RemoteTarget &target)
{
    return target.remoteName + u':' + target.remotePath;
}

QString isoDate(const QDateTime &date)
{
    return date.toUTC().toString(Qt::ISODate);
}

QJsonArray problems(const QList<SyncProblem> &problems)
{
    QJsonArray array;
    for (const SyncProblem &problem : problems) {
        array.append(QJsonObject{
            {QStringLiteral("target"), problem.location.isEmpty() ? QJsonValue() : QJsonValue(problem.location)},
            {QStringLiteral("kind"), problem.kindName()},
            {QStringLiteral("title"), problem.title()},
            {QStringLiteral("sentence"), problem.sentence()},
            {QStringLiteral("action"), problem.actionText().isEmpty() ? QJsonValue() : QJsonValue(problem.actionText())},
        });
    }
    return array;
}

QJsonObject status(const SyncFolder &folder, bool running, bool waiting, const QList<SyncProblem> &problems,
                   const FolderActivity &activity)
{
    QJsonArray targets;
    for (const RemoteTarget &target : folder.remoteTargets)
        targets.append(targetText(target));
    const bool syncing = folder.status == SyncStatus::syncing;
    const qint64 current = folder.currentTargetIndex.value_or(-1);
    const bool hasCurrent = syncing && current >= 0 && current < folder.remoteTargets.size();
    return {
        {QStringLiteral("id"), uuidString(folder.id)},
        {QStringLiteral("name"), folder.name},
        {QStringLiteral("status"), rawValue(folder.status)},
        {QStringLiteral("running"), running},
        {QStringLiteral("waiting"), waiting},
        {QStringLiteral("lastSync"), folder.lastSync ? QJsonValue(isoDate(*folder.lastSync)) : QJsonValue()},
        {QStringLiteral("targets"), targets},
        {QStringLiteral("currentTarget"), hasCurrent ? QJsonValue(targets.at(current)) : QJsonValue()},
        {QStringLiteral("progress"), syncing ? QJsonValue(folder.progress) : QJsonValue()},
        {QStringLiteral("transferredSize"), syncing ? optionalText(folder.transferredSize) : QJsonValue()},
        {QStringLiteral("transferredFiles"), syncing ? optionalText(folder.transferredFiles) : QJsonValue()},
        {QStringLiteral("transferSpeed"), syncing ? optionalText(folder.transferSpeed) : QJsonValue()},
        {QStringLiteral("error"),
         folder.lastError ? QJsonValue(Formatting::errorSummary(*folder.lastError)) : QJsonValue()},
        {QStringLiteral("problems"), FolderReport::problems(problems)},
        {QStringLiteral("conflicts"), int(activity.openConflicts.size())},
        {QStringLiteral("lastChange"), activity.lastChange ? QJsonValue(isoDate(*activity.lastChange)) : QJsonValue()},
    };
}

QJsonObject configuration(const SyncFolder &folder)
{
    QJsonArray targets;
    for (const RemoteTarget &target : folder.remoteTargets) {
        targets.append(QJsonObject{{QStringLiteral("id"), uuidString(target.id)},
                                   {QStringLiteral("remote"), target.remoteName},
                                   {QStringLiteral("path"), target.remotePath},
                                   {QStringLiteral("location"), targetText(target)}});
    }
    return {
        {QStringLiteral("id"), uuidString(folder.id)},
        {QStringLiteral("name"), folder.name},
        {QStringLiteral("localPath"), folder.localPath},
        {QStringLiteral("targets"), targets},
        {QStringLiteral("filters"),
         QJsonObject{{QStringLiteral("excludeGit"), folder.filters.excludeGit},
                     {QStringLiteral("excludeHidden"), folder.filters.excludeHidden},
                     {QStringLiteral("excludeNodeModules"), folder.filters.excludeNodeModules}}},
        {QStringLiteral("conflictResolution"), rawValue(folder.conflictResolution)},
    };
}

QJsonObject remote(const CloudRemote &remote)
{
    return {{QStringLiteral("name"), remote.name}, {QStringLiteral("type"), remote.type}};
}

} // namespace FolderReport
