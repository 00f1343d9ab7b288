#pragma once

#include "model/FolderSelection.h"
#include "model/SyncFolder.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class RcloneEngine;
class SyncManager;

// Adding, changing and removing folders and remotes for the command line,
// as the editor and the remote's pane do them. Each command takes a JSON
// request and answers with one reply: its result, or {"error": why}, with
// "usage": true when the request itself is at fault (an unknown remote, a
// local folder that is not there) and nothing was changed.
//   addFolder     {name, localPath, targets: ["remote:path"...], conflict?,
//                  excludeGit?, excludeHidden?, excludeNodeModules?}  -> {id}
//   editFolder    {folder: id, and what addFolder takes, addTargets?,
//                  removeTargets?, skip?, unskip?, ignore?, unignore?
//                  (lists), direction?}                                -> {id}
//   removeFolder  {folder: id}                                         -> {}
//   removeRemote  {name, force?}                 -> {folders: [names it left]}
class FolderCommands final : public QObject
{
    Q_OBJECT

public:
    using Reply = std::function<void(const QJsonObject &reply)>;

    FolderCommands(SyncManager &manager, RcloneEngine &engine, QObject *parent = nullptr);

    static const QStringList &commands();
    void handle(const QString &command, const QJsonObject &request, const Reply &reply);

    // The folders that sync with the remote, in their order.
    static QList<SyncFolder> dependentFolders(const QList<SyncFolder> &folders, const QString &remoteName);
    // Those of them for which it is the only target: the remote cannot go.
    static QList<SyncFolder> blockingFolders(const QList<SyncFolder> &dependent);
    // Once rclone has deleted the remote: it leaves every folder it was a
    // target of, which keep their other targets.
    static void takeOutOfFolders(SyncManager &manager, const QString &remoteName);

private:
    void changeFolder(const QJsonObject &request, const Reply &reply);
    void saveFolder(const QJsonObject &request, bool adding, const SyncFolder &folder, const FolderSelection &selection,
                    const Reply &reply);
    void removeRemote(const QJsonObject &request, const Reply &reply);

    SyncManager &m_manager;
    RcloneEngine &m_engine;
};
