#include "NimbrellClient.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QStandardPaths>

#include <chrono>
#include <memory>
#include <utility>

namespace {

using namespace std::chrono_literals;

const QString kCommand = QStringLiteral("command");
const QString kError = QStringLiteral("error");
const QString kFiles = QStringLiteral("files");
const QString kNimbrell = QStringLiteral("nimbrell");
const QString kOk = QStringLiteral("ok");
const QString kPath = QStringLiteral("path");
const QString kRoots = QStringLiteral("roots");
const QString kState = QStringLiteral("state");

// The instance reads lines of up to 1 MiB; a "watch" of more is split.
constexpr qint64 kMaxLineBytes = 1000 * 1000;
// The first answer to thousands of paths is a few megabytes; a line longer
// than this is not Nimbrell's.
constexpr qint64 kMaxMessageBytes = 64 * 1024 * 1024;
// A share link runs rclone, which may take a while on a slow remote.
constexpr auto kRequestTimeout = 120s;

QJsonObject failure(const QString &text)
{
    return {{kNimbrell, NimbrellClient::kVersion}, {kOk, false}, {kError, text}};
}

QByteArray line(const QJsonObject &message)
{
    return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

// A path's room in a JSON array: quoted, escaped, and a comma.
qint64 jsonSize(const QString &path)
{
    qint64 size = 3;
    for (const char c : path.toUtf8())
        size += c == '"' || c == '\\' ? 2 : static_cast<unsigned char>(c) < 0x20 ? 6 : 1;
    return size;
}

bool holds(const QString &directory, const QString &path)
{
    if (path == directory)
        return true;
    return path.startsWith(directory) && (directory.endsWith(u'/') || path.at(directory.size()) == u'/');
}

} // namespace

NimbrellClient::NimbrellClient(QObject *parent, int capacity)
    : QObject(parent)
    , m_capacity(qMax(1, capacity))
    , m_addressPath(addressPath())
{
    m_flush.setSingleShot(true);
    m_flush.setInterval(0);
    connect(&m_flush, &QTimer::timeout, this, &NimbrellClient::flush);
    connect(&m_addressWatcher, &QFileSystemWatcher::directoryChanged, this, &NimbrellClient::addressChanged);
    watchAddress();
    connectToInstance();
}

NimbrellClient::~NimbrellClient()
{
    if (m_socket)
        m_socket->disconnect(this);
}

QString NimbrellClient::addressPath()
{
    // Named after the configuration the instance serves, as it names it:
    // SHA-256 of HOME and XDG_CONFIG_HOME.
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QByteArray configuration = QFile::encodeName(QDir::homePath()) + '\n' + QFile::encodeName(config);
    const QByteArray key = QCryptographicHash::hash(configuration, QCryptographicHash::Sha256).toHex().left(16);
    return config + QStringLiteral("/nimbrell/instance-") + QString::fromLatin1(key) + QStringLiteral(".socket");
}

std::optional<NimbrellFolder> NimbrellClient::folderOf(const QString &path) const
{
    const QString clean = QDir::cleanPath(path);
    const NimbrellFolder *found = nullptr;
    for (const NimbrellFolder &folder : m_folders) {
        // A folder inside another one's directory is the nearer.
        if (holds(folder.path, clean) && (!found || folder.path.size() > found->path.size()))
            found = &folder;
    }
    return found ? std::optional(*found) : std::nullopt;
}

QString NimbrellClient::state(const QString &path)
{
    if (!QDir::isAbsolutePath(path))
        return {};
    const QString key = QDir::cleanPath(path);
    const auto known = m_entries.find(key);
    if (known != m_entries.end()) {
        m_ages.splice(m_ages.end(), m_ages, known->age);
        return known->state.value_or(QString());
    }
    while (m_entries.size() >= m_capacity)
        evictOldest();
    m_ages.push_back(key);
    Entry &entry = m_entries[key];
    entry.age = std::prev(m_ages.end());
    // Before the instance has said where its folders are, every path is
    // remembered; its first answer decides which ones to watch.
    if (m_subscribed && folderOf(key))
        watch(key, entry);
    return {};
}

void NimbrellClient::request(const QString &command, const QJsonObject &fields, Reply reply)
{
    struct Pending
    {
        Reply reply;
        QByteArray received;
        bool connected = false;
        bool done = false;
    };
    auto pending = std::make_shared<Pending>();
    pending->reply = std::move(reply);
    const QString path = socketPath();
    if (path.isEmpty()) {
        // Answered later all the same, as when the instance answers.
        QMetaObject::invokeMethod(
            this, [pending] { pending->reply(failure(QStringLiteral("Nimbrell is not running"))); }, Qt::QueuedConnection);
        return;
    }
    QJsonObject request = fields;
    request.insert(kNimbrell, kVersion);
    request.insert(kCommand, command);

    auto *socket = new QLocalSocket(this);
    const auto finish = [socket, pending](const QJsonObject &answer) {
        if (std::exchange(pending->done, true))
            return;
        socket->disconnect();
        socket->abort();
        socket->deleteLater();
        pending->reply(answer);
    };
    // A complete line is the answer; a connection that closes before one
    // came is none.
    const auto take = [socket, pending, finish] {
        pending->received += socket->readAll();
        const int end = pending->received.indexOf('\n');
        if (end < 0) {
            if (pending->received.size() > kMaxMessageBytes)
                finish(failure(QStringLiteral("Nimbrell's answer is too long")));
            return;
        }
        const QJsonDocument document = QJsonDocument::fromJson(pending->received.left(end));
        finish(document.isObject() ? document.object() : failure(QStringLiteral("Nimbrell's answer is unreadable")));
    };
    const auto gone = [socket, pending, finish, take] {
        if (socket->state() != QLocalSocket::UnconnectedState)
            return;
        take();
        finish(failure(pending->connected ? QStringLiteral("Nimbrell did not answer")
                                          : QStringLiteral("Nimbrell is not running")));
    };
    auto *deadline = new QTimer(socket);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, socket, [finish] { finish(failure(QStringLiteral("Nimbrell did not answer in time"))); });
    connect(socket, &QLocalSocket::connected, socket, [socket, pending, request] {
        pending->connected = true;
        socket->write(line(request));
    });
    connect(socket, &QLocalSocket::readyRead, socket, take);
    connect(socket, &QLocalSocket::disconnected, socket, gone);
    connect(socket, &QLocalSocket::errorOccurred, socket, gone);
    deadline->start(kRequestTimeout);
    socket->connectToServer(path);
}

void NimbrellClient::watchAddress()
{
    // The address file's directory; until Nimbrell has run here once and
    // made it, the nearest one above it.
    QString directory = QFileInfo(m_addressPath).absolutePath();
    while (!QFileInfo(directory).isDir()) {
        const QString parent = QFileInfo(directory).absolutePath();
        if (parent == directory)
            return;
        directory = parent;
    }
    const QStringList watched = m_addressWatcher.directories();
    if (watched == QStringList{directory})
        return;
    if (!watched.isEmpty())
        m_addressWatcher.removePaths(watched);
    m_addressWatcher.addPath(directory);
}

void NimbrellClient::addressChanged()
{
    watchAddress();
    if (!m_socket) {
        connectToInstance();
        return;
    }
    if (!m_subscribed) {
        // Still connecting, maybe to the instance that just went: once more
        // if this attempt fails.
        m_retry = true;
        return;
    }
    // Another instance listens elsewhere (the old one's end has not reached
    // us yet).
    const QString path = socketPath();
    if (!path.isEmpty() && path != m_socketPath) {
        m_retry = true;
        lost();
    }
}

QString NimbrellClient::socketPath() const
{
    QFile address(m_addressPath);
    if (!address.open(QIODevice::ReadOnly))
        return {};
    const QString path = QFile::decodeName(address.readLine(4096).trimmed());
    return QDir::isAbsolutePath(path) ? path : QString();
}

void NimbrellClient::connectToInstance()
{
    if (m_socket)
        return;
    const QString path = socketPath();
    if (path.isEmpty())
        return; // not running: the address file's coming brings us back
    m_socketPath = path;
    m_socket = new QLocalSocket(this);
    connect(m_socket, &QLocalSocket::connected, this, [this] {
        // The folders come first; the paths follow once it is known which of
        // them lie in one.
        m_socket->write(line({{kNimbrell, kVersion},
                              {kCommand, QStringLiteral("subscribe")},
                              {QStringLiteral("paths"), QJsonArray()},
                              {kRoots, true}}));
    });
    connect(m_socket, &QLocalSocket::readyRead, this, &NimbrellClient::readMessages);
    connect(m_socket, &QLocalSocket::disconnected, this, &NimbrellClient::lost);
    connect(m_socket, &QLocalSocket::errorOccurred, this, [this] {
        if (m_socket && m_socket->state() == QLocalSocket::UnconnectedState)
            lost();
    });
    m_socket->connectToServer(path);
}

void NimbrellClient::lost()
{
    if (!m_socket)
        return;
    m_socket->disconnect(this);
    if (m_socket->state() != QLocalSocket::UnconnectedState)
        m_socket->abort();
    m_socket->deleteLater();
    m_socket = nullptr;
    const bool wasSubscribed = std::exchange(m_subscribed, false);
    const bool refused = std::exchange(m_refused, false);
    m_flush.stop();
    m_toWatch.clear();
    m_toUnwatch.clear();
    // The paths stay remembered, for the next instance; their states go.
    QStringList cleared;
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        entry->watched = false;
        if (entry->state && !entry->state->isEmpty())
            cleared.append(entry.key());
        entry->state.reset();
    }
    const bool hadFolders = !m_folders.isEmpty();
    m_folders.clear();
    if (wasSubscribed)
        Q_EMIT connectedChanged(false);
    if (hadFolders)
        Q_EMIT foldersChanged();
    for (const QString &path : std::as_const(cleared))
        Q_EMIT stateChanged(path);
    // An instance that quits closes the connection before it takes its
    // address away, and one that restarts may have written its new address
    // already: one attempt now, and more as the address changes.
    if (std::exchange(m_retry, false) || (wasSubscribed && !refused))
        connectToInstance();
}

void NimbrellClient::readMessages()
{
    while (m_socket && m_socket->canReadLine()) {
        const QJsonDocument document = QJsonDocument::fromJson(m_socket->readLine());
        if (document.isObject())
            handle(document.object());
    }
    if (m_socket && m_socket->bytesAvailable() > kMaxMessageBytes)
        m_socket->abort();
}

void NimbrellClient::handle(const QJsonObject &message)
{
    if (!message.value(kOk).toBool()) {
        // Another version of the format, say: not again until the address
        // changes.
        qWarning("Nimbrell refused the subscription: %s", qUtf8Printable(message.value(kError).toString()));
        m_refused = true;
        m_socket->abort();
        return;
    }
    const bool first = !std::exchange(m_subscribed, true);
    if (message.contains(kRoots)) {
        QList<NimbrellFolder> folders;
        for (const QJsonValue &value : message.value(kRoots).toArray()) {
            const QJsonObject root = value.toObject();
            const QString path = root.value(kPath).toString();
            if (QDir::isAbsolutePath(path))
                folders.append({root.value(QStringLiteral("id")).toString(), QDir::cleanPath(path),
                                root.value(QStringLiteral("name")).toString()});
        }
        setFolders(folders);
    }
    for (const QJsonValue &value : message.value(kFiles).toArray()) {
        const QJsonObject file = value.toObject();
        const QJsonValue state = file.value(kState);
        // null: in no sync folder
        setState(file.value(kPath).toString(), state.isString() ? state.toString() : QString());
    }
    if (first)
        Q_EMIT connectedChanged(true);
}

void NimbrellClient::setFolders(const QList<NimbrellFolder> &folders)
{
    const bool changed = folders != m_folders;
    m_folders = folders;
    // Watched: exactly the remembered paths that lie in a folder.
    QStringList cleared;
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        const bool inside = folderOf(entry.key()).has_value();
        if (inside && !entry->watched) {
            watch(entry.key(), *entry);
        } else if (!inside && entry->watched) {
            unwatch(entry.key(), *entry);
            if (entry->state && !entry->state->isEmpty())
                cleared.append(entry.key());
            entry->state.reset();
        }
    }
    if (changed)
        Q_EMIT foldersChanged();
    for (const QString &path : std::as_const(cleared))
        Q_EMIT stateChanged(path);
}

void NimbrellClient::setState(const QString &path, const std::optional<QString> &state)
{
    const auto entry = m_entries.find(path);
    // One dropped meanwhile, or not in a folder of ours any more.
    if (entry == m_entries.end() || !entry->watched || entry->state == state)
        return;
    entry->state = state;
    Q_EMIT stateChanged(path);
}

void NimbrellClient::watch(const QString &path, Entry &entry)
{
    entry.watched = true;
    // Also when an "unwatch" of it is on its way: that one goes first, and
    // this one brings its state again.
    m_toWatch.insert(path);
    scheduleFlush();
}

void NimbrellClient::unwatch(const QString &path, Entry &entry)
{
    entry.watched = false;
    if (m_toWatch.remove(path))
        return; // the instance never heard of it
    m_toUnwatch.insert(path);
    scheduleFlush();
}

void NimbrellClient::evictOldest()
{
    const QString oldest = m_ages.front();
    const auto entry = m_entries.find(oldest);
    if (entry->watched)
        unwatch(oldest, *entry);
    m_entries.erase(entry);
    m_ages.pop_front();
}

void NimbrellClient::scheduleFlush()
{
    if (!m_flush.isActive())
        m_flush.start();
}

void NimbrellClient::flush()
{
    if (m_subscribed) {
        send(QStringLiteral("unwatch"), QStringList(m_toUnwatch.cbegin(), m_toUnwatch.cend()));
        send(QStringLiteral("watch"), QStringList(m_toWatch.cbegin(), m_toWatch.cend()));
    }
    m_toUnwatch.clear();
    m_toWatch.clear();
}

void NimbrellClient::send(const QString &key, const QStringList &paths)
{
    QJsonArray batch;
    const qint64 framing = key.size() + 8; // {"key":[]}\n
    qint64 bytes = framing;
    for (const QString &path : paths) {
        const qint64 size = jsonSize(path);
        if (!batch.isEmpty() && bytes + size > kMaxLineBytes) {
            m_socket->write(line({{key, batch}}));
            batch = QJsonArray();
            bytes = framing;
        }
        batch.append(path);
        bytes += size;
    }
    if (!batch.isEmpty())
        m_socket->write(line({{key, batch}}));
}
