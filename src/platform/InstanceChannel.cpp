#include "platform/InstanceChannel.h"

#include "platform/AppLogger.h"
#include "platform/PrivateFiles.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QPointer>
#include <QSaveFile>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <limits>

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

InstanceChannel::~InstanceChannel()
{
    release();
}

QString InstanceChannel::directory()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString base = !runtime.isEmpty() && QFileInfo(runtime).isDir()
        ? runtime
        : QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    return base + QStringLiteral("/nimbrell");
}

QString InstanceChannel::lockDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/nimbrell");
}

QString InstanceChannel::lockPath()
{
    return lockDirectory() + QStringLiteral("/instance-") + configurationKey() + QStringLiteral(".lock");
}

QString InstanceChannel::socketPath()
{
    // Where the running instance listens, as it wrote it beside its lock: a
    // start without XDG_RUNTIME_DIR (cron, su, a service) finds it too.
    QFile address(addressPath());
    if (address.open(QIODevice::ReadOnly)) {
        const QString path = QFile::decodeName(address.readLine(4096).trimmed());
        if (QFileInfo(path).isAbsolute())
            return path;
    }
    return ownSocketPath();
}

QString InstanceChannel::ownSocketPath()
{
    return directory() + QStringLiteral("/instance-") + configurationKey();
}

QString InstanceChannel::addressPath()
{
    return lockDirectory() + QStringLiteral("/instance-") + configurationKey() + QStringLiteral(".socket");
}

bool InstanceChannel::tryLock(std::chrono::milliseconds wait)
{
    // Beside the configuration: every start of this user and configuration
    // finds the same lock, whatever its environment.
    makePrivateDirectory(lockDirectory());
    if (!isPrivateDirectory(lockDirectory())) {
        qCCritical(lcGeneral, "%s is not a directory of this user's alone; running without the instance lock",
                   qUtf8Printable(lockDirectory()));
        return true;
    }
    m_lock = std::make_unique<QLockFile>(lockPath());
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
    const QString path = ownSocketPath();
    // Another user's directory, or one others may write in, could hand our
    // requests to a stranger or take our socket's place.
    makePrivateDirectory(directory());
    if (!isPrivateDirectory(directory())) {
        qCCritical(lcGeneral, "Cannot listen in %s: it is not a directory of this user's alone",
                   qUtf8Printable(directory()));
        return false;
    }
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(path); // we hold the lock: any socket there is stale
    if (!m_server->listen(path)) {
        qCCritical(lcGeneral, "Cannot listen on %s: %s", qUtf8Printable(path), qUtf8Printable(m_server->errorString()));
        return false;
    }
    QSaveFile address(addressPath());
    if (!address.open(QIODevice::WriteOnly) || address.write(QFile::encodeName(path) + '\n') < 0 || !address.flush()
        || !address.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || !address.commit())
        qCCritical(lcGeneral, "Cannot write %s: starts without XDG_RUNTIME_DIR will not find this instance",
                   qUtf8Printable(addressPath()));
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

void InstanceChannel::setStreamHandler(const QString &command, StreamHandler handler)
{
    m_streamHandlers.insert(command, std::move(handler));
}

void InstanceChannel::release()
{
    if (m_server && socketPath() == m_server->fullServerName())
        QFile::remove(addressPath());
    delete std::exchange(m_server, nullptr);
    if (m_lock)
        m_lock->unlock();
    m_lock.reset();
}

bool InstanceChannel::isHeld()
{
    QLockFile lock(lockPath());
    qint64 pid = 0;
    QString hostName;
    QString application;
    if (!lock.getLockInfo(&pid, &hostName, &application) || pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    // Another user's process, or none.
    if (::kill(pid_t(pid), 0) != 0)
        return false;
    // After a crash, its process id may have gone to another program: the
    // holder must still be the program that wrote the lock (as QLockFile
    // itself judges a lock stale).
    QString program = QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
    if (program.endsWith(QLatin1String(" (deleted)"))) // replaced by an update since it started
        program.chop(10);
    return !program.isEmpty() && QFileInfo(program).fileName() == QFileInfo(application).fileName();
}

void InstanceChannel::serve(QLocalSocket *socket)
{
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    // A client that never finishes its line would hold its socket for ever.
    auto *deadline = new QTimer(socket);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, socket, [socket] {
        qCWarning(lcGeneral, "Dropping a client of the instance channel that sent no complete request");
        socket->abort();
        socket->deleteLater();
    });
    deadline->start(m_requestTimeout);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket, deadline] {
        if (!socket->canReadLine()) {
            if (socket->bytesAvailable() > kMaxMessageBytes)
                socket->abort();
            return;
        }
        deadline->stop();
        const QByteArray line = socket->readLine(kMaxMessageBytes);
        const QJsonObject request = QJsonDocument::fromJson(line).object();
        const auto stream = m_streamHandlers.constFind(request.value(QStringLiteral("command")).toString());
        if (stream != m_streamHandlers.cend() && request.value(QStringLiteral("nimbrell")).toInt() == kVersion) {
            // The connection stays: each event is one more line on it.
            disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
            const Lines lines = (*stream)(request, [socket = QPointer(socket)](const QJsonObject &fields) {
                if (socket)
                    socket->write(QJsonDocument(reply(fields)).toJson(QJsonDocument::Compact) + '\n');
            }, socket);
            const auto readLines = [socket, lines] {
                while (socket->canReadLine()) {
                    const QJsonObject line = QJsonDocument::fromJson(socket->readLine(kMaxMessageBytes)).object();
                    if (lines && !line.isEmpty())
                        lines(line);
                }
                if (socket->bytesAvailable() > kMaxMessageBytes)
                    socket->abort();
            };
            connect(socket, &QLocalSocket::readyRead, socket, readLines);
            readLines(); // what came with the request
            return;
        }
        // A reply may come after the asker has gone.
        answer(line, [socket = QPointer(socket)](const QJsonObject &message) {
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

bool InstanceChannel::subscribe(const QJsonObject &arguments, const std::function<bool(const QJsonObject &)> &onMessage,
                                const QString &command)
{
    QJsonObject request = arguments;
    request.insert(QStringLiteral("nimbrell"), kVersion);
    request.insert(QStringLiteral("command"), command);
    QLocalSocket socket;
    socket.connectToServer(socketPath());
    if (!socket.waitForConnected(int(std::chrono::milliseconds(kRequestTimeout).count())))
        return false;
    socket.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
    for (;;) {
        while (!socket.canReadLine()) {
            if (socket.state() != QLocalSocket::ConnectedState && socket.bytesAvailable() == 0)
                return false;
            socket.waitForReadyRead(-1); // until a line comes or the instance goes
        }
        const QJsonObject message = QJsonDocument::fromJson(socket.readLine()).object();
        if (!message.value(QStringLiteral("ok")).toBool())
            return false;
        if (onMessage(message))
            return true;
    }
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
