#include "sync/FolderPreferences.h"

#include "model/UuidString.h"

#include "platform/AppLogger.h"
#include "platform/PrivateFiles.h"

#include <QFileInfo>
#include <QStandardPaths>

QString FolderPreferences::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/nimbrell/folders.conf");
}

FolderPreferences::FolderPreferences(const QString &path)
    : m_settings(path, QSettings::IniFormat)
{
    for (const QString &group : m_settings.childGroups()) {
        const QUuid id = QUuid::fromString(group);
        if (!id.isNull() && m_settings.value(group + QStringLiteral("/paused"), false).toBool())
            m_paused.insert(id);
    }
}

QString FolderPreferences::key(const QUuid &id, const char *name)
{
    return uuidString(id) + u'/' + QLatin1String(name);
}

bool FolderPreferences::isPaused(const QUuid &id) const
{
    return m_paused.contains(id);
}

void FolderPreferences::setPaused(const QUuid &id, bool paused)
{
    if (paused)
        m_paused.insert(id);
    else
        m_paused.remove(id);
    set(key(id, "paused"), paused, false);
}

bool FolderPreferences::keepsRemoved(const QUuid &id) const
{
    return m_settings.value(key(id, "keepRemoved"), false).toBool();
}

bool FolderPreferences::hasKept(const QUuid &id) const
{
    return m_settings.value(key(id, "hasKept"), false).toBool();
}

void FolderPreferences::setKeepsRemoved(const QUuid &id, bool keep)
{
    if (keep)
        set(key(id, "hasKept"), true, false);
    set(key(id, "keepRemoved"), keep, false);
}

int FolderPreferences::keepDays(const QUuid &id) const
{
    const int days = m_settings.value(key(id, "keepDays"), kDefaultKeepDays).toInt();
    return days > 0 ? days : kDefaultKeepDays;
}

void FolderPreferences::setKeepDays(const QUuid &id, int days)
{
    set(key(id, "keepDays"), days, kDefaultKeepDays);
}

QStringList FolderPreferences::keptRuns(const QUuid &id, const QUuid &targetId) const
{
    return m_settings.value(key(id, "keptRuns") + u'/' + uuidString(targetId)).toStringList();
}

void FolderPreferences::setKeptRuns(const QUuid &id, const QUuid &targetId, const QStringList &runs)
{
    set(key(id, "keptRuns") + u'/' + uuidString(targetId), runs, QStringList());
}

QString FolderPreferences::mountPoint(const QUuid &id) const
{
    return m_settings.value(key(id, "mountPoint")).toString();
}

void FolderPreferences::setMountPoint(const QUuid &id, const QString &mountPoint)
{
    set(key(id, "mountPoint"), mountPoint, QString());
}

bool FolderPreferences::hasSynced(const QUuid &id, const QUuid &targetId) const
{
    return targets(id, "syncedTargets").contains(uuidString(targetId));
}

void FolderPreferences::setSynced(const QUuid &id, const QUuid &targetId)
{
    if (!hasSynced(id, targetId))
        setTargets(id, "syncedTargets", {targetId}, true);
}

FolderSelection FolderPreferences::selection(const QUuid &id) const
{
    FolderSelection selection;
    selection.skipped = m_settings.value(key(id, "skipped")).toStringList();
    selection.ignore = m_settings.value(key(id, "ignore")).toStringList();
    selection.direction = FolderSelection::directionFromName(m_settings.value(key(id, "direction")).toString())
                              .value_or(SyncDirection::twoWay);
    return selection;
}

void FolderPreferences::setSelection(const QUuid &id, const FolderSelection &selection)
{
    const FolderSelection before = this->selection(id);
    m_settings.setValue(key(id, "skipped"), selection.skipped);
    if (selection.skipped.isEmpty())
        m_settings.remove(key(id, "skipped"));
    m_settings.setValue(key(id, "ignore"), selection.ignore);
    if (selection.ignore.isEmpty())
        m_settings.remove(key(id, "ignore"));
    if (selection.direction != before.direction)
        m_settings.remove(key(id, "oneWayTargets")); // each target's first run in the new direction is looked at
    set(key(id, "direction"), FolderSelection::directionName(selection.direction),
        FolderSelection::directionName(SyncDirection::twoWay));
}

QStringList FolderPreferences::targets(const QUuid &id, const char *name) const
{
    return m_settings.value(key(id, name)).toStringList();
}

void FolderPreferences::setTargets(const QUuid &id, const char *name, const QList<QUuid> &targetIds, bool in)
{
    QStringList targets = this->targets(id, name);
    for (const QUuid &targetId : targetIds) {
        targets.removeAll(uuidString(targetId));
        if (in)
            targets.append(uuidString(targetId));
    }
    set(key(id, name), targets, QStringList());
}

bool FolderPreferences::followsSelectionChange(const QUuid &id, const QUuid &targetId) const
{
    return targets(id, "selectionChanged").contains(uuidString(targetId));
}

void FolderPreferences::setFollowsSelectionChange(const QUuid &id, const QList<QUuid> &targetIds, bool follows)
{
    setTargets(id, "selectionChanged", targetIds, follows);
}

bool FolderPreferences::hasSyncedOneWay(const QUuid &id, const QUuid &targetId) const
{
    return targets(id, "oneWayTargets").contains(uuidString(targetId));
}

void FolderPreferences::setSyncedOneWay(const QUuid &id, const QUuid &targetId)
{
    if (!hasSyncedOneWay(id, targetId))
        setTargets(id, "oneWayTargets", {targetId}, true);
}

void FolderPreferences::set(const QString &key, const QVariant &value, const QVariant &byDefault)
{
    // The file keeps only what differs from the default.
    if (value == byDefault)
        m_settings.remove(key);
    else
        m_settings.setValue(key, value);
    write();
}

void FolderPreferences::write()
{
    makePrivateDirectory(QFileInfo(m_settings.fileName()).absolutePath());
    m_settings.sync();
    QFile::setPermissions(m_settings.fileName(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    // QSettings keeps the values and writes them with the next change.
    if (m_settings.status() != QSettings::NoError)
        qCCritical(lcSyncManager, "Could not save %s; tried again with the next change",
                   qUtf8Printable(m_settings.fileName()));
}

void FolderPreferences::remove(const QUuid &id)
{
    m_paused.remove(id);
    if (!m_settings.childGroups().contains(uuidString(id)))
        return;
    m_settings.remove(uuidString(id));
    write();
}
