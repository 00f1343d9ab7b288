// Prints what adding a remote costs in the sheet: from "More…" to a filled
// list of storage kinds (the first time, which runs `rclone config
// providers`, and again, read from memory), and from "Add" to a tested
// remote against rclone's own WebDAV server on 127.0.0.1, beside the same
// `config create` and `lsf` run by hand.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "platform/InotifyFileEventService.h"
#include "ui/AddRemoteController.h"
#include "ui/NimbrellApp.h"

#include <QElapsedTimer>
#include <QApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>

#include <sys/prctl.h>

namespace {

double elapsedMs(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

bool waitFor(const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    return condition();
}

void rcloneByHand(const QStringList &arguments)
{
    QProcess rclone;
    rclone.start(QStringLiteral(RCLONE_PATH), arguments);
    rclone.waitForFinished(60000);
}

} // namespace

int main(int argc, char *argv[])
{
    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));
    qputenv("QT_LOGGING_RULES", "org.nimbrell.*=false");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root.filePath(QStringLiteral("run"))));
    QDir().mkpath(root.filePath(QStringLiteral("run")));
    QFile::setPermissions(root.filePath(QStringLiteral("run")), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QApplication app(argc, argv);
    QDir().mkpath(root.filePath(QStringLiteral("served")));

    QProcess server;
    server.setProcessChannelMode(QProcess::MergedChannels);
    server.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }); // ends with the benchmark
    server.start(QStringLiteral(RCLONE_PATH),
                 {QStringLiteral("serve"), QStringLiteral("webdav"), root.filePath(QStringLiteral("served")),
                  QStringLiteral("--addr"), QStringLiteral("127.0.0.1:0"), QStringLiteral("--user"), QStringLiteral("ann"),
                  QStringLiteral("--pass"), QStringLiteral("s3cret")});
    static const QRegularExpression started(QStringLiteral("started on \\[(http://127\\.0\\.0\\.1:\\d+/)\\]"));
    QString log, url;
    while (url.isEmpty() && server.waitForReadyRead(10000)) {
        log += QString::fromUtf8(server.readAll());
        url = started.match(log).captured(1);
    }
    if (url.isEmpty()) {
        std::fprintf(stderr, "the WebDAV server did not start: %s\n", qPrintable(log));
        return 1;
    }

    constexpr int kRounds = 7;
    std::vector<double> firstList, laterList, added, byHand;
    for (int round = 0; round < kRounds; ++round) {
        MemorySettingsStore settings;
        RcloneEngine engine(QStringLiteral(RCLONE_PATH));
        InotifyFileEventService fileEvents;
        NoLoginItem loginItem;
        NimbrellApp nimbrell({.settings = settings, .engine = engine, .fileEvents = fileEvents, .loginItem = loginItem});
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(&nimbrell));
        // A session's first "More…", then a second one.
        for (std::vector<double> *figures : {&firstList, &laterList}) {
            QElapsedTimer timer;
            timer.start();
            sheet.chooseOther();
            if (!waitFor([&] { return !sheet.backends().isEmpty(); }))
                return 1;
            figures->push_back(elapsedMs(timer));
            sheet.chooseBackend(QStringLiteral("drive"));
        }
        const QString name = QStringLiteral("dav%1").arg(round);
        sheet.setName(name);
        sheet.setType(QStringLiteral("webdav"));
        waitFor([&] { return sheet.form()->backend() == u"webdav"; });
        sheet.form()->setValue(QStringLiteral("url"), url);
        sheet.form()->setValue(QStringLiteral("user"), QStringLiteral("ann"));
        sheet.form()->setValue(QStringLiteral("pass"), QStringLiteral("s3cret"));
        bool finished = false;
        QObject::connect(&sheet, &AddRemoteController::finished, [&] { finished = true; });
        QElapsedTimer timer;
        timer.start();
        sheet.submit();
        if (!waitFor([&] { return finished || sheet.testFailed(); }) || !finished) {
            std::fprintf(stderr, "the remote was not added: %s\n", qPrintable(sheet.errorMessage()));
            return 1;
        }
        added.push_back(elapsedMs(timer));

        timer.restart();
        const QString byHandName = name + QStringLiteral("h");
        rcloneByHand({QStringLiteral("config"), QStringLiteral("create"), byHandName, QStringLiteral("webdav"),
                      QStringLiteral("url=") + url, QStringLiteral("user=ann"), QStringLiteral("pass=s3cret"),
                      QStringLiteral("--non-interactive"), QStringLiteral("--obscure")});
        rcloneByHand({QStringLiteral("lsf"), byHandName + u':', QStringLiteral("--max-depth"), QStringLiteral("1")});
        byHand.push_back(elapsedMs(timer));
    }
    server.kill();
    server.waitForFinished();

    std::printf("Add Remote sheet, %d rounds, medians (min–max):\n", kRounds);
    const auto row = [](const char *what, const std::vector<double> &figures) {
        std::printf("  %-58s %7.2f ms (%.2f–%.2f)\n", what, median(figures), *std::min_element(figures.begin(), figures.end()),
                    *std::max_element(figures.begin(), figures.end()));
    };
    row("More… to a filled list, first in the session", firstList);
    row("More… to a filled list, again", laterList);
    row("Add to a tested WebDAV remote (name check, create, lsf)", added);
    row("the same create and lsf run by hand", byHand);
    return 0;
}
