#pragma once

#include "engine/BackendCatalog.h"
#include "engine/RcloneEngine.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>

#include <chrono>
#include <optional>

class RcloneJob;

// Making, changing and checking remotes with rclone's own configurator. A
// remote is made with the settings a user gave (`config create NAME TYPE
// KEY=VALUE... --non-interactive`); where rclone needs more, it answers with
// a question, which is answered with `config update NAME --continue`.
// Passwords go to rclone in clear, and rclone obscures them in its file.
class RemoteConfig final : public QObject
{
    Q_OBJECT

public:
    using Settings = QList<QPair<QString, QString>>; // key, value; in the order given
    // A question rclone asks before the remote is complete.
    struct Question
    {
        QString state; // handed back with the answer
        BackendCatalog::Option option;
        QString error; // why the last answer was refused, if it was
        // rclone's browser sign-in: answered by `config reconnect`, not here.
        bool isSignIn() const { return state.startsWith(QLatin1String("*oauth")); }
    };
    // No question: the remote is complete.
    using Answer = std::optional<Question>;

    // How long the connection test may take before it is stopped.
    static constexpr std::chrono::seconds kTestBound{30};

    explicit RemoteConfig(RcloneEngine &engine, QObject *parent = nullptr);

    // Every backend rclone reaches; `config providers` runs once, and later
    // calls share its answer.
    void catalog(const QObject *context, RcloneEngine::Done<QList<BackendCatalog::Backend>> done);
    // The answer once it is in; nothing before.
    const std::optional<QList<BackendCatalog::Backend>> &cachedCatalog() const { return m_catalog; }

    RcloneJob *create(const QString &name, const QString &type, const Settings &settings, const QObject *context,
                      RcloneEngine::Done<Answer> done);
    RcloneJob *answer(const QString &name, const Question &question, const QString &result, const QObject *context,
                      RcloneEngine::Done<Answer> done);
    // Changes settings of an existing remote; a sign-in it has is kept.
    RcloneJob *update(const QString &name, const Settings &settings, const QObject *context,
                      RcloneEngine::Done<Answer> done);
    // The remote's settings as its configuration holds them, "type" among
    // them; an unknown name is an error.
    RcloneJob *settings(const QString &name, const QObject *context,
                        RcloneEngine::Done<QMap<QString, QString>> done);
    // One listing of the remote's root, stopped after kTestBound.
    RcloneJob *test(const QString &name, const QObject *context, RcloneEngine::Done<std::monostate> done);
    RcloneJob *remove(const QString &name, const QObject *context, RcloneEngine::Done<std::monostate> done);

    // rclone's answer to create, update and --continue.
    static RcloneResult<Answer> parseAnswer(const QString &output);
    // `config dump`'s entry for `name`.
    static RcloneResult<QMap<QString, QString>> parseSettings(const QString &output, const QString &name);
    static QStringList testArguments(const QString &name);

private:
    RcloneEngine &m_engine;
    std::optional<QList<BackendCatalog::Backend>> m_catalog;
    QList<std::pair<QPointer<const QObject>, RcloneEngine::Done<QList<BackendCatalog::Backend>>>> m_waiting;
};
