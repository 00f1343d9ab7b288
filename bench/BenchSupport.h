#pragma once

#include "platform/LoginItemService.h"
#include "platform/MemorySettingsStore.h"

#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <algorithm>
#include <vector>

// What the benchmarks share: waiting on the event loop, medians, and
// stand-ins for the services that do not matter to what they measure.

inline void wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Writes a file; the benchmark stops when it cannot.
inline void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("cannot write %s", qPrintable(path));
    file.write(content);
}

inline double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

inline double median(std::vector<double> values)
{
    return percentile(std::move(values), 0.5);
}

// A memory figure of a process from /proc/PID/status ("VmRSS:" resident,
// "VmHWM:" its peak); KiB.
inline long statusKiB(const QString &pid, const char *field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

inline long residentKiB(const QString &pid = QStringLiteral("self"))
{
    return statusKiB(pid, "VmRSS:");
}


class NoLoginItem final : public LoginItemService
{
public:
    bool isEnabled() const override { return false; }
    std::optional<QString> registerItem() override { return std::nullopt; }
    std::optional<QString> unregisterItem() override { return std::nullopt; }
};
