#include "platform/StallProbe.h"

#include "platform/AppLogger.h"

#include <QCoreApplication>
#include <QThread>

#include <cstdio>

void StallProbe::startIfWanted(QObject *parent)
{
    if (s_instance)
        return;
    const QByteArray wanted = qgetenv("NIMBRELL_STALL_PROBE");
#ifdef NDEBUG
    const bool on = wanted == "1";
#else
    const bool on = wanted != "0";
#endif
    if (on)
        new StallProbe(parent);
}

StallProbe::StallProbe(QObject *parent)
    : QObject(parent)
    , m_printAtExit(qgetenv("NIMBRELL_STALL_PROBE") == "1")
{
    Q_ASSERT(thread() == QCoreApplication::instance()->thread());
    s_instance = this;
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(kTickMs);
    connect(&m_timer, &QTimer::timeout, this, &StallProbe::tick);
    m_timer.start();
    m_sinceTick.start();
    if (m_printAtExit) {
        connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
            std::fprintf(stderr, "nimbrell: longest stall %lld ms (%s)\n", static_cast<long long>(m_longestMs),
                         m_longestStep.isEmpty() ? "no named step" : qUtf8Printable(m_longestStep));
        });
    }
}

StallProbe::~StallProbe()
{
    if (s_instance == this)
        s_instance = nullptr;
}

void StallProbe::reset()
{
    m_longestMs = 0;
    m_longestStep.clear();
    m_reported = 0;
    m_stepName = nullptr;
    m_stepMs = 0;
    m_sinceTick.start();
}

void StallProbe::tick()
{
    const qint64 late = m_sinceTick.restart() - kTickMs;
    if (late > m_longestMs) {
        m_longestMs = late;
        m_longestStep = m_stepName ? QString::fromLatin1(m_stepName) : QString();
    }
    if (late > kReportedStallMs) {
        ++m_reported;
        if (m_stepName)
            qCWarning(lcGeneral, "The event loop stalled for %lld ms; the longest step in it: %s (%lld ms)",
                      static_cast<long long>(late), m_stepName, static_cast<long long>(m_stepMs));
        else
            qCWarning(lcGeneral, "The event loop stalled for %lld ms", static_cast<long long>(late));
    }
    m_stepName = nullptr;
    m_stepMs = 0;
}

StallProbe::Step::Step(const char *name)
    : m_name(name)
{
    if (s_instance)
        m_timer.start();
}

StallProbe::Step::~Step()
{
    StallProbe *probe = s_instance;
    if (!probe || !m_timer.isValid() || QThread::currentThread() != probe->thread())
        return;
    const qint64 ms = m_timer.elapsed();
    if (ms >= probe->m_stepMs) {
        probe->m_stepMs = ms;
        probe->m_stepName = m_name;
    }
}
