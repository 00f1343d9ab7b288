#pragma once

#include <QObject>

class QProcess;

// One call of the engine while it runs. It ends in exactly one result,
// delivered to the callback given with the call, and then deletes itself;
// hold it in a QPointer to cancel it.
class RcloneJob : public QObject
{
    Q_OBJECT

public:
    // Ends the call: the running child gets one SIGTERM (rclone then stops
    // gracefully and leaves no lock; SIGKILL follows only if it is still there
    // after RcloneEngine::kGracefulStopBound), nothing further is started, and
    // the result, "cancelled", comes once the child has exited (never from
    // within this call). No effect once the result is delivered.
    virtual void cancel() = 0;

Q_SIGNALS:
    // Each rclone child of the call, just before it is launched.
    void processStarted(QProcess *process);
    // The call waits (true) for an rclone of the same pair that this program
    // did not start to end first, or goes on (false).
    void waitingChanged(bool waiting);
    // A line of a bisync's merged output, as it arrives.
    void lineRead(const QString &line);

protected:
    using QObject::QObject;
};
