#pragma once

#include "model/CloudRemote.h"
#include "model/SyncFolder.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteStorage.h"

#include <QObject>
#include <QPointer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

// One remote's pane: what is known of it, its storage figures, and its
// deletion, which is refused while a folder has it as its only target.
class RemoteDetailController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app READ app WRITE setApp NOTIFY appChanged)
    Q_PROPERTY(QString remoteName READ remoteName WRITE setRemoteName NOTIFY remoteChanged)
    Q_PROPERTY(QString typeName READ typeName NOTIFY remoteChanged)
    Q_PROPERTY(QString backend READ backend NOTIFY remoteChanged)
    Q_PROPERTY(QString iconName READ iconName NOTIFY remoteChanged)
    Q_PROPERTY(RemoteStorage *storage READ storage CONSTANT)
    Q_PROPERTY(bool isDeleting READ isDeleting NOTIFY isDeletingChanged)

public:
    explicit RemoteDetailController(QObject *parent = nullptr);

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    const QString &remoteName() const { return m_remoteName; }
    void setRemoteName(const QString &name);

    std::optional<CloudRemote> remote() const;
    QString typeName() const;
    QString backend() const;
    QString iconName() const;

    bool isDeleting() const { return m_isDeleting; }
    RemoteStorage *storage() { return &m_storage; }

    // "• A\n• B"
    static QString folderList(const QList<SyncFolder> &folders);
    static QString confirmationMessage(const QString &remoteName, const QList<SyncFolder> &dependent);
    static QString refusalMessage(const QList<SyncFolder> &blocking);

    Q_INVOKABLE void loadSpaceInfo();
    // "Delete Remote": asks for confirmation, or explains why it cannot be.
    Q_INVOKABLE void requestDelete();
    Q_INVOKABLE void confirmDelete();

Q_SIGNALS:
    void appChanged();
    void remoteChanged();
    void isDeletingChanged();
    void confirmationRequested(const QString &message);
    void refusalShown(const QString &message);
    // The remote is gone; the remote list wants reloading.
    void deleted();

private:
    QPointer<NimbrellApp> m_app;
    QString m_remoteName;
    bool m_isDeleting = false;
    RemoteStorage m_storage{this};
};
