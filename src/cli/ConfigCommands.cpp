#include "cli/ConfigCommands.h"
#include "engine/RemoteCommands.h"

#include "cli/CliSupport.h"
#include "cli/CommandLine.h"
#include "cli/LocalInstance.h"
#include "engine/RemoteConfig.h"
#include "platform/InstanceChannel.h"
#include "sync/ConnectionFailure.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>

#include <iostream>
#include <string>

#include <termios.h>
#include <unistd.h>

namespace ConfigCommands {
namespace {

using namespace CliSupport;
using Kind = CliCommand::Kind;
using BackendCatalog::Option;

// Runs one engine call to its end.
template <typename T>
RcloneResult<T> await(const std::function<RcloneJob *(const QObject *, RcloneEngine::Done<T>)> &start)
{
    std::optional<RcloneResult<T>> result;
    QEventLoop loop;
    start(&loop, [&](const RcloneResult<T> &done) {
        result = done;
        loop.quit();
    });
    if (!result)
        loop.exec();
    return *result;
}

// Every storage kind rclone reaches.
std::optional<RcloneResult<QList<BackendCatalog::Backend>>> catalogOf(RemoteConfig &config)
{
    std::optional<RcloneResult<QList<BackendCatalog::Backend>>> catalog;
    QEventLoop loop;
    config.catalog(&loop, [&](const RcloneResult<QList<BackendCatalog::Backend>> &result) {
        catalog = result;
        loop.quit();
    });
    if (!catalog)
        loop.exec();
    return catalog;
}

QString quoted(const QString &text)
{
    return QStringLiteral("“%1”").arg(text);
}

// A line typed on the terminal; a secret one is not shown. Nothing at the
// end of the input.
std::optional<QString> prompt(const QString &question, bool secret)
{
    std::fputs(question.toUtf8().constData(), stderr);
    std::fflush(stderr);
    termios saved{};
    const bool hide = secret && ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (hide) {
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string line;
    const bool read = bool(std::getline(std::cin, line));
    if (hide) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    }
    if (!read)
        return std::nullopt;
    return QString::fromStdString(line);
}

QString firstLine(const QString &text)
{
    return text.section(u'\n', 0, 0).trimmed();
}

// "  url (required): URL of http host to connect to.\n    choices: ..."
QString describe(const Option &option)
{
    QString text = QStringLiteral("  %1%2: %3\n").arg(option.name, option.required ? QStringLiteral(" (required)") : QString(),
                                                    firstLine(option.help));
    QStringList choices;
    for (const BackendCatalog::Example &example : option.examples)
        choices.append(firstLine(example.help).isEmpty() || example.value == firstLine(example.help)
                           ? example.value
                           : QStringLiteral("%1 (%2)").arg(example.value, firstLine(example.help)));
    if (!choices.isEmpty())
        text += QStringLiteral("    %1: %2\n").arg(option.exclusive ? QStringLiteral("one of") : QStringLiteral("for example"),
                                                 choices.join(QStringLiteral(", ")));
    if (!option.defaultText.isEmpty())
        text += QStringLiteral("    default: %1\n").arg(option.defaultText);
    return text;
}

QJsonObject optionJson(const Option &option)
{
    QJsonArray choices;
    for (const BackendCatalog::Example &example : option.examples)
        choices.append(QJsonObject{{QStringLiteral("value"), example.value}, {QStringLiteral("help"), example.help}});
    return {{QStringLiteral("name"), option.name},     {QStringLiteral("help"), option.help},
            {QStringLiteral("required"), option.required}, {QStringLiteral("default"), option.defaultText},
            {QStringLiteral("choices"), choices},       {QStringLiteral("exclusive"), option.exclusive}};
}

// Asks for one setting on the terminal; an empty answer keeps the default.
std::optional<QString> ask(const Option &option)
{
    std::fputs(describe(option).toUtf8().constData(), stderr);
    return prompt(QStringLiteral("%1> ").arg(option.name), option.isPassword);
}

// The window, if one runs, lists the remotes again.
void tellInstance()
{
    if (InstanceChannel::isHeld())
        CliSupport::ask(QStringLiteral("remotesChanged"));
}

int fail(const CliCommand &command, const QJsonObject &document, const QString &message, int code)
{
    if (command.json)
        printJson(document);
    say(message);
    return code;
}

int addRemote(const CliCommand &command)
{
    RcloneEngine engine;
    RemoteConfig config(engine);
    const QString name = command.words.value(0);
    const bool interactive = command.interactive && ::isatty(STDIN_FILENO);
    const QJsonObject about{{QStringLiteral("name"), name}};

    const auto remotes = await<QList<CloudRemote>>([&](const QObject *c, auto done) { return RemoteCommands::listRemotes(engine, c, done); });
    if (!remotes.ok())
        return fail(command, about, remotes.error().description, kFailed);
    for (const CloudRemote &remote : remotes.value()) {
        if (remote.name == name)
            return fail(command, about, QStringLiteral("a remote named %1 exists already").arg(quoted(name)), kUsage);
    }
    const std::optional<RcloneResult<QList<BackendCatalog::Backend>>> catalog = catalogOf(config);
    if (!catalog->ok())
        return fail(command, about, catalog->error().description, kFailed);

    QString type = command.words.value(1);
    if (type.isEmpty() && interactive)
        type = prompt(QStringLiteral("Storage kind (`nimbrell remotes types` lists them)> "), false).value_or(QString()).trimmed();
    const auto backend = std::find_if(catalog->value().begin(), catalog->value().end(),
                                      [&type](const BackendCatalog::Backend &b) { return b.name == type; });
    if (backend == catalog->value().end())
        return fail(command, about,
                    QStringLiteral("rclone knows no storage kind %1 (`nimbrell remotes types` lists them)").arg(quoted(type)),
                    kUsage);

    QMap<QString, QString> values;
    RemoteConfig::Settings settings;
    for (const QString &word : command.words.mid(2)) {
        const qsizetype equals = word.indexOf(u'=');
        if (equals <= 0)
            return fail(command, about, QStringLiteral("%1 is not KEY=VALUE").arg(quoted(word)), kUsage);
        values.insert(word.first(equals), word.mid(equals + 1));
        settings.append({word.first(equals), word.mid(equals + 1)});
    }
    if (interactive) {
        // The provider first: it decides which other settings apply.
        QStringList asked;
        for (bool again = true; again;) {
            again = false;
            for (const Option &option : BackendCatalog::formOptions(*backend, values.value(QStringLiteral("provider")))) {
                if (option.advanced || values.contains(option.name) || asked.contains(option.name))
                    continue;
                asked.append(option.name);
                const std::optional<QString> answer = ask(option);
                if (!answer)
                    return fail(command, about, QStringLiteral("no answer: nothing was made"), kUsage);
                if (answer->isEmpty())
                    continue;
                values.insert(option.name, *answer);
                settings.append({option.name, *answer});
                if (option.name == u"provider") {
                    again = true;
                    break;
                }
            }
        }
    }
    const QList<Option> missing = BackendCatalog::missing(*backend, values.value(QStringLiteral("provider")), values);
    if (!missing.isEmpty()) {
        QJsonArray list;
        QString text = QStringLiteral("%1 needs these settings, as KEY=VALUE:\n").arg(type);
        for (const Option &option : missing) {
            list.append(optionJson(option));
            text += describe(option);
        }
        QJsonObject document = about;
        document.insert(QStringLiteral("missing"), list);
        return fail(command, document, text.trimmed(), kUsage);
    }

    // Made from here on: any failure removes it again.
    const auto removeAgain = [&] {
        await<std::monostate>([&](const QObject *c, auto done) { return config.remove(name, c, done); });
    };
    RcloneResult<RemoteConfig::Answer> answer = await<RemoteConfig::Answer>(
        [&](const QObject *c, auto done) { return config.create(name, type, settings, c, done); });
    while (answer.ok() && answer.value()) {
        const RemoteConfig::Question question = *answer.value();
        if (question.isSignIn()) {
            std::fputs("A browser window opens for the sign-in…\n", stderr);
            const RcloneStatus signedIn = await<std::monostate>(
                [&](const QObject *c, auto done) { return RemoteCommands::reconnectRemote(engine, name, c, done); });
            if (!signedIn.ok())
                answer = signedIn.error();
            break;
        }
        if (!question.error.isEmpty())
            say(question.error);
        QString result = question.option.defaultText;
        if (interactive) {
            const std::optional<QString> typed = ask(question.option);
            if (!typed) {
                removeAgain();
                return fail(command, about, QStringLiteral("no answer: nothing was made"), kUsage);
            }
            if (!typed->isEmpty())
                result = *typed;
        } else if (question.option.required && result.isEmpty()) {
            removeAgain();
            QJsonObject document = about;
            document.insert(QStringLiteral("missing"), QJsonArray{optionJson(question.option)});
            return fail(command, document,
                        QStringLiteral("rclone asks for %1; give it as KEY=VALUE, or use --interactive:\n%2")
                            .arg(question.option.name, describe(question.option).trimmed()),
                        kUsage);
        }
        answer = await<RemoteConfig::Answer>(
            [&](const QObject *c, auto done) { return config.answer(name, question, result, c, done); });
    }
    if (!answer.ok()) {
        removeAgain();
        return fail(command, about, answer.error().description, kFailed);
    }

    const RcloneStatus listed = await<std::monostate>([&](const QObject *c, auto done) { return config.test(name, c, done); });
    QJsonObject document = about;
    document.insert(QStringLiteral("type"), type);
    document.insert(QStringLiteral("reachable"), listed.ok());
    if (listed.ok()) {
        tellInstance();
        if (command.json)
            printJson(document);
        else
            out(QStringLiteral("Added %1 (%2); it answered.\n").arg(name, type));
        return kOk;
    }
    const ConnectionFailure failure = ConnectionFailure::read(name, listed.error().description);
    if (!command.keep)
        removeAgain();
    else
        tellInstance();
    document.insert(QStringLiteral("kept"), command.keep);
    document.insert(QStringLiteral("problem"), failure.kindName());
    document.insert(QStringLiteral("error"), failure.message);
    return fail(command, document,
                failure.text() + (command.keep ? QStringLiteral("\nThe remote was kept (--keep).")
                                               : QStringLiteral("\nThe remote was removed again.")),
                kFailed);
}

int testRemote(const CliCommand &command)
{
    RcloneEngine engine;
    RemoteConfig config(engine);
    const QString name = command.words.value(0);
    const RcloneStatus listed = await<std::monostate>([&](const QObject *c, auto done) { return config.test(name, c, done); });
    QJsonObject document{{QStringLiteral("name"), name}, {QStringLiteral("reachable"), listed.ok()}};
    if (listed.ok()) {
        if (command.json)
            printJson(document);
        else
            out(QStringLiteral("%1 answered.\n").arg(name));
        return kOk;
    }
    const ConnectionFailure failure = ConnectionFailure::read(name, listed.error().description);
    document.insert(QStringLiteral("problem"), failure.kindName());
    document.insert(QStringLiteral("error"), failure.message);
    return fail(command, document, failure.text(), kFailed);
}

int listTypes(const CliCommand &command)
{
    RcloneEngine engine;
    RemoteConfig config(engine);
    const std::optional<RcloneResult<QList<BackendCatalog::Backend>>> catalog = catalogOf(config);
    if (!catalog->ok()) {
        say(catalog->error().description);
        return kFailed;
    }
    QJsonArray types;
    qsizetype width = 0;
    for (const BackendCatalog::Backend &backend : catalog->value())
        width = std::max(width, backend.name.size());
    for (const BackendCatalog::Backend &backend : catalog->value()) {
        if (command.kind == Kind::complete)
            out(backend.name + u'\n');
        else if (!command.json)
            out(QStringLiteral("%1  %2\n").arg(backend.name, -int(width)).arg(backend.description));
        types.append(QJsonObject{{QStringLiteral("name"), backend.name}, {QStringLiteral("description"), backend.description}});
    }
    if (command.json)
        printJson({{QStringLiteral("types"), types}});
    return kOk;
}

// A change of the folders: through the running instance, or here with its
// lock held. `request` builds the request from the folder list (its names
// resolved); it refuses with a message.
QJsonObject change(const QString &name, const std::function<std::variant<QJsonObject, QString>(const QJsonObject &)> &request)
{
    const auto refused = [](const QString &why) {
        return QJsonObject{{QStringLiteral("error"), why}, {QStringLiteral("usage"), true}};
    };
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (InstanceChannel::isHeld()) {
            if (const std::optional<QJsonObject> list = CliSupport::ask(QStringLiteral("list"))) {
                const auto built = request(*list);
                if (const QString *why = std::get_if<QString>(&built))
                    return refused(*why);
                if (std::optional<QJsonObject> reply = CliSupport::ask(name, std::get<QJsonObject>(built), std::chrono::minutes(2)))
                    return *reply;
            }
        }
        InstanceChannel channel;
        if (!channel.tryLock())
            continue; // one started meanwhile: ask it
        LocalInstance local(SyncService::Mode::offline, false);
        const auto built = request(local.service().listReport());
        if (const QString *why = std::get_if<QString>(&built))
            return refused(*why);
        std::optional<QJsonObject> reply;
        QEventLoop loop;
        local.service().folderCommands().handle(name, std::get<QJsonObject>(built), [&](const QJsonObject &answer) {
            reply = answer;
            loop.quit();
        });
        if (!reply)
            loop.exec();
        local.manager().repository().save();
        return *reply;
    }
    return {{QStringLiteral("error"), QStringLiteral("the running instance did not answer")}};
}

std::variant<QJsonObject, QString> folderNamed(const CliCommand &command, const QJsonObject &list)
{
    const auto resolved = CommandLine::resolve(command.folders, namedFolders(list));
    if (const QString *error = std::get_if<QString>(&resolved))
        return *error;
    return QJsonObject{{QStringLiteral("folder"), std::get<QList<QUuid>>(resolved).first().toString(QUuid::WithoutBraces).toUpper()}};
}

QString nameOf(const QJsonObject &list, const QString &id)
{
    for (const CommandLine::NamedFolder &folder : namedFolders(list)) {
        if (folder.id == QUuid::fromString(id))
            return folder.name;
    }
    return id;
}

int report(const CliCommand &command, const QJsonObject &reply, const QString &done)
{
    if (const QString error = errorOf(reply); !error.isEmpty() && !reply.contains(QStringLiteral("id"))) {
        say(error);
        return reply.value(QStringLiteral("usage")).toBool() ? kUsage : kFailed;
    }
    if (command.json)
        printJson(reply);
    else if (!done.isEmpty())
        out(done + u'\n');
    if (const QString error = errorOf(reply); !error.isEmpty()) {
        say(error); // made, but the folder list could not be saved yet
        return kFailed;
    }
    return kOk;
}

} // namespace

int remotes(const CliCommand &command)
{
    if (!hasRclone())
        return kFailed;
    switch (command.kind) {
    case Kind::remoteAdd: return addRemote(command);
    case Kind::remoteTest: return testRemote(command);
    case Kind::remoteTypes: return listTypes(command);
    default: break;
    }
    const QString name = command.words.value(0);
    const QJsonObject reply = change(QStringLiteral("removeRemote"), [&](const QJsonObject &) {
        return QJsonObject{{QStringLiteral("name"), name}, {QStringLiteral("force"), command.force}};
    });
    QStringList left;
    for (const QJsonValue &folder : reply.value(QStringLiteral("folders")).toArray())
        left.append(folder.toString());
    // (A running instance lists its remotes again by itself.)
    return report(command, reply,
                  left.isEmpty() ? QStringLiteral("Removed %1").arg(name)
                                 : QStringLiteral("Removed %1, and took it out of %2").arg(name, left.join(QStringLiteral(", "))));
}

int folders(const CliCommand &command)
{
    if (!hasRclone())
        return kFailed;
    QJsonObject settings;
    if (command.conflict)
        settings.insert(QStringLiteral("conflict"), *command.conflict);
    for (const auto &[key, value] : {std::pair{"excludeGit", command.excludeGit},
                                     {"excludeHidden", command.excludeHidden},
                                     {"excludeNodeModules", command.excludeNodeModules},
                                     {"keepRemoved", command.keepRemoved}}) {
        if (value)
            settings.insert(QLatin1String(key), *value);
    }
    const auto absolute = [](const QString &path) { return QFileInfo(path).absoluteFilePath(); };
    if (command.kind == Kind::folderAdd) {
        settings.insert(QStringLiteral("name"), command.words.at(0));
        settings.insert(QStringLiteral("localPath"), absolute(command.words.at(1)));
        settings.insert(QStringLiteral("targets"), QJsonArray::fromStringList(command.words.mid(2)));
        const QJsonObject reply = change(QStringLiteral("addFolder"), [&](const QJsonObject &) { return settings; });
        return report(command, reply, reply.value(QStringLiteral("id")).toString());
    }
    if (command.kind == Kind::folderRemove) {
        QString name;
        const QJsonObject reply = change(QStringLiteral("removeFolder"), [&](const QJsonObject &list) {
            const auto request = folderNamed(command, list);
            if (const QJsonObject *named = std::get_if<QJsonObject>(&request))
                name = nameOf(list, named->value(QStringLiteral("folder")).toString());
            return request;
        });
        return report(command, reply, QStringLiteral("Removed %1; its files stay where they are").arg(name));
    }
    if (command.rename)
        settings.insert(QStringLiteral("name"), *command.rename);
    if (command.localPath)
        settings.insert(QStringLiteral("localPath"), absolute(*command.localPath));
    if (!command.addTargets.isEmpty())
        settings.insert(QStringLiteral("addTargets"), QJsonArray::fromStringList(command.addTargets));
    if (!command.removeTargets.isEmpty())
        settings.insert(QStringLiteral("removeTargets"), QJsonArray::fromStringList(command.removeTargets));
    for (const auto &[key, list] : {std::pair{"skip", &command.skip}, {"unskip", &command.unskip},
                                    {"ignore", &command.ignore}, {"unignore", &command.unignore}}) {
        if (!list->isEmpty())
            settings.insert(QLatin1String(key), QJsonArray::fromStringList(*list));
    }
    if (command.direction)
        settings.insert(QStringLiteral("direction"), *command.direction);
    QString name;
    const QJsonObject reply = change(QStringLiteral("editFolder"), [&](const QJsonObject &list) -> std::variant<QJsonObject, QString> {
        const auto request = folderNamed(command, list);
        const QJsonObject *named = std::get_if<QJsonObject>(&request);
        if (!named)
            return request;
        name = nameOf(list, named->value(QStringLiteral("folder")).toString());
        QJsonObject changes = settings;
        changes.insert(QStringLiteral("folder"), named->value(QStringLiteral("folder")));
        return changes;
    });
    return report(command, reply, QStringLiteral("Changed %1").arg(command.rename.value_or(name)));
}

int complete(const CliCommand &command)
{
    const QString what = command.words.value(0);
    if (what == u"types")
        return hasRclone() ? listTypes(command) : kFailed;
    if (what == u"remotes") {
        if (!hasRclone())
            return kFailed;
        RcloneEngine engine;
        const auto remotes = await<QList<CloudRemote>>([&](const QObject *c, auto done) { return RemoteCommands::listRemotes(engine, c, done); });
        for (const CloudRemote &remote : remotes.ok() ? remotes.value() : QList<CloudRemote>())
            out(remote.name + u'\n');
        return remotes.ok() ? kOk : kFailed;
    }
    if (what == u"folders") {
        std::optional<QJsonObject> list = InstanceChannel::isHeld() ? CliSupport::ask(QStringLiteral("list")) : std::nullopt;
        if (!list)
            list = LocalInstance(SyncService::Mode::offline, false).service().listReport();
        for (const CommandLine::NamedFolder &folder : namedFolders(*list))
            out(folder.name + u'\n');
        return kOk;
    }
    say(QStringLiteral("--complete takes remotes, folders or types"));
    return kUsage;
}

} // namespace ConfigCommands
