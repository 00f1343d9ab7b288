#include "engine/RcloneEngine.h"

#include "engine/Bisync.h"
#include "engine/OneWaySync.h"
#include "engine/RcloneJob.h"
#include "engine/RcloneOutput.h"
#include "engine/RcloneProcess.h"
#include "platform/AppLogger.h"
#include "platform/InstallLayout.h"

#include <QFileInfo>
#include <QTimer>

namespace {

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
        qCDebug(lcEngine, "Executing rclone with arguments: %s", qUtf8Printable(RcloneOutput::describeArguments(m_arguments)));
        m_child = new RcloneProcess(m_rclone, m_arguments, RcloneProcess::Output::separate, this);
        m_child->onExit = [this](const RcloneProcess::Exit &exit) { finished(exit); };
        if (m_onLine) {
            m_child->onLine = [this](const QByteArray &line) {
                if (!m_cancelled && m_receiver.isAlive())
                    m_onLine(line);
            };
        }
        Q_EMIT processStarted(m_child->process());
        m_child->start();
    }

    void finished(const RcloneProcess::Exit &exit)
    {
        using How = RcloneProcess::Exit::How;
        if (exit.how == How::cancelled || m_cancelled)
            return deliver(RcloneError{RcloneError::Kind::cancelled, 0, QStringLiteral("cancelled")});
        if (exit.how == How::launchFailed)
            return deliver(RcloneError{RcloneError::Kind::launchFailed, 0, exit.launchError});
        // Never a part of an answer as if it were all of it.
        if (exit.code == 0 && m_child->outputCut()) {
            const QString message = QStringLiteral("rclone's answer was larger than the %1 MiB read of it")
                                        .arg(RcloneProcess::kMaxCapturedBytes / (1024 * 1024));
            qCCritical(lcEngine, "%s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::badOutput, 0, message});
        }
        if (exit.code == 0) {
            qCDebug(lcEngine, "rclone execution successful");
            return deliver(RcloneOutput::decodeUtf8OrEmpty(m_child->standardOutput()));
        }
        QString message = RcloneOutput::stripAnsi(RcloneOutput::decodeUtf8OrEmpty(m_child->standardError()));
        if (message.isEmpty())
            message = RcloneOutput::stripAnsi(RcloneOutput::decodeUtf8OrEmpty(m_child->standardOutput()));
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
    RcloneProcess *m_child = nullptr;
    bool m_cancelled = false;
};

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
    , m_earlierBisyncs(EarlierBisyncs::scan())
{
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
    return track(Bisync::start(*this, request, context, std::move(onProgress), std::move(done)));
}

RcloneJob *RcloneEngine::oneWaySync(const OneWayRequest &request, const QObject *context, ProgressHandler onProgress,
                                    Done<std::monostate> done)
{
    return track(OneWaySync::start(*this, request, context, std::move(onProgress), std::move(done)));
}

void RcloneEngine::cancelAll()
{
    for (RcloneJob *job : findChildren<RcloneJob *>(Qt::FindDirectChildrenOnly))
        job->cancel();
}

qint64 RcloneEngine::earlierBisync(const QString &localPath, const QString &remoteSpec) const
{
    return m_earlierBisyncs.of(localPath, remoteSpec);
}
