#include "engine/RcloneProcess.h"

#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"

#include <QDeadlineTimer>

#include <csignal>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

RcloneProcess::RcloneProcess(const QString &program, const QStringList &arguments, Output output, QObject *parent)
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
        // What one turn left unread is read on the next, before anything else waits long.
        m_more.setSingleShot(true);
        m_more.setInterval(0);
        connect(&m_more, &QTimer::timeout, this, [this] { readOutput(); });
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
        m_killTimer.stop();
        m_exitCode = code;
        m_exited = true;
        m_cancelledBeforeExit = m_cancelled; // a cancel while the last lines are read changes nothing
        readOutput();
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

RcloneProcess::~RcloneProcess()
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

void RcloneProcess::start()
{
    if (m_output == Output::merged && m_outputFd < 0)
        return finish({Exit::How::launchFailed, 0, QStringLiteral("No memory to buffer rclone's output")});
    m_process.start(QIODevice::ReadOnly);
    if (m_output == Output::merged)
        m_poll.start();
}

void RcloneProcess::cancel()
{
    if (m_finished || m_cancelled)
        return;
    m_cancelled = true;
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        m_killTimer.start();
    }
}

void RcloneProcess::finish(const Exit &exit)
{
    if (std::exchange(m_finished, true))
        return;
    if (onExit)
        onExit(exit);
}

void RcloneProcess::readOutput()
{
    if (m_output == Output::separate) {
        // Read line by line when someone listens (a listing of any size),
        // kept whole otherwise.
        if (onLine)
            splitLines(m_process.readAllStandardOutput());
        else
            m_outputCut |= !capture(m_standardOutput, m_process.readAllStandardOutput());
        if (m_exited)
            finishExited();
        return;
    }
    if (m_outputFd < 0)
        return;
    // A slice at a time: the lines of a big run (a dry run of 200,000 changes)
    // are read and handled over several turns of the event loop.
    const QDeadlineTimer deadline(kReadSlice);
    char buffer[64 * 1024];
    ssize_t length = 0;
    while (!deadline.hasExpired() && (length = ::pread(m_outputFd, buffer, sizeof buffer, m_readOffset)) > 0) {
        m_readOffset += length;
        splitLines(QByteArrayView(buffer, length));
    }
    if (deadline.hasExpired())
        m_more.start();
    else if (m_exited)
        finishExited();
    if (m_readOffset - m_freedOffset >= kFreeStep) {
        const off_t upTo = m_readOffset - m_readOffset % kFreeStep;
        ::fallocate(m_outputFd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, upTo);
        m_freedOffset = upTo;
    }
}

void RcloneProcess::finishExited()
{
    if (m_output == Output::separate)
        readError();
    if (!m_pending.isEmpty()) // a last line without a line break
        emitLine(std::exchange(m_pending, {}));
    finish({m_cancelledBeforeExit ? Exit::How::cancelled : Exit::How::exited, m_exitCode, {}});
}

void RcloneProcess::splitLines(QByteArrayView chunk)
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

bool RcloneProcess::capture(QByteArray &buffer, const QByteArray &chunk)
{
    const qsizetype room = qMax<qsizetype>(0, kMaxCapturedBytes - buffer.size());
    buffer.append(chunk.first(qMin(chunk.size(), room)));
    return chunk.size() <= room;
}

void RcloneProcess::emitLine(QByteArray line)
{
    if (line.endsWith('\r'))
        line.chop(1);
    if (onLine)
        onLine(line);
}
