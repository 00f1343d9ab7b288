#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QStringList>
#include <QTimer>

#include <functional>

#include <sys/types.h>

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
class RcloneProcess final : public QObject
{
public:
    // A short command's output is kept up to this size per stream; the rest
    // is read and dropped, so a runaway rclone cannot exhaust memory.
    static constexpr qsizetype kMaxCapturedBytes = 8 * 1024 * 1024;
    // An output line longer than this is cut into pieces.
    static constexpr qsizetype kMaxLineBytes = 64 * 1024;

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

    RcloneProcess(const QString &program, const QStringList &arguments, Output output, QObject *parent);
    // The program waits for its children before it ends, so a child still
    // running here is a last resort: it is asked once to stop and given the
    // time a graceful stop takes, rather than killed with its lock in place.
    ~RcloneProcess() override;

    QProcess *process() { return &m_process; }
    const QByteArray &standardOutput() const { return m_standardOutput; }
    // More was printed than is kept: the output read is not all of it.
    bool outputCut() const { return m_outputCut; }
    const QByteArray &standardError() const { return m_standardError; }

    void start();
    // One SIGTERM, never a second: rclone takes a second one as an order to
    // stop at once.
    void cancel();

private:
    static constexpr std::chrono::milliseconds kOutputPollInterval{100};
    // Read output is given back to the system in steps of this size.
    static constexpr off_t kFreeStep = 1024 * 1024;

    void finish(const Exit &exit);
    void readOutput();
    // The output is all read after the exit: the run's end.
    void finishExited();
    static constexpr std::chrono::milliseconds kReadSlice{8};
    void splitLines(QByteArrayView chunk);
    void readError() { capture(m_standardError, m_process.readAllStandardError()); }
    // False when some of it did not fit.
    static bool capture(QByteArray &buffer, const QByteArray &chunk);
    void emitLine(QByteArray line);

    QProcess m_process;
    QTimer m_killTimer;
    QTimer m_poll;
    QTimer m_more;
    bool m_exited = false;
    bool m_cancelledBeforeExit = false;
    int m_exitCode = 0;
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
