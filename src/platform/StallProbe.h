#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

// Notes how late a short repeating timer on the main thread fires: a late
// tick means the event loop was busy that long with one turn's work, and
// nothing (input, the channel, painting) was answered meanwhile. A stall
// over kReportedStall is logged with the longest named step that ran in it
// (StallProbe::Step).
//
// On in debug builds and whenever NIMBRELL_STALL_PROBE=1; never in release
// builds otherwise (it wakes the process kTick times a second), and
// NIMBRELL_STALL_PROBE=0 turns it off anywhere. With NIMBRELL_STALL_PROBE=1,
// the longest stall is also printed to standard error at exit, for the
// benchmarks.
class StallProbe final : public QObject
{
    Q_OBJECT

public:
    static constexpr int kTickMs = 10;
    static constexpr int kReportedStallMs = 50;

    // Starts the probe of this process when it should run; there is at most one.
    static void startIfWanted(QObject *parent);
    static StallProbe *instance() { return s_instance; }

    explicit StallProbe(QObject *parent = nullptr);
    ~StallProbe() override;

    // The longest stall so far, in milliseconds (lateness beyond the tick),
    // and what ran in it.
    qint64 longestStallMs() const { return m_longestMs; }
    QString longestStallStep() const { return m_longestStep; }
    int reportedStalls() const { return m_reported; }
    // Starts counting afresh (the benchmarks measure one phase at a time).
    void reset();

    // Names a piece of main-thread work that may run long; the probe quotes
    // the longest such step of a stall.
    class Step
    {
    public:
        explicit Step(const char *name);
        ~Step();
        Step(const Step &) = delete;
        Step &operator=(const Step &) = delete;

    private:
        const char *m_name;
        QElapsedTimer m_timer;
    };

private:
    void tick();

    static inline StallProbe *s_instance = nullptr;
    QTimer m_timer;
    QElapsedTimer m_sinceTick;
    qint64 m_longestMs = 0;
    QString m_longestStep;
    int m_reported = 0;
    // The longest named step since the last tick.
    const char *m_stepName = nullptr;
    qint64 m_stepMs = 0;
    bool m_printAtExit = false;
};
