#pragma once

#include "model/FolderSelection.h"
#include "engine/RcloneJob.h"
#include "ui/FolderTreeModel.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QUuid>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class RcloneEngine;
class SyncManager;

// What of the folder syncs, in the editor and the pane: the skipped
// directories ("Choose Folders…"), the ignore rules (checked by rclone as
// they are typed; one it refuses keeps the folder from being saved) and the
// direction.
class FolderChoices : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder editor")
    Q_PROPERTY(int direction READ directionIndex WRITE setDirection NOTIFY changed)
    Q_PROPERTY(QStringList directionLabels READ directionLabels CONSTANT)
    Q_PROPERTY(QString directionSentence READ directionSentence NOTIFY changed)
    Q_PROPERTY(QStringList skipped READ skipped NOTIFY changed)
    // "All folders sync", "3 folders not synced"
    Q_PROPERTY(QString skippedSummary READ skippedSummary NOTIFY changed)
    // One pattern a line, as typed.
    Q_PROPERTY(QString ignoreText READ ignoreText WRITE setIgnoreText NOTIFY changed)
    // [{pattern, reason}] for each pattern rclone refused.
    Q_PROPERTY(QVariantList refusedRules READ refusedRules NOTIFY checkedChanged)
    Q_PROPERTY(bool checking READ isChecking NOTIFY checkedChanged)
    // Nothing refused and nothing still being checked.
    Q_PROPERTY(bool isValid READ isValid NOTIFY checkedChanged)
    Q_PROPERTY(FolderTreeModel *tree READ tree CONSTANT)

public:
    explicit FolderChoices(QObject *parent = nullptr);
    ~FolderChoices() override;

    void setEngine(RcloneEngine *engine) { m_engine = engine; }
    // The folder's choices, or a new folder's.
    void load(const QUuid &id, const SyncManager *manager);
    void applyTo(const QUuid &id, SyncManager &manager) const;
    FolderSelection selection() const;

    int directionIndex() const { return int(m_selection.direction); }
    void setDirection(int index);
    static QStringList directionLabels();
    QString directionSentence() const;
    const QStringList &skipped() const { return m_selection.skipped; }
    QString skippedSummary() const;
    const QString &ignoreText() const { return m_ignoreText; }
    void setIgnoreText(const QString &text);
    // The typed lines, trimmed, blank ones and repeats left out.
    QStringList ignorePatterns() const;
    QVariantList refusedRules() const;
    bool isChecking() const { return m_check || m_checkTimer.isActive(); }
    bool isValid() const { return !isChecking() && m_refused.isEmpty(); }
    FolderTreeModel *tree() { return &m_tree; }

    // "Choose Folders…": the tree of the folder at `localPath` and its targets.
    Q_INVOKABLE void chooseFolders(const QString &localPath, const QVariantList &targets);
    // Done: what the tree leaves unchecked is skipped.
    Q_INVOKABLE void acceptFolders();

signals:
    void changed();
    void checkedChanged();

private:
    void check();

    RcloneEngine *m_engine = nullptr;
    FolderSelection m_selection;
    QString m_ignoreText;
    QTimer m_checkTimer;
    QPointer<RcloneJob> m_check;
    QStringList m_checked; // the patterns of the last check
    QList<std::pair<QString, QString>> m_refused;
    FolderTreeModel m_tree;
};
