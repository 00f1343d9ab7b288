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
    // Ends the call: the running child gets SIGTERM (rclone then stops
    // gracefully and leaves no lock; SIGKILL follows if it has not ended after
    // a few seconds), nothing further is started, and the result is
    // "cancelled". No effect once the result is delivered.
    virtual void cancel() = 0;

Q_SIGNALS:
    // Each rclone child of the call, just before it is launched.
    void processStarted(QProcess *process);

protected:
    using QObject::QObject;
};
