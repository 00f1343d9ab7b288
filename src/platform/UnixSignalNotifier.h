#pragma once

#include <QObject>

#include <initializer_list>

class QSocketNotifier;

// Turns Unix signals into a Qt signal on the main thread: the handler only
// writes the signal's number into a pipe that the event loop reads, the one
// thing a signal handler may safely do.
class UnixSignalNotifier final : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalNotifier(std::initializer_list<int> signalNumbers, QObject *parent = nullptr);
    ~UnixSignalNotifier() override;

Q_SIGNALS:
    void received(int signal);

private:
    QSocketNotifier *m_notifier = nullptr;
};
