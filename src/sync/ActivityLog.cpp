#include "sync/ActivityLog.h"

#include "model/RelativePath.h"
#include "model/UuidString.h"
#include "platform/PrivateFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSet>
#include <QStandardPaths>

namespace {
const char *const kActions[] = {"new", "updated", "deleted"};

QString side(bool remote)
{
    return remote ? QStringLiteral("remote") : QStringLiteral("local");
}
} // namespace

QList<ActivityRecord> ActivityRecord::fromRun(const QUuid &folderId, const QString &target, const QDateTime &time,
                                              const ChangeParser &parser)
{
    QList<ActivityRecord> records;
    records.reserve(parser.changes().size() + parser.conflicts().size());
    for (const ChangeParser::Change &change : parser.changes())
        records.append({folderId, target, time, Kind::change, change.path, change.action, change.toRemote, {}, {}});
    for (const ChangeParser::Conflict &conflict : parser.conflicts()) {
        records.append({folderId, target, time, Kind::conflict, conflict.original, ChangeParser::Action::added,
                        conflict.renamedOnRemote, conflict.renamed, conflict.remoteWon});
    }
    return records;
}

FolderActivity FolderActivity::of(const QList<ActivityRecord> &records, const QUuid &folderId, const QString &localPath)
{
    FolderActivity activity;
    QSet<QString> seen;
    for (auto record = records.crbegin(); record != records.crend(); ++record) {
        if (record->folderId != folderId)
            continue;
        if (record->kind == ActivityRecord::Kind::change) {
            if (!activity.lastChange || record->time > *activity.lastChange)
                activity.lastChange = record->time;
            continue;
        }
        // Resolved outside (either copy gone), it is no longer open.
        const auto there = [&localPath](const QString &path) {
            const std::optional<QString> absolute = RelativePath::inside(localPath, path);
            return absolute && QFileInfo::exists(*absolute);
        };
        if (!localPath.isEmpty() && !seen.contains(record->renamed) && there(record->path) && there(record->renamed))
            activity.openConflicts.append(*record);
        seen.insert(record->renamed);
    }
    return activity;
}

QString ActivityLog::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/nimbrell/activity.jsonl");
}

ActivityLog::ActivityLog(const QString &path)
    : m_path(path)
{
}

QByteArray ActivityLog::encode(const ActivityRecord &record)
{
    QJsonObject object{{QStringLiteral("folder"), uuidString(record.folderId)},
                       {QStringLiteral("target"), record.target},
                       {QStringLiteral("time"), record.time.toUTC().toString(Qt::ISODateWithMs)},
                       {QStringLiteral("path"), record.path}};
    if (record.kind == ActivityRecord::Kind::change) {
        object.insert(QStringLiteral("action"), QLatin1String(kActions[int(record.action)]));
        object.insert(QStringLiteral("on"), side(record.onRemote));
    } else {
        object.insert(QStringLiteral("conflict"), record.renamed);
        object.insert(QStringLiteral("renamedOn"), side(record.onRemote));
        if (record.remoteWon)
            object.insert(QStringLiteral("winner"), side(*record.remoteWon));
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<ActivityRecord> ActivityLog::decode(QByteArrayView line)
{
    const QJsonObject object = QJsonDocument::fromJson(line.toByteArray()).object();
    ActivityRecord record;
    record.folderId = QUuid::fromString(object.value(QStringLiteral("folder")).toString());
    record.target = object.value(QStringLiteral("target")).toString();
    record.time = QDateTime::fromString(object.value(QStringLiteral("time")).toString(), Qt::ISODateWithMs);
    record.path = object.value(QStringLiteral("path")).toString();
    // The file is outside input too: a path that leads out of a folder is no record.
    if (record.folderId.isNull() || !record.time.isValid() || !RelativePath::isSafe(record.path))
        return std::nullopt;
    if (object.contains(QStringLiteral("conflict"))) {
        record.kind = ActivityRecord::Kind::conflict;
        record.renamed = object.value(QStringLiteral("conflict")).toString();
        record.onRemote = object.value(QStringLiteral("renamedOn")).toString() == u"remote";
        if (const QString winner = object.value(QStringLiteral("winner")).toString(); !winner.isEmpty())
            record.remoteWon = winner == u"remote";
        return RelativePath::isSafe(record.renamed) ? std::optional(record) : std::nullopt;
    }
    const QString action = object.value(QStringLiteral("action")).toString();
    const auto found = std::find_if(std::begin(kActions), std::end(kActions),
                                    [&](const char *name) { return action == QLatin1String(name); });
    if (found == std::end(kActions))
        return std::nullopt;
    record.action = ChangeParser::Action(found - std::begin(kActions));
    record.onRemote = object.value(QStringLiteral("on")).toString() == u"remote";
    return record;
}

QList<ActivityRecord> ActivityLog::read() const
{
    const QFileInfo info(m_path);
    if (info.size() == m_readSize && info.lastModified() == m_readTime)
        return m_read;
    QList<ActivityRecord> records;
    QFile file(m_path);
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray all = file.readAll();
        for (const QByteArray &line : all.split('\n')) { // a torn last line is skipped too
            if (const auto record = decode(line))
                records.append(*record);
        }
    }
    m_read = records;
    m_readSize = info.exists() ? info.size() : -1;
    m_readTime = info.lastModified();
    return records;
}

bool ActivityLog::rewrite(const QList<ActivityRecord> &records)
{
    makePrivateDirectory(QFileInfo(m_path).absolutePath());
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (const ActivityRecord &record : records)
        file.write(encode(record) + '\n');
    // A write that fails as the buffer is flushed would not fail the commit.
    if (!file.flush() || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || !file.commit()) {
        file.cancelWriting();
        return false;
    }
    m_lines = records.size();
    return true;
}

bool ActivityLog::append(const QList<ActivityRecord> &records)
{
    if (records.isEmpty())
        return true;
    if (m_lines < 0) {
        QFile existing(m_path);
        m_lines = existing.open(QIODevice::ReadOnly) ? existing.readAll().count('\n') : 0;
    }
    if (m_lines + records.size() > kMaxRecords) {
        QList<ActivityRecord> all = read() + records;
        return rewrite(all.mid(qMax<qsizetype>(0, all.size() - kMaxRecords)));
    }
    makePrivateDirectory(QFileInfo(m_path).absolutePath());
    QFile file(m_path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return false;
    QByteArray text;
    // A line torn by a crash stays a line of its own, skipped when read.
    if (file.size() > 0 && file.seek(file.size() - 1) && file.read(1) != "\n")
        text += '\n';
    for (const ActivityRecord &record : records)
        text += encode(record) + '\n';
    if (file.write(text) != text.size() || !file.flush()) {
        // What was written of it is a torn line, skipped when read.
        return false;
    }
    m_lines += records.size();
    return true;
}

bool ActivityLog::removeFolder(const QUuid &folderId)
{
    QList<ActivityRecord> records = read();
    if (records.removeIf([&](const ActivityRecord &record) { return record.folderId == folderId; }) == 0)
        return true;
    return rewrite(records);
}
