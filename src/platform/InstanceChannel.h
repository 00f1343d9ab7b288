#pragma once

#include <QHash>
#include <QJsonObject>
#include <QLockFile>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QLocalServer;
class QLocalSocket;

// One running Nimbrell per user and configuration, and the local channel
// through which later starts (and the command line) talk to it.
//
// The running instance holds a lock file beside the configuration and
// listens on a local socket in $XDG_RUNTIME_DIR/nimbrell (or
// ~/.cache/nimbrell without one), whose address it writes beside the lock;
// both are named after the configuration so that each HOME has its own. A connection
// carries one request and its reply, each a single line of JSON:
//   {"nimbrell": 1, "command": "raise", ...}
//   {"nimbrell": 1, "ok": true, ...}   or   {"nimbrell": 1, "ok": false, "error": "..."}
// "nimbrell" is the version of this format; a request of another version is
// answered with an error. A stream command's connection stays open after
// its reply: more lines of the same form follow, one per event, until the
// client closes it, and the client may send more lines on it (a
// subscription's "watch").
class InstanceChannel final : public QObject
{
    Q_OBJECT

public:
    static constexpr int kVersion = 1;
    // How long a start waits for a quitting instance: rclone's graceful stop
    // bound and a little more.
    static constexpr std::chrono::seconds kTakeOverWait{130};
    using Handler = std::function<QJsonObject(const QJsonObject &request)>;
    // A command whose reply comes later (it runs rclone, say).
    using Reply = std::function<void(const QJsonObject &fields)>;
    using AsyncHandler = std::function<void(const QJsonObject &request, Reply reply)>;

    explicit InstanceChannel(QObject *parent = nullptr);
    ~InstanceChannel() override;

    // Becomes the running instance, before any application object exists:
    // false while another one holds the lock after `wait`. A lock left by an
    // instance that died is taken over.
    bool tryLock(std::chrono::milliseconds wait = std::chrono::milliseconds(0));
    // What a start of the program with windows does when it may not be the
    // only one: become the instance, or hand over to the one that runs (its
    // window comes forward) and leave. An instance that is quitting, or a
    // one-off `nimbrell sync --wait`, is waited for; `say` tells the user why.
    enum class Claim { acquired, handedOver, failed };
    Claim claim(const std::function<void(const QString &)> &say);

    // Starts answering requests (once the application object exists); a
    // socket left by an instance that died is replaced.
    bool listen();
    // What a command does: its reply's fields beside "nimbrell" and "ok"
    // (an "error" field makes "ok" false).
    void setHandler(const QString &command, Handler handler);
    void setHandler(const QString &command, AsyncHandler handler);
    // A stream command: `send` may be called again and again, while
    // `connection` exists (it goes when the client closes the connection).
    // The client may send more lines on it; each goes to what the handler
    // returns (when it returns nothing, they are read and dropped).
    using Lines = std::function<void(const QJsonObject &line)>;
    using StreamHandler = std::function<Lines(const QJsonObject &request, Reply send, QObject *connection)>;
    void setStreamHandler(const QString &command, StreamHandler handler);
    // How long a client may take to send its request.
    static constexpr std::chrono::milliseconds kRequestTimeout{10'000};
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_requestTimeout = timeout; }
    // Releases the lock and stops answering: another start may take over.
    void release();

    // Some instance of this configuration holds the lock and is alive. Takes
    // nothing, so asking never gets in the way of an instance starting.
    static bool isHeld();

    // Sends one request to the running instance and returns its reply, or
    // nothing when no instance answered in time. Blocking; it needs no
    // application object, so a second start can ask and leave quickly.
    static std::optional<QJsonObject> send(const QString &command, const QJsonObject &arguments,
                                           std::chrono::milliseconds timeout);

    // Opens a stream command ("subscribe") on the running instance and hands
    // each of its messages to `onMessage`, blocking, until it returns true
    // (true), or the instance goes or answers with an error (false).
    static bool subscribe(const QJsonObject &arguments, const std::function<bool(const QJsonObject &)> &onMessage,
                          const QString &command = QStringLiteral("subscribe"));

    // Where this instance's socket is made: $XDG_RUNTIME_DIR/nimbrell, or
    // ~/.cache/nimbrell without one.
    static QString directory();
    // The lock, and the file that says where the running instance listens:
    // beside the configuration ($XDG_CONFIG_HOME/nimbrell), which every start
    // of the same user and configuration finds.
    static QString lockDirectory();
    static QString lockPath();
    // Where the running instance listens.
    static QString socketPath();

    // What the channel does with one request line from a client: the
    // command's handler answers, or `reply` gets why not.
    void answer(const QByteArray &line, Reply reply) const;

private:
    static QString ownSocketPath();
    static QString addressPath();
    void serve(QLocalSocket *socket);

    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
    QHash<QString, AsyncHandler> m_handlers;
    QHash<QString, StreamHandler> m_streamHandlers;
    std::chrono::milliseconds m_requestTimeout = kRequestTimeout;
};
