#include "engine/FilterCheck.h"

#include "engine/RcloneJob.h"
#include "engine/RcloneOutput.h"

#include <QPointer>
#include <QTimer>

#include <memory>

namespace FilterCheck {

QStringList arguments(const QStringList &patterns)
{
    QStringList arguments{QStringLiteral("lsf"), QStringLiteral("--max-depth"), QStringLiteral("1")};
    for (const QString &pattern : patterns)
        arguments << QStringLiteral("--exclude") << pattern;
    return arguments << QStringLiteral(":memory:");
}

QString reasonIn(const QString &output)
{
    // "CRITICAL: Failed to initialise global options: failed to reload "filter" options: mismatched ..."
    static const QLatin1String marker("options: ");
    const QStringList lines = RcloneOutput::nonEmptyLines(RcloneOutput::stripAnsi(output));
    for (const QString &line : lines) {
        if (line.contains(QLatin1String("filter"))) {
            const qsizetype at = line.lastIndexOf(marker);
            return (at >= 0 ? line.mid(at + marker.size()) : line).trimmed();
        }
    }
    return lines.isEmpty() ? QStringLiteral("rclone refused it") : lines.last().trimmed();
}

namespace {

// One pattern after another, once rclone refused them together.
class OneByOne final : public QObject
{
public:
    OneByOne(RcloneEngine &engine, const QStringList &patterns, RcloneEngine::Done<QList<Refused>> done)
        : m_engine(engine)
        , m_patterns(patterns)
        , m_done(std::move(done))
    {
    }

    void next()
    {
        if (m_next >= m_patterns.size()) {
            m_done(m_refused);
            return deleteLater();
        }
        const QString pattern = m_patterns.at(m_next++);
        m_engine.run(arguments({pattern}), this, [this, pattern](const RcloneResult<QString> &result) {
            if (result.isCancelled() || (!result.ok() && result.error().kind != RcloneError::Kind::exitStatus)) {
                m_done(result.error());
                return deleteLater();
            }
            if (!result.ok())
                m_refused.append({pattern, reasonIn(result.error().description)});
            next();
        });
    }

private:
    RcloneEngine &m_engine;
    QStringList m_patterns;
    RcloneEngine::Done<QList<Refused>> m_done;
    qsizetype m_next = 0;
    QList<Refused> m_refused;
};

} // namespace

RcloneJob *check(RcloneEngine &engine, const QStringList &patterns, const QObject *context,
                 RcloneEngine::Done<QList<Refused>> done)
{
    auto receiver = std::make_shared<QPointer<const QObject>>(context);
    const auto deliver = [receiver, hadContext = context != nullptr, done](const RcloneResult<QList<Refused>> &result) {
        if (!hadContext || *receiver)
            done(result);
    };
    return engine.run(arguments(patterns), context, [&engine, patterns, deliver](const RcloneResult<QString> &together) {
        if (together.ok())
            return deliver(QList<Refused>());
        if (together.error().kind != RcloneError::Kind::exitStatus)
            return deliver(together.error());
        if (patterns.size() == 1)
            return deliver(QList<Refused>{{patterns.first(), reasonIn(together.error().description)}});
        (new OneByOne(engine, patterns, deliver))->next();
    });
}

} // namespace FilterCheck
