#pragma once

#include "engine/ProgressParser.h"
#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "engine/RcloneProcess.h"

#include <QPointer>

#include <utility>

// A run of one local folder and one remote location (a bisync, or a one-way
// sync): its callbacks, the progress read from rclone's statistics, and its
// one result.
class PairJob : public RcloneJob
{
public:
    void cancel() override
    {
        m_cancelled = true;
        if (m_command)
            m_command->cancel();
        if (m_child)
            m_child->cancel();
    }

protected:
    PairJob(RcloneEngine &engine, const QObject *context, RcloneEngine::ProgressHandler onProgress,
            RcloneEngine::Done<std::monostate> done)
        : RcloneJob(&engine)
        , m_engine(engine)
        , m_receiver(context)
        , m_onProgress(std::move(onProgress))
        , m_done(std::move(done))
    {
    }

    // Hands the progress in a line of rclone's output to the caller.
    void readProgress(const QString &line)
    {
        for (const QStringView piece : ProgressParser::splitStatistics(line)) {
            if (const auto progress = ProgressParser::parseLine(piece); progress && m_onProgress && m_receiver.isAlive())
                m_onProgress(*progress);
        }
    }

    void deliverCancelled() { deliver(RcloneError{RcloneError::Kind::cancelled, 0, QStringLiteral("cancelled")}); }

    // The result, once; then the job goes.
    void deliver(const RcloneStatus &result)
    {
        if (std::exchange(m_delivered, true))
            return;
        if (m_receiver.isAlive() && m_done)
            m_done(result);
        deleteLater();
    }

    RcloneEngine &m_engine;
    QPointer<RcloneJob> m_command; // a short rclone call around the sync itself
    RcloneProcess *m_child = nullptr; // the sync's own rclone
    bool m_cancelled = false;

private:
    Receiver m_receiver;
    RcloneEngine::ProgressHandler m_onProgress;
    RcloneEngine::Done<std::monostate> m_done;
    bool m_delivered = false;
};
