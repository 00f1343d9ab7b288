#pragma once

#include "model/ConflictResolution.h"
#include "model/SyncFilterOptions.h"
#include "sync/FolderPreferences.h"

#include <QObject>
#include <QStringList>
#include <QUuid>
#include <QtQml/qqmlregistration.h>

class SyncManager;
struct SyncFolder;

// The editor's "Sync Options" and "Safety & Control" cards: the exclusions,
// the conflict policy, and the folder's own settings (paused, keeping removed
// files and for how long).
class FolderOptions : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder editor")
    Q_PROPERTY(int conflictResolution READ conflictResolutionIndex WRITE setConflictResolution NOTIFY changed)
    Q_PROPERTY(bool excludeGit READ excludeGit WRITE setExcludeGit NOTIFY changed)
    Q_PROPERTY(bool excludeHidden READ excludeHidden WRITE setExcludeHidden NOTIFY changed)
    Q_PROPERTY(bool excludeNodeModules READ excludeNodeModules WRITE setExcludeNodeModules NOTIFY changed)
    // The folder syncs only when asked.
    Q_PROPERTY(bool paused MEMBER m_paused NOTIFY changed)
    Q_PROPERTY(bool keepRemoved MEMBER m_keepRemoved NOTIFY changed)
    // How long kept files stay, as an index into keepDaysLabels.
    Q_PROPERTY(int keepDaysIndex READ keepDaysIndex WRITE setKeepDaysIndex NOTIFY changed)
    Q_PROPERTY(QStringList keepDaysLabels READ keepDaysLabels CONSTANT)
    Q_PROPERTY(QStringList conflictLabels READ conflictLabels CONSTANT)

public:
    using QObject::QObject;

    // The folder's options, or a new folder's.
    void load(const SyncFolder *folder, const SyncManager *manager);
    // The folder's own settings, as chosen.
    void applyTo(const QUuid &id, SyncManager &manager) const;

    ConflictResolution conflictResolution() const { return m_conflictResolution; }
    int conflictResolutionIndex() const { return int(m_conflictResolution); }
    void setConflictResolution(int index);
    const SyncFilterOptions &filters() const { return m_filters; }
    bool excludeGit() const { return m_filters.excludeGit; }
    void setExcludeGit(bool on) { setFilter(&SyncFilterOptions::excludeGit, on); }
    bool excludeHidden() const { return m_filters.excludeHidden; }
    void setExcludeHidden(bool on) { setFilter(&SyncFilterOptions::excludeHidden, on); }
    bool excludeNodeModules() const { return m_filters.excludeNodeModules; }
    void setExcludeNodeModules(bool on) { setFilter(&SyncFilterOptions::excludeNodeModules, on); }
    static constexpr int kKeepDaysChoices[] = {7, 30, 90};
    int keepDaysIndex() const;
    void setKeepDaysIndex(int index);
    static QStringList keepDaysLabels();
    static QStringList conflictLabels();

signals:
    void changed();

private:
    void setFilter(bool SyncFilterOptions::*filter, bool on);

    SyncFilterOptions m_filters;
    ConflictResolution m_conflictResolution = ConflictResolution::keepBoth;
    bool m_paused = false;
    bool m_keepRemoved = false;
    int m_keepDays = FolderPreferences::kDefaultKeepDays;
};
