#include "engine/OneWaySync.h"

#include "engine/LocalRoot.h"
#include "engine/PairJob.h"
#include "engine/RcloneOutput.h"
#include "platform/AppLogger.h"

#include <QPointer>
#include <QTimer>

namespace {

constexpr qsizetype kTailLines = 15;

class OneWayJob final : public PairJob
{
public:
    OneWayJob(RcloneEngine &engine, const OneWayRequest &request, const QObject *context,
              RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done)
        : PairJob(engine, context, std::move(onProgress), std::move(done))
        , m_request(request)
    {
        QTimer::singleShot(0, this, [this] { plan(); });
    }

private:
    QString destination() const { return m_request.toRemote ? m_request.remoteSpec : m_request.localPath; }
    QString source() const { return m_request.toRemote ? m_request.localPath : m_request.remoteSpec; }
    QString destinationName() const
    {
        return (m_request.toRemote ? QStringLiteral("the remote (%1)") : QStringLiteral("this computer (%1)")).arg(destination());
    }

    void plan()
    {
        if (m_cancelled)
            return deliverCancelled();
        qCInfo(lcEngine, "Starting one-way sync. Source: %s, Destination: %s", qUtf8Printable(source()),
               qUtf8Printable(destination()));
        if (const QString missing = LocalRoot::unavailable(m_request.localPath, m_request.localMountPoint); !missing.isEmpty())
            return fail(RcloneError::Kind::localFolderMissing, missing);
        m_root = new LocalRoot(m_request.localPath, this);
        connect(m_root, &LocalRoot::gone, this, [this] {
            if (m_child)
                m_child->cancel();
        });
        m_command = m_engine.runLines(
            OneWaySync::planArguments(m_request), this,
            [this](const QByteArray &line) {
                m_plan.addReportLine(line);
                Q_EMIT lineRead(QString::fromUtf8(line));
            },
            [this](const RcloneResult<QString> &result) {
                m_command = nullptr;
                planned(result);
            });
    }

    void planned(const RcloneResult<QString> &result)
    {
        if (m_cancelled || result.isCancelled())
            return deliverCancelled();
        if (!result.ok()) {
            // rclone's "directory not found": a missing source deletes nothing.
            if (result.error().kind == RcloneError::Kind::exitStatus && result.error().code == 3)
                return fail(RcloneError::Kind::resyncWithheld,
                            QStringLiteral("One-way sync withheld: the source is missing (%1). Syncing would delete "
                                           "every file on %2.")
                                .arg(source(), destinationName()));
            return deliver(result.error());
        }
        const qsizetype files = m_plan.destinationFiles();
        if (m_plan.sourceFiles() == 0 && files > 0)
            return fail(RcloneError::Kind::resyncWithheld,
                        QStringLiteral("One-way sync withheld: the source holds no files (%1). Syncing would delete "
                                       "all %2 files on %3.")
                            .arg(source())
                            .arg(files)
                            .arg(destinationName()));
        if (m_request.planOnly || m_plan.changesNothing())
            return deliver(std::monostate());
        if (!m_request.force && m_plan.deleted * 2 > files)
            return fail(RcloneError::Kind::exitStatus,
                        QStringLiteral("Safety abort: one-way sync would delete %1 of %2 files on %3.")
                            .arg(m_plan.deleted)
                            .arg(files)
                            .arg(destinationName()));
        if (!m_request.force && m_request.reviewFirst && m_plan.deleted + m_plan.replaced > 0)
            return fail(RcloneError::Kind::exitStatus,
                        QStringLiteral("Review first: the first %1 sync would delete %2 and replace %3 of %4 files "
                                       "on %5.")
                            .arg(m_request.toRemote ? QStringLiteral("upload-only") : QStringLiteral("download-only"))
                            .arg(m_plan.deleted)
                            .arg(m_plan.replaced)
                            .arg(files)
                            .arg(destinationName()));
        launch();
    }

    void launch()
    {
        if (m_cancelled)
            return deliverCancelled();
        if (!m_root->isStillThere())
            return fail(RcloneError::Kind::localFolderMissing, QStringLiteral("Local folder not found: ") + m_request.localPath);
        m_child = new RcloneProcess(m_engine.rclonePath(), OneWaySync::syncArguments(m_request, m_plan.deleted),
                                    RcloneProcess::Output::merged, this);
        m_child->onLine = [this](const QByteArray &bytes) {
            if (m_cancelled)
                return;
            const QString line = QString::fromUtf8(bytes);
            m_tail.append(line);
            if (m_tail.size() > kTailLines)
                m_tail.removeFirst();
            Q_EMIT lineRead(line);
            readProgress(line);
        };
        m_child->onExit = [this](const RcloneProcess::Exit &exit) { exited(exit); };
        Q_EMIT processStarted(m_child->process());
        m_child->start();
    }

    void exited(const RcloneProcess::Exit &exit)
    {
        m_child->deleteLater();
        m_child = nullptr;
        using How = RcloneProcess::Exit::How;
        if (exit.how == How::cancelled || m_cancelled)
            return deliverCancelled();
        if (exit.how == How::launchFailed)
            return deliver(RcloneError{RcloneError::Kind::launchFailed, 0, exit.launchError});
        if (!m_root->isStillThere())
            return fail(RcloneError::Kind::localFolderMissing,
                        QStringLiteral("Local folder left its place during the sync: ") + m_request.localPath);
        if (exit.code == 0)
            return deliver(std::monostate());
        const QString output = RcloneOutput::stripAnsi(m_tail.join(u'\n'));
        qCCritical(lcEngine, "One-way sync failed with status %d: %s", exit.code, qUtf8Printable(output));
        deliver(RcloneError{RcloneError::Kind::exitStatus, exit.code, output.isEmpty() ? QStringLiteral("Unknown Error") : output});
    }

    void fail(RcloneError::Kind kind, const QString &message)
    {
        qCCritical(lcEngine, "One-way sync failed: %s", qUtf8Printable(message));
        deliver(RcloneError{kind, 0, message});
    }

    OneWayRequest m_request;
    LocalRoot *m_root = nullptr;
    OneWayPlan m_plan;
    QStringList m_tail;
};

} // namespace

void OneWayPlan::addReportLine(QByteArrayView line)
{
    if (line.size() < 3 || line.at(1) != ' ')
        return;
    switch (line.at(0)) {
    case '=': ++same; break;
    case '+': ++added; break;
    case '*': ++replaced; break;
    case '-': ++deleted; break;
    default: break; // "!": an error, which fails the dry run
    }
}

namespace OneWaySync {

RcloneJob *start(RcloneEngine &engine, const OneWayRequest &request, const QObject *context,
                 RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done)
{
    return new OneWayJob(engine, request, context, std::move(onProgress), std::move(done));
}

namespace {
QStringList endpoints(const OneWayRequest &request)
{
    return request.toRemote ? QStringList{request.localPath, request.remoteSpec}
                            : QStringList{request.remoteSpec, request.localPath};
}
} // namespace

QStringList planArguments(const OneWayRequest &request)
{
    // One attempt: rclone's retries would print the report again.
    return QStringList{QStringLiteral("sync")} + endpoints(request)
        + QStringList{QStringLiteral("--dry-run"), QStringLiteral("--combined"), QStringLiteral("-"),
                      QStringLiteral("--retries"), QStringLiteral("1"), QStringLiteral("-q")}
        + request.filterArguments;
}

QStringList syncArguments(const OneWayRequest &request, qsizetype maxDelete)
{
    QStringList arguments = QStringList{QStringLiteral("sync")} + endpoints(request)
        + QStringList{QStringLiteral("--create-empty-src-dirs"), QStringLiteral("-v"), QStringLiteral("-P")}
        + request.filterArguments + request.backupArguments;
    if (!request.bandwidthLimit.isEmpty())
        arguments << QStringLiteral("--bwlimit") << request.bandwidthLimit;
    return arguments << QStringLiteral("--max-delete") << QString::number(maxDelete);
}

} // namespace OneWaySync
