#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>

#include "sync/FolderCommands.h"
#include "sync/ShareLinks.h"

class InstanceChannel;
class RcloneEngine;
class SyncManager;
class SyncReview;

// The running instance's side of the command line, and its one way out.
// Answers on the instance channel:
//   status, list, remotes        what the folders and remotes are
//   sync, cancel {"folders": [id...]} or {"all": true}
//   pause, resume                automatic sync off and on (the switch)
//   quit                         the graceful quit below
//   raise, open                  "no window" here; the program with the
//                                windows answers them itself
//   addFolder, editFolder, removeFolder, removeRemote   see FolderCommands
//   remotesChanged               rclone's remotes changed (remotesChanged())
//   review {"folder": id, "apply": bool}
//                                the dry run of the recovery that the folder's
//                                failed run asks for (resync, deletions or
//                                changes): its plan, and with "apply" the run
//                                that carries it out, started
//   share {"path", "expire"?}    a share link, see ShareLinks
//   fileStatus {"paths": [...]}  each path's state, see FileStates
//   subscribe {"paths": [...]}   a stream of their changes of state, see
//                                FileStates::Subscription
class SyncService final : public QObject
{
    Q_OBJECT

public:
    // How this instance runs, as `status` reports it; `offline` reads the
    // store for a command line that found no instance.
    enum class Mode { window, headless, once, offline };

    SyncService(SyncManager &manager, RcloneEngine &engine, Mode mode, QObject *parent = nullptr);

    void serve(InstanceChannel &channel);
    // What `status` and `list` answer.
    QJsonObject statusReport() const;
    QJsonObject listReport() const;
    // SIGTERM, SIGINT and SIGHUP ask to quit (quitRequested). While a sync
    // runs, logout, shutdown and sleep wait for it; when they come anyway,
    // the runs stop gracefully first and run again on waking.
    void followSession();

    // Every rclone is asked once to stop, the event loop runs on until all
    // have exited, the folders are saved and the program ends with status 0.
    void quit();
    bool isQuitting() const { return m_isQuitting; }
    FolderCommands &folderCommands() { return m_folderCommands; }
    ShareLinks &shareLinks() { return m_shareLinks; }

Q_SIGNALS:
    // The command line asked the instance to quit; whoever owns the way out
    // (the application, or the headless service itself) takes it.
    void quitRequested();
    // The command line added, changed or removed a remote.
    void remotesChanged();

private:
    void review(const QJsonObject &request, const std::function<void(const QJsonObject &)> &reply);
    void resolve(const QJsonObject &request, const std::function<void(const QJsonObject &)> &reply);

    SyncManager &m_manager;
    RcloneEngine &m_engine;
    Mode m_mode;
    FolderCommands m_folderCommands;
    ShareLinks m_shareLinks;
    SyncReview *m_review = nullptr;
    bool m_isQuitting = false;
};
