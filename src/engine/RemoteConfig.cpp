#include "engine/RemoteConfig.h"

#include "engine/RcloneJob.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

namespace {

const QString kConfig = QStringLiteral("config");
const QString kNonInteractive = QStringLiteral("--non-interactive");
// rclone takes a long password of base64 characters for one it obscured
// already unless told otherwise.
const QString kObscure = QStringLiteral("--obscure");

QStringList pairs(const RemoteConfig::Settings &settings)
{
    QStringList arguments;
    for (const auto &[key, value] : settings)
        arguments.append(key + u'=' + value);
    return arguments;
}

// A test that outlasts its bound, told apart from a cancel by the caller.
class TestJob final : public RcloneJob
{
public:
    TestJob(RcloneEngine &engine, const QString &name, const QObject *context,
            RcloneEngine::Done<std::monostate> done)
        : RcloneJob(&engine)
        , m_done(std::move(done))
    {
        // The first line proves the listing works; a root of a million
        // files need not be read to the end.
        m_job = engine.runLines(
            RemoteConfig::testArguments(name), this,
            [this](const QByteArray &) {
                if (!std::exchange(m_listed, true))
                    m_job->cancel();
            },
            [this, context = QPointer<const QObject>(context), hadContext = context != nullptr](
                const RcloneResult<QString> &result) {
                if (m_done && (context || !hadContext)) {
                    if (m_listed || result.ok())
                        m_done(std::monostate());
                    else if (m_timedOut)
                        m_done(RcloneError{RcloneError::Kind::exitStatus, 0,
                                           QStringLiteral("No answer within %1 seconds")
                                               .arg(RemoteConfig::kTestBound.count())});
                    else
                        m_done(result.error());
                }
                deleteLater();
            });
        m_bound.setSingleShot(true);
        connect(&m_bound, &QTimer::timeout, this, [this] {
            m_timedOut = true;
            m_job->cancel();
        });
        m_bound.start(RemoteConfig::kTestBound);
    }

    void cancel() override
    {
        if (m_job)
            m_job->cancel();
    }

private:
    RcloneEngine::Done<std::monostate> m_done;
    QPointer<RcloneJob> m_job;
    QTimer m_bound;
    bool m_listed = false;
    bool m_timedOut = false;
};

} // namespace

RemoteConfig::RemoteConfig(RcloneEngine &engine, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
{
}

void RemoteConfig::catalog(const QObject *context, RcloneEngine::Done<QList<BackendCatalog::Backend>> done)
{
    if (m_catalog)
        return done(*m_catalog);
    m_waiting.append({QPointer<const QObject>(context), std::move(done)});
    if (m_waiting.size() > 1)
        return; // asked already
    m_engine.run({kConfig, QStringLiteral("providers")}, this, [this](const RcloneResult<QString> &output) {
        RcloneResult<QList<BackendCatalog::Backend>> result = RcloneError{
            RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's list of storage kinds could not be read")};
        if (!output.ok()) {
            result = output.error();
        } else if (std::optional<QList<BackendCatalog::Backend>> backends =
                       BackendCatalog::parse(output.value().toUtf8())) {
            m_catalog = *backends;
            result = *backends;
        }
        for (const auto &[context, done] : std::exchange(m_waiting, {})) {
            if (context)
                done(result);
        }
    });
}

RcloneJob *RemoteConfig::create(const QString &name, const QString &type, const Settings &settings,
                                const QObject *context, RcloneEngine::Done<Answer> done)
{
    const QStringList arguments =
        QStringList{kConfig, QStringLiteral("create"), name, type} + pairs(settings) + QStringList{kNonInteractive, kObscure};
    return m_engine.run(arguments, context, [done = std::move(done)](const RcloneResult<QString> &output) {
        done(output.ok() ? parseAnswer(output.value()) : output.error());
    });
}

RcloneJob *RemoteConfig::answer(const QString &name, const Question &question, const QString &result,
                                const QObject *context, RcloneEngine::Done<Answer> done)
{
    QStringList arguments{kConfig,           QStringLiteral("update"), name,   QStringLiteral("--continue"),
                          QStringLiteral("--state"), question.state,   QStringLiteral("--result"), result,
                          kNonInteractive};
    if (question.option.isPassword)
        arguments.append(kObscure);
    return m_engine.run(arguments, context, [done = std::move(done)](const RcloneResult<QString> &output) {
        done(output.ok() ? parseAnswer(output.value()) : output.error());
    });
}

RcloneJob *RemoteConfig::update(const QString &name, const Settings &settings, const QObject *context,
                                RcloneEngine::Done<Answer> done)
{
    // Without the last one, rclone would run a remote's browser sign-in again.
    const QStringList arguments = QStringList{kConfig, QStringLiteral("update"), name} + pairs(settings)
        + QStringList{QStringLiteral("config_refresh_token=false"), kNonInteractive, kObscure};
    return m_engine.run(arguments, context, [done = std::move(done)](const RcloneResult<QString> &output) {
        done(output.ok() ? parseAnswer(output.value()) : output.error());
    });
}

RcloneJob *RemoteConfig::settings(const QString &name, const QObject *context,
                                  RcloneEngine::Done<QMap<QString, QString>> done)
{
    return m_engine.run({kConfig, QStringLiteral("dump")}, context,
                        [name, done = std::move(done)](const RcloneResult<QString> &output) {
                            done(output.ok() ? parseSettings(output.value(), name) : output.error());
                        });
}

RcloneJob *RemoteConfig::test(const QString &name, const QObject *context, RcloneEngine::Done<std::monostate> done)
{
    return new TestJob(m_engine, name, context, std::move(done));
}

RcloneJob *RemoteConfig::remove(const QString &name, const QObject *context, RcloneEngine::Done<std::monostate> done)
{
    return m_engine.run({kConfig, QStringLiteral("delete"), name}, context,
                        [done = std::move(done)](const RcloneResult<QString> &output) {
                            done(output.ok() ? RcloneStatus(std::monostate()) : RcloneStatus(output.error()));
                        });
}

RcloneResult<RemoteConfig::Answer> RemoteConfig::parseAnswer(const QString &output)
{
    const QJsonObject answer = QJsonDocument::fromJson(output.toUtf8()).object();
    if (!answer.contains(QLatin1String("State")))
        return RcloneError{RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's answer could not be read")};
    const QString state = answer.value(QLatin1String("State")).toString();
    const QString error = answer.value(QLatin1String("Error")).toString();
    if (state.isEmpty()) {
        if (!error.isEmpty()) // refused, with nothing more to ask
            return RcloneError{RcloneError::Kind::exitStatus, 0, error};
        return Answer();
    }
    return Answer(Question{state, BackendCatalog::parseOption(answer.value(QLatin1String("Option")).toObject()), error});
}

RcloneResult<QMap<QString, QString>> RemoteConfig::parseSettings(const QString &output, const QString &name)
{
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8());
    if (!document.isObject())
        return RcloneError{RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's configuration could not be read")};
    const QJsonValue remote = document.object().value(name);
    if (!remote.isObject())
        return RcloneError{RcloneError::Kind::exitStatus, 0, QStringLiteral("There is no remote named “%1”.").arg(name)};
    QMap<QString, QString> settings;
    const QJsonObject object = remote.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        settings.insert(it.key(), it.value().toString());
    return settings;
}

QStringList RemoteConfig::testArguments(const QString &name)
{
    // Fails fast: one connection attempt, no retries of a refused request.
    return {QStringLiteral("lsf"),          name + u':',           QStringLiteral("--max-depth"),
            QStringLiteral("1"),            QStringLiteral("--contimeout"), QStringLiteral("10s"),
            QStringLiteral("--timeout"),    QStringLiteral("20s"), QStringLiteral("--low-level-retries"),
            QStringLiteral("1")};
}
