#pragma once

#include "engine/RcloneJob.h"
#include "model/CloudRemote.h"
#include "model/RemoteSpaceInfo.h"
#include "model/SyncFolder.h"
#include "ui/NimbrellApp.h"

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
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY storageChanged)
    Q_PROPERTY(QString loadError READ loadError NOTIFY storageChanged)
    Q_PROPERTY(bool hasSpaceInfo READ hasSpaceInfo NOTIFY storageChanged)
    Q_PROPERTY(QVariant total READ total NOTIFY storageChanged)
    Q_PROPERTY(QVariant used READ used NOTIFY storageChanged)
    Q_PROPERTY(QVariant free READ free NOTIFY storageChanged)
    Q_PROPERTY(QVariant trashed READ trashed NOTIFY storageChanged)
    Q_PROPERTY(QVariant usageFraction READ usageFractionValue NOTIFY storageChanged)
    Q_PROPERTY(bool usageCritical READ usageCritical NOTIFY storageChanged)
    // "120%" when a remote holds more than its quota: not capped.
    Q_PROPERTY(QString usagePercentage READ usagePercentage NOTIFY storageChanged)
    Q_PROPERTY(bool isDeleting READ isDeleting NOTIFY storageChanged)

public:
    explicit RemoteDetailController(QObject *parent = nullptr);
    // A storage query still running ends with the pane.
    ~RemoteDetailController() override;

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    const QString &remoteName() const { return m_remoteName; }
    void setRemoteName(const QString &name);

    std::optional<CloudRemote> remote() const;
    QString typeName() const;
    QString backend() const;
    QString iconName() const;

    bool isLoading() const { return m_isLoading; }
    const QString &loadError() const { return m_loadError; }
    // Figures to show: a backend that reports none (an empty answer) has none.
    bool hasSpaceInfo() const { return m_spaceInfo && *m_spaceInfo != RemoteSpaceInfo(); }
    QVariant total() const { return figure(&RemoteSpaceInfo::total); }
    QVariant used() const { return figure(&RemoteSpaceInfo::used); }
    QVariant free() const { return figure(&RemoteSpaceInfo::free); }
    QVariant trashed() const { return figure(&RemoteSpaceInfo::trashed); }
    QVariant usageFractionValue() const;
    bool usageCritical() const;
    QString usagePercentage() const;
    bool isDeleting() const { return m_isDeleting; }
    void setSpaceInfo(const std::optional<RemoteSpaceInfo> &info);

    // used / total, when there is a total of at least one byte.
    static std::optional<double> usageFraction(const RemoteSpaceInfo &info);
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
    void storageChanged();
    void confirmationRequested(const QString &message);
    void refusalShown(const QString &message);
    // The remote is gone; the remote list wants reloading.
    void deleted();

private:
    std::optional<double> currentFraction() const;
    QVariant figure(std::optional<qint64> RemoteSpaceInfo::*field) const;

    QPointer<NimbrellApp> m_app;
    QString m_remoteName;
    std::optional<RemoteSpaceInfo> m_spaceInfo;
    bool m_isLoading = false;
    bool m_isDeleting = false;
    QString m_loadError;
    QPointer<RcloneJob> m_job;
};
