#pragma once

#include "NimbrellFiles.h"

#include <QFileSystemWatcher>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <list>
#include <optional>

class QLocalSocket;

// The file states of the running Nimbrell, as a file manager shows them.
//
// The running instance (window or `nimbrell --headless`) listens on a local
// socket whose path it writes to $XDG_CONFIG_HOME/nimbrell/instance-KEY.socket.
// The client keeps one "subscribe" connection to it: the instance answers with
// its sync folders ("roots") and sends a file's state again each time it
// changes, for the paths the client watches. A path is watched from the first
// time its state is asked (and it lies in a sync folder); the paths asked
// within one turn of the event loop go out as one line (a directory of
// thousands of files is one {"watch": [...]}). The most recently asked
// `capacity` paths are kept; older ones are unwatched.
//
// When the instance goes, every state is forgotten (each path that had one is
// said to have changed, so that no emblem stays behind), and the client
// connects again when the address file changes: Nimbrell started. Nothing
// runs while nothing happens: no timers, no polling.
class NimbrellClient final : public QObject
{
    Q_OBJECT

public:
    using Reply = NimbrellFiles::Reply;
    static constexpr int kVersion = 1;
    static constexpr int kDefaultCapacity = 50'000;

    explicit NimbrellClient(QObject *parent = nullptr, int capacity = kDefaultCapacity);
    ~NimbrellClient() override;

    // The file in which the running instance of this HOME and
    // XDG_CONFIG_HOME writes where it listens.
    static QString addressPath();

    // Subscribed, and the instance's first answer has come.
    bool isConnected() const { return m_subscribed; }
    QList<NimbrellFolder> folders() const { return m_folders; }
    std::optional<NimbrellFolder> folderOf(const QString &path) const;
    bool isInFolder(const QString &path) const { return folderOf(path).has_value(); }

    // The state last told for this absolute path ("synced", "pending"...),
    // empty when it is in no sync folder or not known yet; in the second
    // case it is asked for, and stateChanged() says when it comes.
    QString state(const QString &path);

    // One command on a connection of its own ({"nimbrell": 1, "command":
    // command, ...fields}); `reply` gets the instance's answer, or
    // {"ok": false, "error": ...} when it cannot be reached or does not answer.
    void request(const QString &command, const QJsonObject &fields, Reply reply);

Q_SIGNALS:
    void stateChanged(const QString &path);
    void foldersChanged();
    void connectedChanged(bool connected);

private:
    struct Entry
    {
        std::list<QString>::iterator age;
        bool watched = false; // sent (or about to be sent) in a "watch"
        std::optional<QString> state; // empty: in no sync folder
    };

    void watchAddress();
    void addressChanged();
    QString socketPath() const;
    void connectToInstance();
    void lost();
    void readMessages();
    void handle(const QJsonObject &message);
    void setFolders(const QList<NimbrellFolder> &folders);
    void setState(const QString &path, const std::optional<QString> &state);
    void watch(const QString &path, Entry &entry);
    void unwatch(const QString &path, Entry &entry);
    void evictOldest();
    void scheduleFlush();
    void flush();
    void send(const QString &key, const QStringList &paths);

    const int m_capacity;
    const QString m_addressPath;
    QFileSystemWatcher m_addressWatcher;
    QLocalSocket *m_socket = nullptr;
    QString m_socketPath; // what m_socket connects or is connected to
    bool m_subscribed = false;
    bool m_retry = false; // the address changed while connecting
    bool m_refused = false; // the instance turned the subscription down
    QList<NimbrellFolder> m_folders;
    QHash<QString, Entry> m_entries;
    std::list<QString> m_ages; // least recently asked first
    QSet<QString> m_toWatch;
    QSet<QString> m_toUnwatch;
    QTimer m_flush;
};
