#include "ui/Format.h"

using namespace std::chrono_literals;

Format::Format(QObject *parent)
    : QObject(parent)
    , m_now(QDateTime::currentDateTimeUtc())
{
    m_tick.setInterval(1s);
    connect(&m_tick, &QTimer::timeout, this, [this] {
        m_now = QDateTime::currentDateTimeUtc();
        Q_EMIT nowChanged();
    });
    m_tick.start();
}
