#include "engine/RcloneEngine.h"

#include "engine/LocalRoot.h"
#include "engine/ProgressParser.h"
#include "engine/RcloneJob.h"
#include "engine/SkippedCopies.h"
#include "platform/AppLogger.h"
#include "platform/InstallLayout.h"
#include "platform/PrivateFiles.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QStringDecoder>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// How often a wait for an earlier bisync looks whether it has ended.
constexpr auto kEarlierBisyncPollInterval = 500ms;
// A short command's output is kept up to this size per stream; the rest is
// read and dropped, so a runaway rclone cannot exhaust memory.
constexpr qsizetype kMaxCapturedBytes = 8 * 1024 * 1024;
// A bisync output line longer than this is cut into pieces.
constexpr qsizetype kMaxLineBytes = 64 * 1024;
// The error text of a failed bisync is built from its last lines only.
constexpr qsizetype kTailLines = 15;
// What is kept of a failed bisync's error lines besides its last lines.
constexpr qsizetype kNotableLines = 20;

const QRegularExpression &ansiExpression()
{
    static const QRegularExpression expression(QStringLiteral("\x1b\\[[0-9;]*[A-Za-z]"));
    return expression;
}

const QRegularExpression &lockExpression()
{
    static const QRegularExpression expression(QStringLiteral("prior lock file found:\\s*([^\\n\\r]+?\\.lck)"));
    return expression;
}

// UTF-8 text, or the empty text when the bytes are not valid UTF-8.
QString decodeUtf8OrEmpty(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    return decoder.hasError() ? QString() : text;
}

// ["bisync", "/home/ann/Documents", ...]. The settings given to rclone's
// configurator (passwords among them) are left out: "pass=…".
QString describeArguments(const QStringList &arguments)
{
    const bool configures = arguments.size() > 2 && arguments.first() == u"config"
        && (arguments.at(1) == u"create" || arguments.at(1) == u"update");
    QStringList quoted;
    quoted.reserve(arguments.size());
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString argument = arguments.at(i);
        if (configures && i > 2 && argument.contains(u'=') && !argument.startsWith(u'-'))
            argument = argument.first(argument.indexOf(u'=') + 1) + u'…';
        else if (configures && i > 0 && arguments.at(i - 1) == u"--result")
            argument = QStringLiteral("…");
        argument.replace(u'\\', QStringLiteral("\\\\")).replace(u'"', QStringLiteral("\\\""));
        quoted.append(u'"' + argument + u'"');
    }
    return u'[' + quoted.join(QStringLiteral(", ")) + u']';
}

QStringView trimBlanks(QStringView text)
{
    while (!text.isEmpty() && (text.front() == u' ' || text.front() == u'\t'))
        text = text.sliced(1);
    while (!text.isEmpty() && (text.back() == u' ' || text.back() == u'\t'))
        text.chop(1);
    return text;
}

// The lines of a text, split at any line break, without empty ones.
QStringList nonEmptyLines(const QString &text)
{
    static const QRegularExpression lineBreak(QStringLiteral("[\\n\\r\\x{2028}\\x{2029}\\x{85}\\v\\f]"));
    return text.split(lineBreak, Qt::SkipEmptyParts);
}

// A process that is alive and is rclone. A process id of a dead bisync may
// since have gone to another program, and a dead rclone that is not yet
// reaped (a zombie) still has its name.
bool isRunningRclone(qint64 pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno != EPERM)
        return false;
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return true;
    if (!comm.readAll().startsWith("rclone"))
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    // "pid (comm) S ...": the state follows the last parenthesis.
    const QByteArray line = stat.readAll();
    const qsizetype close = line.lastIndexOf(')');
    const char state = close >= 0 && close + 2 < line.size() ? line.at(close + 2) : '?';
    return state != 'Z' && state != 'X';
}

// The rclone that holds a lock file of our work directory, or 0 when the
// writer is gone. A path outside the work directory (the output of a hostile
// remote could have put one into rclone's message) reads as held: it is never
// touched.
qint64 lockHolderOf(const QString &lockPath)
{
    const QFileInfo lock(lockPath);
    if (!lock.isAbsolute() || lock.isSymLink())
        return -1;
    const QString workDirectory = QDir(RcloneEngine::workDirectory()).canonicalPath();
    if (!lock.exists())
        return 0;
    if (!lock.isFile() || workDirectory.isEmpty() || lock.absoluteDir().canonicalPath() != workDirectory)
        return -1;
    QFile file(lockPath);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    // {"Session": ..., "PID": "13481", ...}
    const QJsonValue pid = QJsonDocument::fromJson(file.read(64 * 1024)).object().value(QLatin1String("PID"));
    const qint64 id = pid.isString() ? pid.toString().toLongLong() : pid.toInteger();
    return isRunningRclone(id) ? id : 0;
}

// A lock is stale when it is a lock file of our work directory and the
// process that wrote it is gone. A lock of a live bisync is never touched.
bool isStaleLock(const QString &lockPath)
{
    return QFileInfo(lockPath).isFile() && lockHolderOf(lockPath) == 0;
}

// rclone reports that one side of the pair lists no files at all. A resync
// would then fill that side from the other: an unmounted drive or a folder
// the user emptied would get everything back.
bool reportsEmptySide(const QString &output)
{
    return output.contains(QLatin1String("empty current Path1 listing"), Qt::CaseInsensitive)
        || output.contains(QLatin1String("empty current Path2 listing"), Qt::CaseInsensitive);
}


// Calls back only while the caller's context object exists (always, when the
// call had none).
class Receiver
{
public:
    explicit Receiver(const QObject *context) : m_context(context), m_hadContext(context != nullptr) {}
    bool isAlive() const { return !m_hadContext || m_context; }

private:
    QPointer<const QObject> m_context;
    bool m_hadContext;
};

// One rclone child process: its launch, its output and its stop.
//
// Every child gets a process group of its own, so a Ctrl+C in the terminal
// reaches this program and not rclone: rclone takes a second interrupt as an
// order to stop at once, and the program already asks it once. A child whose
// parent dies gets SIGTERM from the kernel and stops gracefully.
//
// A bisync writes into an anonymous in-memory file rather than a pipe: when
// this program dies, a pipe would kill rclone with SIGPIPE on its next line,
// leaving its lock behind, while the file lets it finish its graceful stop.
// The file is read as it grows, and what has been read is freed.
class Child final : public QObject
{
public:
    enum class Output { separate, merged };
    struct Exit
    {
        enum class How { exited, launchFailed, cancelled };
        How how = How::exited;
        int code = 0; // exit status, or the signal that ended it
        QString launchError;
    };

    std::function<void(const QByteArray &line)> onLine; // merged output, line by line
    std::function<void(const Exit &exit)> onExit;

    Child(const QString &program, const QStringList &arguments, Output output, QObject *parent)
        : QObject(parent)
        , m_output(output)
    {
        m_process.setProgram(program);
        m_process.setArguments(arguments);
        m_process.setStandardInputFile(QProcess::nullDevice());
        if (output == Output::merged) {
            m_outputFd = ::memfd_create("rclone-output", MFD_CLOEXEC);
            if (m_outputFd >= 0)
                ::fcntl(m_outputFd, F_SETFL, O_APPEND);
            m_process.setProcessChannelMode(QProcess::ForwardedChannels);
            m_poll.setInterval(kOutputPollInterval);
            connect(&m_poll, &QTimer::timeout, this, [this] { readOutput(); });
        } else {
            // Both streams are read as they arrive, so neither pipe can fill up.
            m_process.setProcessChannelMode(QProcess::SeparateChannels);
            connect(&m_process, &QProcess::readyReadStandardOutput, this, [this] { readOutput(); });
            connect(&m_process, &QProcess::readyReadStandardError, this, [this] { readError(); });
        }
        const pid_t parentPid = ::getpid();
        const int outputFd = m_outputFd;
        m_process.setChildProcessModifier([parentPid, outputFd] {
            ::setpgid(0, 0);
            ::signal(SIGPIPE, SIG_DFL); // the program ignores it; rclone gets the usual
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (::getppid() != parentPid) // the parent died before the line above
                ::_exit(127);
            if (outputFd >= 0) {
                ::dup2(outputFd, STDOUT_FILENO);
                ::dup2(outputFd, STDERR_FILENO);
            }
        });
        connect(&m_process, &QProcess::finished, this, [this](int code, QProcess::ExitStatus) {
            m_poll.stop();
            readOutput();
            if (m_output == Output::separate)
                readError();
            if (!m_pending.isEmpty()) // a last line without a line break
                emitLine(std::exchange(m_pending, {}));
            m_killTimer.stop();
            finish({m_cancelled ? Exit::How::cancelled : Exit::How::exited, code, {}});
        });
        connect(&m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                finish({m_cancelled ? Exit::How::cancelled : Exit::How::launchFailed, 0, m_process.errorString()});
        });
        m_killTimer.setSingleShot(true);
        m_killTimer.setInterval(RcloneEngine::kGracefulStopBound);
        connect(&m_killTimer, &QTimer::timeout, this, [this] {
            qCCritical(lcEngine, "rclone did not stop within %lld s; killing it",
                       static_cast<long long>(RcloneEngine::kGracefulStopBound.count()));
            m_process.kill();
        });
    }

    // The program waits for its children before it ends, so a child still
    // running here is a last resort: it is asked once to stop and given the
    // time a graceful stop takes, rather than killed with its lock in place.
    ~Child() override
    {
        m_process.disconnect(this);
        if (m_process.state() != QProcess::NotRunning) {
            if (!m_cancelled)
                m_process.terminate();
            m_process.waitForFinished(int(std::chrono::milliseconds(RcloneEngine::kGracefulStopBound).count()));
        }
        if (m_outputFd >= 0)
            ::close(m_outputFd);
    }

    QProcess *process() { return &m_process; }
    const QByteArray &standardOutput() const { return m_standardOutput; }
    // More was printed than is kept: the output read is not all of it.
    bool outputCut() const { return m_outputCut; }
    const QByteArray &standardError() const { return m_standardError; }

    void start()
    {
        if (m_output == Output::merged && m_outputFd < 0)
            return finish({Exit::How::launchFailed, 0, QStringLiteral("No memory to buffer rclone's output")});
        m_process.start(QIODevice::ReadOnly);
        if (m_output == Output::merged)
            m_poll.start();
    }

    // One SIGTERM, never a second: rclone takes a second one as an order to
    // stop at once.
    void cancel()
    {
        if (m_finished || m_cancelled)
            return;
        m_cancelled = true;
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            m_killTimer.start();
        }
    }

private:
    static constexpr std::chrono::milliseconds kOutputPollInterval{100};
    // Read output is given back to the system in steps of this size.
    static constexpr off_t kFreeStep = 1024 * 1024;

    void finish(const Exit &exit)
    {
        if (std::exchange(m_finished, true))
            return;
        if (onExit)
            onExit(exit);
    }

    void readOutput()
    {
        if (m_output == Output::separate) {
            // Read line by line when someone listens (a listing of any
            // size), kept whole otherwise.
            if (onLine)
                splitLines(m_process.readAllStandardOutput());
            else
                m_outputCut |= !capture(m_standardOutput, m_process.readAllStandardOutput());
            return;
        }
        if (m_outputFd < 0)
            return;
        char buffer[64 * 1024];
        ssize_t length;
        while ((length = ::pread(m_outputFd, buffer, sizeof buffer, m_readOffset)) > 0) {
            m_readOffset += length;
            splitLines(QByteArrayView(buffer, length));
        }
        if (m_readOffset - m_freedOffset >= kFreeStep) {
            const off_t upTo = m_readOffset - m_readOffset % kFreeStep;
            ::fallocate(m_outputFd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, upTo);
            m_freedOffset = upTo;
        }
    }

    void splitLines(QByteArrayView chunk)
    {
        m_pending.append(chunk);
        qsizetype start = 0;
        for (qsizetype end = m_pending.indexOf('\n'); end >= 0; end = m_pending.indexOf('\n', start)) {
            emitLine(m_pending.sliced(start, end - start));
            start = end + 1;
        }
        m_pending.remove(0, start);
        while (m_pending.size() > kMaxLineBytes) {
            emitLine(m_pending.first(kMaxLineBytes));
            m_pending.remove(0, kMaxLineBytes);
        }
    }

    void readError() { capture(m_standardError, m_process.readAllStandardError()); }

    // False when some of it did not fit.
    static bool capture(QByteArray &buffer, const QByteArray &chunk)
    {
        const qsizetype room = qMax<qsizetype>(0, kMaxCapturedBytes - buffer.size());
        buffer.append(chunk.first(qMin(chunk.size(), room)));
        return chunk.size() <= room;
    }

    void emitLine(QByteArray line)
    {
        if (line.endsWith('\r'))
            line.chop(1);
        if (onLine)
            onLine(line);
    }

    QProcess m_process;
    QTimer m_killTimer;
    QTimer m_poll;
    Output m_output;
    int m_outputFd = -1;
    off_t m_readOffset = 0;
    off_t m_freedOffset = 0;
    QByteArray m_standardOutput;
    QByteArray m_standardError;
    QByteArray m_pending;
    bool m_cancelled = false;
    bool m_finished = false;
    bool m_outputCut = false;
};

// run(arguments:): one short command, its standard output as the result.
class RunJob final : public RcloneJob
{
public:
    RunJob(const QString &rclone, const QStringList &arguments, const QObject *context,
           RcloneEngine::Done<QString> done, QObject *parent, RcloneEngine::LineHandler onLine = {})
        : RcloneJob(parent)
        , m_rclone(rclone)
        , m_arguments(arguments)
        , m_receiver(context)
        , m_done(std::move(done))
        , m_onLine(std::move(onLine))
    {
        QTimer::singleShot(0, this, &RunJob::begin);
    }

    void cancel() override
    {
        m_cancelled = true;
        if (m_child)
            m_child->cancel();
    }

private:
    void begin()
    {
        if (m_cancelled)
            return deliver(RcloneError{RcloneError::Kind::cancelled, 0, QStringLiteral("cancelled")});
        qCDebug(lcEngine, "Executing rclone with arguments: %s", qUtf8Printable(describeArguments(m_arguments)));
        m_child = new Child(m_rclone, m_arguments, Child::Output::separate, this);
        m_child->onExit = [this](const Child::Exit &exit) { finished(exit); };
        if (m_onLine) {
            m_child->onLine = [this](const QByteArray &line) {
                if (!m_cancelled && m_receiver.isAlive())
                    m_onLine(line);
            };
        }
        Q_EMIT processStarted(m_child->process());
        m_child->start();
    }

    void finished(const Child::Exit &exit)
    {
        using How = Child::Exit::How;
        if (exit.how == How::cancelled || m_cancelled)
            return deliver(RcloneError{RcloneError::Kind::cancelled, 0, QStringLiteral("cancelled")});
        if (exit.how == How::launchFailed)
            return deliver(RcloneError{RcloneError::Kind::launchFailed, 0, exit.launchError});
        // Never a part of an answer as if it were all of it.
        if (exit.code == 0 && m_child->outputCut()) {
            const QString message = QStringLiteral("rclone's answer was larger than the %1 MiB read of it")
                                        .arg(kMaxCapturedBytes / (1024 * 1024));
            qCCritical(lcEngine, "%s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::badOutput, 0, message});
        }
        if (exit.code == 0) {
            qCDebug(lcEngine, "rclone execution successful");
            return deliver(decodeUtf8OrEmpty(m_child->standardOutput()));
        }
        QString message = RcloneEngine::stripAnsi(decodeUtf8OrEmpty(m_child->standardError()));
        if (message.isEmpty())
            message = RcloneEngine::stripAnsi(decodeUtf8OrEmpty(m_child->standardOutput()));
        if (message.isEmpty())
            message = QStringLiteral("rclone exited with code %1").arg(exit.code);
        qCCritical(lcEngine, "rclone exited with code %d: %s", exit.code, qUtf8Printable(message));
        deliver(RcloneError{RcloneError::Kind::exitStatus, exit.code, message});
    }

    void deliver(const RcloneResult<QString> &result)
    {
        if (m_receiver.isAlive() && m_done)
            m_done(result);
        deleteLater();
    }

    QString m_rclone;
    QStringList m_arguments;
    Receiver m_receiver;
    RcloneEngine::Done<QString> m_done;
    RcloneEngine::LineHandler m_onLine;
    Child *m_child = nullptr;
    bool m_cancelled = false;
};

// bisync: remote mkdir, then the sync itself, then at most one retry.
class BisyncJob final : public RcloneJob
{
public:
    BisyncJob(RcloneEngine *engine, const BisyncRequest &request, const QObject *context,
              RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done)
        : RcloneJob(engine)
        , m_engine(engine)
        , m_request(request)
        , m_receiver(context)
        , m_onProgress(std::move(onProgress))
        , m_done(std::move(done))
    {
        QTimer::singleShot(0, this, [this] { attempt(m_request.isInitialSync, false); });
    }

    void cancel() override
    {
        m_cancelled = true;
        if (m_command)
            m_command->cancel();
        if (m_child)
            m_child->cancel();
    }

private:
    void attempt(bool isInitialSync, bool isRetry)
    {
        if (m_cancelled)
            return deliverCancelled();
        // The folder left its place during this pair's last run: what that
        // run noted of it cannot be trusted, and only a resync reads both
        // sides afresh (never deleting on either).
        if (!isInitialSync && !isDryRun() && QFile::exists(resyncMark())) {
            qCWarning(lcEngine, "The local folder left its place during the last sync of %s: resyncing",
                      qUtf8Printable(m_request.remoteSpec));
            isInitialSync = true;
        }
        m_isInitialSync = isInitialSync;
        m_isRetry = isRetry;
        qCInfo(lcEngine, "Starting bisync. Local: %s, Remote: %s, Initial: %s, Retry: %s",
               qUtf8Printable(m_request.localPath), qUtf8Printable(m_request.remoteSpec),
               AppLogger::boolText(isInitialSync), AppLogger::boolText(isRetry));
        // bisync would create a missing local folder and fill it from the
        // remote: an unplugged drive would fill the system disk, a folder the
        // user removed would come back.
        if (!QFileInfo(m_request.localPath).isDir()) {
            const QString message = QStringLiteral("Local folder not found: ") + m_request.localPath;
            qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        if (const QString mountPoint = RcloneEngine::mountPointOf(m_request.localPath);
            !m_request.localMountPoint.isEmpty() && mountPoint != m_request.localMountPoint) {
            const QString message = QStringLiteral("Local folder not mounted: %1 (its drive was at %2)")
                                        .arg(m_request.localPath, m_request.localMountPoint);
            qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        // The folder as it is now, told apart from whatever may take its path
        // before rclone ends.
        delete m_root;
        m_root = new LocalRoot(m_request.localPath, this);
        connect(m_root, &LocalRoot::gone, this, [this] {
            if (m_child)
                m_child->cancel(); // stops gracefully: what is in flight may still land
        });
        // A bisync of this pair left running by an earlier run of the
        // program holds the pair's lock until it has stopped.
        if (const qint64 pid = m_engine->earlierBisync(m_request.localPath, m_request.remoteSpec))
            return waitFor(pid);
        // A resync of a pair that synced before is made only while both
        // sides hold something: after a crash lost its history, an unmounted
        // drive or a wiped remote must not be filled from the other side.
        if (isInitialSync && m_request.hasSyncedBefore && !isDryRun())
            return checkSidesBeforeResync();
        prepare();
    }

    void checkSidesBeforeResync()
    {
        if (RcloneEngine::isEmptyDirectory(m_request.localPath))
            return withholdResync(1, m_request.localPath);
        m_command = m_engine->run(
            {QStringLiteral("lsf"), QStringLiteral("--max-depth"), QStringLiteral("1"), m_request.remoteSpec}, this,
            [this](const RcloneResult<QString> &listed) {
                m_command = nullptr;
                if (m_cancelled || listed.isCancelled())
                    return deliverCancelled();
                // rclone's "directory not found"
                if (!listed.ok() && listed.error().kind == RcloneError::Kind::exitStatus && listed.error().code == 3)
                    return withholdResync(2, m_request.remoteSpec);
                if (!listed.ok())
                    return deliver(listed.error());
                // What the folder's runs kept there is not the folder's.
                QStringList entries = nonEmptyLines(listed.value());
                entries.removeAll(QStringLiteral(".nimbrell-removed/"));
                if (entries.isEmpty())
                    return withholdResync(2, m_request.remoteSpec);
                prepare();
            });
    }

    void withholdResync(int side, const QString &location)
    {
        const QString message = QStringLiteral("Resync withheld: empty current Path%1 listing (%2). A resync would "
                                               "fill it from the other side.")
                                    .arg(side)
                                    .arg(location);
        qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
        deliver(RcloneError{RcloneError::Kind::resyncWithheld, 0, message});
    }

    void prepare()
    {
        makePrivateDirectory(RcloneEngine::workDirectory()); // rclone reports the failure, if any
        // A dry run changes nothing on the remote, not even by a mkdir.
        if (isDryRun())
            return launch();
        // The remote directory may already exist: the outcome is ignored.
        m_command = m_engine->run({QStringLiteral("mkdir"), m_request.remoteSpec}, this,
                                  [this](const RcloneResult<QString> &) {
                                      m_command = nullptr;
                                      launch();
                                  });
    }

    void waitFor(qint64 pid)
    {
        qCInfo(lcEngine, "Waiting for the earlier bisync %lld of %s", static_cast<long long>(pid),
               qUtf8Printable(m_request.remoteSpec));
        Q_EMIT waitingChanged(true);
        auto *poll = new QTimer(this);
        poll->setInterval(kEarlierBisyncPollInterval);
        connect(poll, &QTimer::timeout, this, [this, poll, pid] {
            if (isRunningRclone(pid) && !m_cancelled)
                return;
            poll->deleteLater();
            Q_EMIT waitingChanged(false);
            attempt(m_isInitialSync, m_isRetry);
        });
        poll->start();
    }

    void launch()
    {
        if (m_cancelled)
            return deliverCancelled();
        if (!m_root->isStillThere()) { // it left while the remote was prepared
            const QString message = QStringLiteral("Local folder not found: ") + m_request.localPath;
            qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        BisyncRequest request = m_request;
        request.isInitialSync = m_isInitialSync;
        if (m_isInitialSync && !isDryRun() && !m_request.resyncKeepArguments.isEmpty())
            request.keepArguments = m_request.resyncKeepArguments;
        m_keepArguments = request.keepArguments;
        m_copies = ChangeParser();
        // Skipped copies this attempt makes itself need no copy after it.
        m_noted.reset();
        if (!isDryRun()) {
            m_noted.emplace(m_request.localPath, m_request.remoteSpec);
            m_copies.watch(m_noted->paths());
        }
        m_tail.clear();
        m_notable.clear();
        m_child = new Child(m_engine->rclonePath(), RcloneEngine::bisyncArguments(request, RcloneEngine::workDirectory()),
                            Child::Output::merged, this);
        m_child->onLine = [this](const QByteArray &line) { readLine(QString::fromUtf8(line)); };
        m_child->onExit = [this](const Child::Exit &exit) { exited(exit); };
        Q_EMIT processStarted(m_child->process());
        m_child->start();
    }

    void readLine(const QString &line)
    {
        if (m_cancelled)
            return; // a cancelled run shows no more progress
        m_copies.addLine(line);
        m_tail.append(line);
        if (m_tail.size() > kTailLines)
            m_tail.removeFirst();
        if (m_notable.size() < kNotableLines
            && (line.contains(QLatin1String("ERROR :")) || line.contains(QLatin1String("CRITICAL:"))
                || line.contains(QLatin1String("Fatal error"))))
            m_notable.append(line.left(1024));
        Q_EMIT lineRead(line);
        for (const QStringView piece : ProgressParser::splitStatistics(line)) {
            if (const auto progress = ProgressParser::parseLine(piece); progress && m_onProgress && m_receiver.isAlive())
                m_onProgress(*progress);
        }
    }

    void exited(const Child::Exit &exit)
    {
        m_child->deleteLater();
        m_child = nullptr;
        using How = Child::Exit::How;
        // Whatever the outcome, copies the attempt skipped wait for a bisync that succeeds.
        std::optional<SkippedCopies> skipped = std::exchange(m_noted, std::nullopt);
        if (skipped && exit.how == How::launchFailed)
            skipped.reset();
        if (skipped) {
            if (const QList<ChangeParser::SkippedCopy> found = m_copies.skippedCopies(); !found.isEmpty()) {
                qCWarning(lcEngine, "rclone skipped %lld queued copies as unchanged, as %s",
                          static_cast<long long>(found.size()), qUtf8Printable(found.first().path));
                skipped->add(found);
            }
            // What the attempt copied or deleted, whether or not it ended well.
            skipped->settle(m_copies.settled());
        }
        if (!m_root->isStillThere() && exit.how != How::launchFailed)
            return leftDuringTheRun();
        if (exit.how == How::cancelled || m_cancelled)
            return deliverCancelled();
        if (exit.how == How::launchFailed)
            return deliver(RcloneError{RcloneError::Kind::launchFailed, 0, exit.launchError});
        if (exit.code == 0) {
            if (m_isInitialSync && !isDryRun())
                QFile::remove(resyncMark());
            if (skipped)
                m_skipped.emplace(std::move(*skipped));
            return copySkipped();
        }

        const QString output = RcloneEngine::stripAnsi(m_tail.join(u'\n'));
        const auto fail = [&](RcloneError::Kind kind) {
            qCCritical(lcEngine, "Bisync failed with status %d: %s", exit.code, qUtf8Printable(output));
            deliver(RcloneError{kind, exit.code, output.isEmpty() ? QStringLiteral("Unknown Error") : output,
                                RcloneEngine::stripAnsi(m_notable.join(u'\n'))});
        };
        // Whichever attempt it is, a demanded resync that would fill an empty
        // side is left to the user, and said so: a plain failure that asks
        // for --resync would make the next run one.
        const bool demandsResync = output.contains(QLatin1String("Must run --resync to recover")) && !isDryRun();
        const bool wouldFillEmptySide = reportsEmptySide(output) || RcloneEngine::isEmptyDirectory(m_request.localPath);
        if (demandsResync && wouldFillEmptySide) {
            qCCritical(lcEngine, "Bisync requires --resync, which would fill an empty side; not retrying");
            return fail(RcloneError::Kind::resyncWithheld);
        }
        if (m_isRetry)
            return fail(RcloneError::Kind::exitStatus);
        if (output.contains(QLatin1String("prior lock file found:"))) {
            const QString lockPath = RcloneEngine::lockFileIn(output);
            // A lock of a live bisync ends the attempt: no resync is made against it.
            if (lockPath.isEmpty() || !isStaleLock(lockPath))
                return fail(RcloneError::Kind::exitStatus);
            qCCritical(lcEngine, "Found bisync lock file at %s. Deleting and retrying...", qUtf8Printable(lockPath));
            QFile::remove(lockPath);
            return attempt(m_isInitialSync, true);
        }
        // A dry run shows what its own arguments would do, never a resync instead.
        if (demandsResync) {
            qCCritical(lcEngine, "Bisync requires --resync. Retrying with isInitialSync=true...");
            return attempt(true, true);
        }
        fail(RcloneError::Kind::exitStatus);
    }

    bool isDryRun() const { return m_request.extraArguments.contains(QStringLiteral("--dry-run")); }
    QString resyncMark() const { return RcloneEngine::pairFile(QStringLiteral("resync"), m_request.localPath, m_request.remoteSpec); }

    // The folder was renamed, removed or unmounted while rclone ran. What
    // rclone downloaded since went by path into a new folder (or the bare
    // mount point): that goes again, and the pair's next run is a resync.
    void leftDuringTheRun()
    {
        QStringList downloaded;
        for (const ChangeParser::Change &change : m_copies.changes()) {
            if (!change.toRemote && change.action != ChangeParser::Action::deleted)
                downloaded.append(change.path);
        }
        m_root->clearStandIn(downloaded);
        if (!isDryRun())
            QFile(resyncMark()).open(QIODevice::WriteOnly);
        const QString message = QStringLiteral("Local folder left its place during the sync: ") + m_request.localPath;
        qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
        deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
    }

    // Both sides now agree but on what rclone's copy skipped as unchanged
    // (see SkippedCopies): each side's list is copied, comparing nothing.
    void copySkipped()
    {
        const QStringList command = m_skipped ? m_skipped->nextCommand(m_keepArguments) : QStringList();
        if (command.isEmpty())
            return deliver(std::monostate());
        // A copy here never makes the folder: it was there a moment ago.
        if (command.at(2) == m_request.localPath && !QFileInfo(m_request.localPath).isDir()) {
            const QString message = QStringLiteral("Local folder not found: ") + m_request.localPath;
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        qCInfo(lcEngine, "Copying again what bisync skipped as unchanged: %s to %s", qUtf8Printable(command.at(1)),
               qUtf8Printable(command.at(2)));
        m_command = m_engine->run(command, this, [this](const RcloneResult<QString> &copied) {
            m_command = nullptr;
            if (m_cancelled || copied.isCancelled())
                return deliverCancelled();
            if (!copied.ok())
                return deliver(copied.error());
            m_skipped->madeNext();
            copySkipped();
        });
    }

    void deliverCancelled() { deliver(RcloneError{RcloneError::Kind::cancelled, 0, QStringLiteral("cancelled")}); }

    void deliver(const RcloneStatus &result)
    {
        if (std::exchange(m_delivered, true))
            return;
        if (m_receiver.isAlive() && m_done)
            m_done(result);
        deleteLater();
    }

    RcloneEngine *m_engine;
    BisyncRequest m_request;
    Receiver m_receiver;
    RcloneEngine::ProgressHandler m_onProgress;
    RcloneEngine::Done<std::monostate> m_done;
    QPointer<RcloneJob> m_command; // the listing or mkdir before the bisync, or a copy after it
    ChangeParser m_copies;         // of the attempt: what it queued and copied
    QStringList m_keepArguments;   // of the attempt
    std::optional<SkippedCopies> m_noted;   // the lists as the attempt began (none for a dry run)
    std::optional<SkippedCopies> m_skipped;
    LocalRoot *m_root = nullptr;   // the folder the attempt began with
    Child *m_child = nullptr;
    QStringList m_tail;
    QStringList m_notable; // the first error lines of the attempt
    bool m_isInitialSync = false;
    bool m_isRetry = false;
    bool m_cancelled = false;
    bool m_delivered = false;
};

// Runs a command and turns its output into the call's value.
template <typename T, typename Parse>
RcloneJob *runAndParse(RcloneEngine *engine, const QStringList &arguments, const QObject *context,
                       RcloneEngine::Done<T> done, Parse parse)
{
    return engine->run(arguments, context, [done = std::move(done), parse](const RcloneResult<QString> &result) {
        if (!done)
            return;
        if (!result.ok())
            return done(result.error());
        done(parse(result.value()));
    });
}

} // namespace

RcloneEngine::RcloneEngine(QObject *parent)
    : RcloneEngine(InstallLayout::bundledRclonePath(), parent)
{
    if (!QFileInfo::exists(m_rclonePath))
        qFatal("Failed to find rclone binary in bundle");
}

RcloneEngine::RcloneEngine(const QString &rclonePath, QObject *parent)
    : QObject(parent)
    , m_rclonePath(rclonePath)
{
    // Bisyncs of our work directory that run already: children of an earlier
    // run of the program that died, still stopping or finishing.
    const QString workDirectory = RcloneEngine::workDirectory();
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (!isPid || pid == QCoreApplication::applicationPid() || !isRunningRclone(pid))
            continue;
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> arguments = file.readAll().split('\0');
        const qsizetype workdir = arguments.indexOf("--workdir");
        if (arguments.size() > 3 && arguments.at(1) == "bisync" && workdir > 0 && workdir + 1 < arguments.size()
            && QFile::decodeName(arguments.at(workdir + 1)) == workDirectory) {
            m_earlierBisyncs.append({pid, QFile::decodeName(arguments.at(2)), QString::fromUtf8(arguments.at(3))});
        }
    }
}

template <typename Job>
Job *RcloneEngine::track(Job *job)
{
    ++m_activeJobs;
    connect(job, &QObject::destroyed, this, [this] {
        if (--m_activeJobs == 0)
            Q_EMIT allJobsFinished();
    });
    return job;
}

RcloneJob *RcloneEngine::run(const QStringList &arguments, const QObject *context, Done<QString> done)
{
    return track(new RunJob(m_rclonePath, arguments, context, std::move(done), this));
}

RcloneJob *RcloneEngine::runLines(const QStringList &arguments, const QObject *context, LineHandler onLine,
                                  Done<QString> done)
{
    return track(new RunJob(m_rclonePath, arguments, context, std::move(done), this, std::move(onLine)));
}

RcloneJob *RcloneEngine::bisync(const BisyncRequest &request, const QObject *context, ProgressHandler onProgress,
                                Done<std::monostate> done)
{
    return track(new BisyncJob(this, request, context, std::move(onProgress), std::move(done)));
}

void RcloneEngine::cancelAll()
{
    for (RcloneJob *job : findChildren<RcloneJob *>(Qt::FindDirectChildrenOnly))
        job->cancel();
}

qint64 RcloneEngine::earlierBisync(const QString &localPath, const QString &remoteSpec) const
{
    for (const EarlierBisync &earlier : m_earlierBisyncs) {
        if (earlier.localPath == localPath && earlier.remoteSpec == remoteSpec && isRunningRclone(earlier.pid))
            return earlier.pid;
    }
    return 0;
}

RcloneJob *RcloneEngine::listRemotes(const QObject *context, Done<QList<CloudRemote>> done)
{
    return runAndParse(this, {QStringLiteral("listremotes"), QStringLiteral("--long")}, context, std::move(done),
                       [](const QString &output) { return RcloneResult<QList<CloudRemote>>(parseRemoteList(output)); });
}

RcloneJob *RcloneEngine::createRemote(const QString &name, const QString &type, const QObject *context,
                                      Done<std::monostate> done)
{
    return runAndParse(this,
                       {QStringLiteral("config"), QStringLiteral("create"), name, type,
                        QStringLiteral("--non-interactive")},
                       context, std::move(done), [](const QString &) { return RcloneStatus(std::monostate()); });
}

RcloneJob *RcloneEngine::reconnectRemote(const QString &name, const QObject *context, Done<std::monostate> done)
{
    return runAndParse(this,
                       {QStringLiteral("config"), QStringLiteral("reconnect"), name + u':',
                        QStringLiteral("--auto-confirm")},
                       context, std::move(done), [](const QString &) { return RcloneStatus(std::monostate()); });
}

RcloneJob *RcloneEngine::getSpaceInfo(const QString &name, const QObject *context, Done<RemoteSpaceInfo> done)
{
    return runAndParse(this, {QStringLiteral("about"), name + u':', QStringLiteral("--json")}, context,
                       std::move(done), &RcloneEngine::parseSpaceInfo);
}

RcloneJob *RcloneEngine::getVersion(const QObject *context, Done<QString> done)
{
    return runAndParse(this, {QStringLiteral("version")}, context, std::move(done),
                       [](const QString &output) { return RcloneResult<QString>(parseVersion(output)); });
}

QString RcloneEngine::lockFileIn(const QString &output)
{
    const QRegularExpressionMatch match = lockExpression().match(output);
    return match.hasMatch() ? trimBlanks(match.capturedView(1)).toString() : QString();
}

bool RcloneEngine::isEmptyDirectory(const QString &path)
{
    return QFileInfo(path).isDir()
        && QDir(path).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

qint64 RcloneEngine::lockHolder(const QString &lockPath)
{
    return lockHolderOf(lockPath);
}

QString RcloneEngine::workDirectory()
{
    return QDir::home().absoluteFilePath(QStringLiteral(".config/rclone/bisync_workdir"));
}

QString RcloneEngine::pairFile(const QString &what, const QString &localPath, const QString &remoteSpec)
{
    const QByteArray pair = QFile::encodeName(localPath) + '\0' + remoteSpec.toUtf8();
    return workDirectory() + QStringLiteral("/nimbrell-") + what + u'-'
        + QString::fromLatin1(QCryptographicHash::hash(pair, QCryptographicHash::Sha1).toHex().left(20));
}

QString RcloneEngine::mountPointOf(const QString &path)
{
    if (!QFileInfo(path).isDir())
        return {};
    const QStorageInfo volume(path);
    return volume.isValid() ? volume.rootPath() : QString();
}

QStringList RcloneEngine::bisyncArguments(const BisyncRequest &request, const QString &workDirectory)
{
    QStringList arguments{QStringLiteral("bisync"),   request.localPath,
                          request.remoteSpec,         QStringLiteral("--workdir"),
                          workDirectory,              QStringLiteral("--create-empty-src-dirs"),
                          QStringLiteral("-v"),       QStringLiteral("-P")};
    if (request.isInitialSync)
        arguments << QStringLiteral("--resync");
    if (request.filters) {
        const QString exclude = QStringLiteral("--exclude");
        if (request.filters->excludeGit)
            arguments << exclude << QStringLiteral(".git/**");
        if (request.filters->excludeHidden)
            arguments << exclude << QStringLiteral(".*/**") << exclude << QStringLiteral("**/.*");
        if (request.filters->excludeNodeModules)
            arguments << exclude << QStringLiteral("node_modules/**");
    }
    // "local" and "remote" are what this program has always passed for these
    // two policies; they stay as they are.
    QString resolve, loser;
    switch (request.conflictResolution) {
    case ConflictResolution::keepBoth:
        resolve = QStringLiteral("newer"), loser = QStringLiteral("num");
        break;
    case ConflictResolution::newerWins:
        resolve = QStringLiteral("newer"), loser = QStringLiteral("delete");
        break;
    case ConflictResolution::localWins:
        resolve = QStringLiteral("local"), loser = QStringLiteral("delete");
        break;
    case ConflictResolution::remoteWins:
        resolve = QStringLiteral("remote"), loser = QStringLiteral("delete");
        break;
    }
    arguments << QStringLiteral("--conflict-resolve") << resolve << QStringLiteral("--conflict-loser") << loser;
    if (!request.bandwidthLimit.isEmpty())
        arguments << QStringLiteral("--bwlimit") << request.bandwidthLimit;
    return arguments + request.keepArguments + request.extraArguments;
}

QString RcloneEngine::stripAnsi(QString text)
{
    return text.remove(ansiExpression());
}

QList<CloudRemote> RcloneEngine::parseRemoteList(const QString &output)
{
    // "work docs:   alias  Team docs": the name, then the type, then (in newer
    // rclone) a description.
    QList<CloudRemote> remotes;
    for (const QString &line : nonEmptyLines(output)) {
        const QList<QStringView> parts = QStringView(line).split(u':', Qt::SkipEmptyParts);
        if (parts.size() < 2)
            continue;
        const QStringView name = trimBlanks(parts[0]);
        QStringView type = trimBlanks(parts[1]);
        for (qsizetype i = 0; i < type.size(); ++i) {
            if (type[i] == u' ' || type[i] == u'\t') {
                type.truncate(i);
                break;
            }
        }
        if (!name.isEmpty() && !type.isEmpty())
            remotes.append(CloudRemote{name.toString(), type.toString()});
    }
    return remotes;
}

RcloneResult<RemoteSpaceInfo> RcloneEngine::parseSpaceInfo(const QString &output)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return RcloneError{RcloneError::Kind::badOutput, 0, error.errorString()};
    if (!document.isObject())
        return RcloneError{RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's storage figures are not a JSON object")};
    const QJsonObject object = document.object();
    const auto integer = [&object](const char *key) -> std::optional<qint64> {
        const QJsonValue value = object.value(QLatin1String(key));
        // toInteger() takes integral numbers only; 0 is its fallback.
        const qint64 number = value.toInteger(0);
        if (!value.isDouble() || (number == 0 && value.toDouble() != 0.0))
            return std::nullopt;
        return number;
    };
    return RemoteSpaceInfo{integer("total"), integer("used"), integer("free"), integer("trashed")};
}

QString RcloneEngine::parseVersion(const QString &output)
{
    const QStringList lines = nonEmptyLines(output);
    return lines.isEmpty() ? QStringLiteral("rclone Unknown") : lines.front();
}
