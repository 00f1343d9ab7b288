// bin/nimbrell: the command line, the headless service, and the launcher of
// the program with the windows. It links Qt Core, Network and DBus only, so
// the command line and the service run where no display and no GUI
// libraries are.
#include "cli/CliRunner.h"
#include "cli/CommandLine.h"
#include "model/Formatting.h"
#include "platform/InstallLayout.h"
#include "platform/AppLogger.h"
#include "platform/InstanceChannel.h"

#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

void say(const QString &message)
{
    std::fprintf(stderr, "nimbrell: %s\n", Formatting::printable(message).toLocal8Bit().constData());
}

// Brings the running Nimbrell's window forward, or becomes the program with
// the windows (same process, same PID, same name).
int startWindow(char *argv[])
{
    InstanceChannel instance;
    switch (instance.claim(say)) {
    case InstanceChannel::Claim::handedOver:
        return CliRunner::kOk;
    case InstanceChannel::Claim::failed:
        return CliRunner::kFailed;
    case InstanceChannel::Claim::acquired:
        break;
    }
    // The window program claims the instance again for itself.
    instance.release();
    const QByteArray program = QFile::encodeName(InstallLayout::windowProgramPath());
    ::execv(program.constData(), argv);
    say(QStringLiteral("cannot start %1: %2").arg(QString::fromLocal8Bit(program), QString::fromLocal8Bit(std::strerror(errno))));
    return CliRunner::kFailed;
}

} // namespace

int main(int argc, char *argv[])
{
    // A reader of ours that went away (`nimbrell status | head`) must not end the program.
    std::signal(SIGPIPE, SIG_IGN);
    AppLogger::keepLogPrintable();

    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const auto parsed = CommandLine::parse(arguments);
    if (const QString *error = std::get_if<QString>(&parsed)) {
        say(*error);
        std::fputs("Try 'nimbrell --help'.\n", stderr);
        return CliRunner::kUsage;
    }
    const CliCommand &command = std::get<CliCommand>(parsed);
    switch (command.kind) {
    case CliCommand::Kind::help:
        std::fputs(CommandLine::usage().toUtf8().constData(), stdout);
        return CliRunner::kOk;
    case CliCommand::Kind::version:
        std::printf("nimbrell %s\n", NIMBRELL_VERSION);
        return CliRunner::kOk;
    case CliCommand::Kind::window:
        return startWindow(argv);
    default:
        break;
    }

    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBRELL_VERSION));
    if (command.kind == CliCommand::Kind::headless)
        return CliRunner::runHeadless();
    // The command line says what happened in its own words; the log lines
    // are for the service's journal (QT_LOGGING_RULES brings them back).
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.Nimbrell.*=false"));
    return CliRunner::run(command);
}
