#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

class SyncManager;

// What a file manager shows on a file or directory of a sync folder. A
// file's state, first that applies:
//   excluded  its folder's runs leave it out (a switch, an ignore rule, a
//             skipped directory)
//   error     the folder's last run failed
//   conflict  it is one of the two copies of an open conflict
//   syncing   the folder's run under way carries its change
//   paused    the folder syncs only when asked
//   pending   it changed here since the folder's last run that succeeded
//             (as the folder's watcher saw it: only while automatic sync is on)
//   synced
// A directory that is not excluded takes the first that applies to it or
// to anything it holds.
namespace FileStates {

enum class State { synced, pending, syncing, error, conflict, excluded, paused };
QString name(State state);

struct Answer
{
    QString path;
    std::optional<State> state; // none: in no sync folder
    QUuid folderId;
};

// The states of these absolute paths, in their order.
QList<Answer> of(const SyncManager &manager, const QStringList &paths);

// The instance channel's "fileStatus" {"paths": [...]} and its answer
// {"files": [{"path", "state" (null when in no folder), "folder" (id or null)}]}.
QJsonObject answer(const SyncManager &manager, const QJsonObject &request);

// The instance channel's "subscribe" {"paths": [...], "status"?: true}: the
// first message is the answer to "fileStatus" (and with "status", the
// answer to "status" as "status"); then one more {"files": [...]} with the
// paths whose state changed, each time some did, with "status" when a
// folder changed, until the client goes. Changes that come together (a
// run's progress) are sent together, at most ten times a second; nothing is
// sent while nothing changes.
class Subscription final : public QObject
{
    Q_OBJECT

public:
    using Send = std::function<void(const QJsonObject &fields)>;
    using Status = std::function<QJsonObject()>;
    // Goes with `connection`. Without `status`, no "status" is sent.
    Subscription(const SyncManager &manager, const QStringList &paths, Status status, Send send, QObject *connection);

private:
    void look();

    const SyncManager &m_manager;
    QStringList m_paths;
    Status m_status;
    Send m_send;
    bool m_foldersChanged = true;
    QHash<QString, QString> m_sent; // path -> the state last sent ("" in no folder)
    QTimer m_coalesce;
    bool m_first = true;
};

} // namespace FileStates
