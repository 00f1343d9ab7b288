#include "platform/InstanceChannel.h"

#include "platform/AppLogger.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QPointer>
#include <QThread>

#include <cerrno>
#include <csignal>

namespace {

constexpr qsizetype kMaxMessageBytes = 1024 * 1024;

// The configuration an instance serves: the folder store under HOME and the
// settings under XDG_CONFIG_HOME.
QString configurationKey()
{
    const QByteArray configuration = QFile::encodeName(QDir::homePath()) + '\n'
        + QFile::encodeName(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    return QString::fromLatin1(QCryptographicHash::hash(configuration, QCryptographicHash::Sha256).toHex().left(16));
}

QJsonObject reply(const QJsonObject &fields)
{
    QJsonObject message = fields;
    message.insert(QStringLiteral("nimbrell"), InstanceChannel::kVersion);
    message.insert(QStringLiteral("ok"), !fields.contains(QStringLiteral("error")));
    return message;
}

QJsonObject error(const QString &text)
{
    return reply({{QStringLiteral("error"), text}});
}

} // namespace

InstanceChannel::InstanceChannel(QObject *parent)
    : QObject(parent)
{
}

InstanceChannel::~InstanceChannel() = default;

QString InstanceChannel::directory()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString base = !runtime.isEmpty() && QFileInfo(runtime).isDir()
        ? runtime
        : QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    return base + QStringLiteral("/nimbrell");
}

QString InstanceChannel::socketPath()
{
    return directory() + QStringLiteral("/instance-") + configurationKey();
}

bool InstanceChannel::tryLock(std::chrono::milliseconds wait)
{
    QDir().mkpath(directory());
    QFile::setPermissions(directory(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    m_lock = std::make_unique<QLockFile>(socketPath() + QStringLiteral(".lock"));
    // Held for the whole life of the instance: never stale by age, only when
    // its process is gone.
    m_lock->setStaleLockTime(0);
    // QLockFile's own wait backs off to seconds between tries; this one
    // takes the lock within a tenth of a second of its release.
    const QDeadlineTimer deadline(wait);
    while (!m_lock->tryLock(0) && m_lock->error() == QLockFile::LockFailedError && !deadline.hasExpired())
        QThread::msleep(100);
    if (m_lock->isLocked())
        return true;
    // Only another instance holding it keeps this one from running; a lock
    // that cannot be made at all (a read-only directory) does not.
    if (m_lock->error() == QLockFile::LockFailedError)
        return false;
    qCCritical(lcGeneral, "Cannot make the instance lock %s; running anyway", qUtf8Printable(m_lock->fileName()));
    return true;
}

InstanceChannel::Claim InstanceChannel::claim(const std::function<void(const QString &)> &say)
{
    using namespace std::chrono_literals;
    if (tryLock())
        return Claim::acquired;
    const std::optional<QJsonObject> reply = send(QStringLiteral("raise"), {}, 3s);
    if (reply && reply->value(QStringLiteral("ok")).toBool())
        return Claim::handedOver;
    const QString error = reply ? reply->value(QStringLiteral("error")).toString() : QString();
    if (error == u"no window") {
        say(QStringLiteral("Nimbrell runs here as a service without a window (nimbrell --headless).\n"
                           "`nimbrell status` shows its folders; stop the service "
                           "(systemctl --user stop nimbrell) to use the window."));
        return Claim::handedOver;
    }
    // One that is quitting finishes its syncs first (within rclone's graceful
    // stop); a one-off sync runs as long as its syncs take.
    if (error == u"quitting" && tryLock(kTakeOverWait))
        return Claim::acquired;
    if (error == u"busy") {
        say(QStringLiteral("waiting for `nimbrell sync --wait` to finish"));
        while (!tryLock(24h)) {
        }
        return Claim::acquired;
    }
    say(QStringLiteral("another instance is running but does not answer"));
    return Claim::failed;
}

bool InstanceChannel::listen()
{
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(socketPath()); // we hold the lock: any socket there is stale
    if (!m_server->listen(socketPath())) {
        qCCritical(lcGeneral, "Cannot listen on %s: %s", qUtf8Printable(socketPath()),
                   qUtf8Printable(m_server->errorString()));
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server->nextPendingConnection())
            serve(socket);
    });
    return true;
}

void InstanceChannel::setHandler(const QString &command, Handler handler)
{
    m_handlers.insert(command, [handler = std::move(handler)](const QJsonObject &request, const Reply &reply) {
        reply(handler(request));
    });
}

void InstanceChannel::setHandler(const QString &command, AsyncHandler handler)
{
    m_handlers.insert(command, std::move(handler));
}

void InstanceChannel::release()
{
    delete std::exchange(m_server, nullptr);
    if (m_lock)
        m_lock->unlock();
    m_lock.reset();
}

bool InstanceChannel::isHeld()
{
    QLockFile lock(socketPath() + QStringLiteral(".lock"));
    qint64 pid = 0;
    QString hostName;
    QString application;
    if (!lock.getLockInfo(&pid, &hostName, &application) || pid <= 0)
        return false;
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}

void InstanceChannel::serve(QLocalSocket *socket)
{
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
        if (!socket->canReadLine()) {
            if (socket->bytesAvailable() > kMaxMessageBytes)
                socket->abort();
            return;
        }
        // A reply may come after the asker has gone.
        answer(socket->readLine(kMaxMessageBytes), [socket = QPointer(socket)](const QJsonObject &message) {
            if (!socket)
                return;
            socket->write(QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n');
            socket->disconnectFromServer();
        });
    });
}

void InstanceChannel::answer(const QByteArray &line, Reply send) const
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(line, &parseError);
    if (!document.isObject())
        return send(error(QStringLiteral("not a JSON object")));
    const QJsonObject request = document.object();
    if (request.value(QStringLiteral("nimbrell")).toInt() != kVersion)
        return send(error(QStringLiteral("unsupported version %1; this is version %2")
                              .arg(request.value(QStringLiteral("nimbrell")).toVariant().toString())
                              .arg(kVersion)));
    const QString command = request.value(QStringLiteral("command")).toString();
    const auto handler = m_handlers.constFind(command);
    if (handler == m_handlers.cend())
        return send(error(QStringLiteral("unknown command \"%1\"").arg(command)));
    (*handler)(request, [send](const QJsonObject &fields) { send(reply(fields)); });
}

std::optional<QJsonObject> InstanceChannel::send(const QString &command, const QJsonObject &arguments,
                                                 std::chrono::milliseconds timeout)
{
    QJsonObject request = arguments;
    request.insert(QStringLiteral("nimbrell"), kVersion);
    request.insert(QStringLiteral("command"), command);
    const QDeadlineTimer deadline(timeout);
    // The running instance may hold the lock but still be starting up.
    for (;;) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(int(deadline.remainingTime()))) {
            socket.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
            QByteArray line;
            while (!line.endsWith('\n') && socket.waitForReadyRead(int(deadline.remainingTime())))
                line += socket.readAll();
            const QJsonDocument document = QJsonDocument::fromJson(line);
            if (document.isObject())
                return document.object();
            return std::nullopt;
        }
        if (deadline.hasExpired())
            return std::nullopt;
        QThread::msleep(20);
    }
}
