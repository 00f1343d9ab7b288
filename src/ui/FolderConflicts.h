#pragma once

#include "sync/ConflictCopies.h"
#include "ui/ConflictListModel.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

class FolderDetailController;

// The folder's open conflicts, and the user's choice for each.
class FolderConflicts : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder's pane")
    // The conflicts whose two copies are both still here, newest first.
    Q_PROPERTY(ConflictListModel *list READ list CONSTANT)
    Q_PROPERTY(QString error READ error NOTIFY changed)
    // A choice is being carried out (the remote's copy replaced).
    Q_PROPERTY(bool isSettling READ isSettling NOTIFY changed)

public:
    explicit FolderConflicts(FolderDetailController &pane);

    ConflictListModel *list() { return &m_list; }
    const QString &error() const { return m_error; }
    bool isSettling() const { return m_isSettling; }
    // "Keep This": copy 0 (the one that kept the name) or 1 (the renamed one)
    // stays under the original name, the other goes to the trash.
    Q_INVOKABLE void keepCopy(const QString &original, const QString &renamed, int copy);
    // "Keep Both": the renamed copy takes a readable name.
    Q_INVOKABLE void keepBoth(const QString &original, const QString &renamed);
    // Conflicts settled in a file manager meanwhile drop out; the copies'
    // sizes and times are read again.
    Q_INVOKABLE void recheck() { refresh(); }

    void reset();
    // Shows the folder's open conflicts as they are now.
    void refresh();

signals:
    void changed();

private:
    void settle(const QString &original, const QString &renamed, ConflictCopies::Choice choice);

    FolderDetailController &m_pane;
    QString m_error;
    bool m_isSettling = false;
    ConflictListModel m_list{this};
};
