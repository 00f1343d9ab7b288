#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QSet>
#include <QElapsedTimer>
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
//   syncing   the folder's run under way carries its change (or is its first)
//   paused    the folder syncs only when asked
//   pending   it changed here since the folder's last run that succeeded
//             (as the folder's watcher saw it: only while automatic sync is on),
//             or the folder has never run
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

// The instance channel's "subscribe" {"paths": [...], "status"?: true,
// "roots"?: true}: the first message is the answer to "fileStatus" (with
// "status", the answer to "status" as "status"; with "roots", the sync
// folders as "roots": [{"id", "path", "name"}]); then one more {"files": [...]}
// with the paths whose state changed, each time some did, with "status" when
// a folder changed and "roots" when the folders or their directories did,
// until the client goes. The client may send {"watch": [...]} and
// {"unwatch": [...]} to follow more paths or fewer; the states of the paths
// it adds come in the next message. Changes that come together (a run's
// progress) are sent together, at most ten times a second; nothing is sent
// while nothing changes.
class Subscription final : public QObject
{
    Q_OBJECT

public:
    using Send = std::function<void(const QJsonObject &fields)>;
    using Status = std::function<QJsonObject()>;
    // Goes with `connection`. Without `status`, no "status" is sent.
    Subscription(const SyncManager &manager, const QJsonObject &request, Status status, Send send, QObject *connection);

    // A line the client sent after its request.
    void read(const QJsonObject &line);

private:
    void look();
    void lookSoon();
    QJsonArray roots() const;

    const SyncManager &m_manager;
    QStringList m_paths;
    QSet<QString> m_watched;
    QStringList m_added; // watched since the last look
    bool m_anyChanged = true; // the states of paths already sent may have changed
    Status m_status;
    bool m_wantsRoots = false;
    QJsonArray m_roots;
    Send m_send;
    bool m_foldersChanged = true;
    QHash<QString, QString> m_sent; // path -> the state last sent ("" in no folder)
    static constexpr qint64 kMinIntervalMs = 100;
    QTimer m_coalesce;
    QElapsedTimer m_lastLook;
    bool m_first = true;
};

} // namespace FileStates
