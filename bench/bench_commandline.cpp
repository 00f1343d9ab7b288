// Prints what the command line and the headless service cost, with 500
// folders and automatic sync on (every folder watched): the round trip of
// `nimbrell status --json` against a running instance (the whole command,
// and the channel alone), the time from starting `nimbrell --headless` to
// its first answer, and the resident memory of the idle service beside that
// of the program with its window. rclone is a stand-in that exits at once,
// so the start-up syncs end quickly and only Nimbrell is measured.
#include "BenchSupport.h"
#include "model/FolderStore.h"
#include "platform/InstanceChannel.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

using namespace std::chrono_literals;

namespace {

QString g_root;

void writeText(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

QProcessEnvironment environment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("org.nimbrell.*=false"));
    return env;
}

QString program()
{
    return g_root + QStringLiteral("/bin/nimbrell");
}

// Waits for the instance to answer and for its runs to end; its pid.
qint64 waitUntilIdle()
{
    for (;;) {
        const std::optional<QJsonObject> status = InstanceChannel::send(QStringLiteral("status"), {}, 10s);
        bool running = !status;
        for (const QJsonValue &folder : status.value_or(QJsonObject()).value(QStringLiteral("folders")).toArray())
            running |= folder.toObject().value(QStringLiteral("running")).toBool();
        if (!running)
            return status->value(QStringLiteral("instance")).toObject().value(QStringLiteral("pid")).toInteger();
        QThread::msleep(200);
    }
}

void stop(QProcess &instance)
{
    instance.terminate();
    instance.waitForFinished(30000);
}

} // namespace

int main(int argc, char *argv[])
{
    QTemporaryDir root;
    g_root = root.path();
    // The benchmark talks to the instances of this HOME.
    qputenv("HOME", QFile::encodeName(g_root + QStringLiteral("/home")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(g_root + QStringLiteral("/home/.config")));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(g_root + QStringLiteral("/run")));
    QCoreApplication app(argc, argv);
    QDir().mkpath(g_root + QStringLiteral("/run"));
    QFile::setPermissions(g_root + QStringLiteral("/run"), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QDir().mkpath(g_root + QStringLiteral("/bin"));
    QDir().mkpath(g_root + QStringLiteral("/libexec/nimbrell"));
    QFile::copy(QStringLiteral(NIMBRELL_EXECUTABLE), program());
    QFile::copy(QStringLiteral(NIMBRELL_WINDOW_EXECUTABLE), g_root + QStringLiteral("/libexec/nimbrell/nimbrell"));
    writeText(g_root + QStringLiteral("/libexec/nimbrell/rclone"), "#!/bin/sh\nexit 0\n");
    QFile::setPermissions(g_root + QStringLiteral("/libexec/nimbrell/rclone"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);

    QList<SyncFolder> folders;
    for (int i = 0; i < 500; ++i) {
        SyncFolder folder;
        folder.name = QStringLiteral("Folder %1").arg(i);
        folder.localPath = QStringLiteral("%1/local/%2").arg(g_root).arg(i);
        QDir().mkpath(folder.localPath + QStringLiteral("/a/b"));
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("backup"), QStringLiteral("f%1").arg(i), true}};
        folders.append(folder);
    }
    writeText(g_root + QStringLiteral("/home/.config/nimbrell/nimbrell.conf"), "[General]\nisGlobalSyncEnabled=true\n");
    writeText(g_root + QStringLiteral("/home/.config/rclone/rclone_sync_folders.json"), FolderStore::encode(folders).value());

    // Start to ready: the first answer on the channel.
    std::vector<double> ready;
    for (int i = 0; i < 5; ++i) {
        QProcess headless;
        headless.setProcessEnvironment(environment());
        QElapsedTimer timer;
        timer.start();
        headless.start(program(), {QStringLiteral("--headless")});
        while (!InstanceChannel::send(QStringLiteral("status"), {}, 10ms))
            ;
        ready.push_back(double(timer.nsecsElapsed()) / 1e6);
        waitUntilIdle();
        stop(headless);
    }
    std::printf("headless start to ready (500 folders): median %.0f ms, worst %.0f ms\n", median(ready),
                *std::max_element(ready.begin(), ready.end()));

    QProcess headless;
    headless.setProcessEnvironment(environment());
    headless.start(program(), {QStringLiteral("--headless")});
    const qint64 headlessPid = waitUntilIdle();
    wait(2000);
    const long headlessKiB = residentKiB(QString::number(headlessPid));

    std::vector<double> command, channel;
    for (int i = 0; i < 30; ++i) {
        QElapsedTimer timer;
        timer.start();
        QProcess status;
        status.setProcessEnvironment(environment());
        status.start(program(), {QStringLiteral("status"), QStringLiteral("--json")});
        status.waitForFinished();
        command.push_back(double(timer.nsecsElapsed()) / 1e6);
        timer.restart();
        InstanceChannel::send(QStringLiteral("status"), {}, 10s);
        channel.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("`nimbrell status --json` round trip (500 folders): median %.1f ms, worst %.1f ms; "
                "the channel alone: median %.1f ms\n",
                median(command), *std::max_element(command.begin(), command.end()), median(channel));
    stop(headless);

    QProcess window;
    window.setProcessEnvironment(environment());
    window.start(program(), {});
    const qint64 windowPid = waitUntilIdle();
    wait(2000);
    const long windowKiB = residentKiB(QString::number(windowPid));
    stop(window);
    std::printf("resident memory, idle with 500 watched folders: headless %.1f MiB, with the window %.1f MiB (%.0f%%)\n",
                double(headlessKiB) / 1024.0, double(windowKiB) / 1024.0, 100.0 * double(headlessKiB) / double(windowKiB));
    return 0;
}
