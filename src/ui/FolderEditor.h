#pragma once

#include "model/RemoteTarget.h"
#include "ui/FolderChoices.h"
#include "ui/FolderOptions.h"

#include <QObject>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class FolderDetailController;

// The editor that creates a folder or changes one: its name, its path, its
// remote targets in sync order, and its options.
class FolderEditor : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder's pane")
    Q_PROPERTY(bool isEditing READ isEditing NOTIFY isEditingChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY changed)
    Q_PROPERTY(QString localPath READ localPath WRITE setLocalPath NOTIFY changed)
    Q_PROPERTY(QVariantList targets READ targets NOTIFY targetsChanged)
    Q_PROPERTY(FolderOptions *options READ options CONSTANT)
    Q_PROPERTY(FolderChoices *choices READ choices CONSTANT)
    Q_PROPERTY(bool canConfirm READ canConfirm NOTIFY changed)
    Q_PROPERTY(QString pathWarning READ pathWarning NOTIFY changed)

public:
    explicit FolderEditor(FolderDetailController &pane);

    bool isEditing() const { return m_isEditing; }
    const QString &name() const { return m_name; }
    void setName(const QString &name);
    const QString &localPath() const { return m_localPath; }
    void setLocalPath(const QString &path);
    QVariantList targets() const;
    const QList<RemoteTarget> &targetList() const { return m_targets; }
    FolderOptions *options() { return &m_options; }
    FolderChoices *choices() { return &m_choices; }
    // Whether "Create"/"Save" is enabled: a name, a path, at least one target
    // row, and no ignore rule that rclone refuses (or is still checking).
    bool canConfirm() const;
    // A note under the path field about a path that cannot be synced as typed.
    QString pathWarning() const;

    // From the folder (or empty for a new one).
    Q_INVOKABLE void load();
    Q_INVOKABLE void start();
    Q_INVOKABLE void cancel();
    // Creates or updates the folder.
    Q_INVOKABLE void save();

    Q_INVOKABLE void addTarget();
    Q_INVOKABLE void removeTarget(int row);
    Q_INVOKABLE void moveTarget(int row, int delta);
    // Typing in a row changes the list without rebuilding the rows.
    Q_INVOKABLE void setTargetRemote(int row, const QString &remoteName);
    Q_INVOKABLE void setTargetPath(int row, const QString &remotePath);

    // A new folder opens in the editor, an existing one in view mode.
    void reset();

signals:
    void isEditingChanged();
    void changed();
    void targetsChanged();

private:
    void setEditing(bool editing);

    FolderDetailController &m_pane;
    bool m_isEditing = false;
    QString m_name;
    QString m_localPath;
    QList<RemoteTarget> m_targets;
    FolderOptions m_options;
    FolderChoices m_choices;
};
