// Renders every window of Nimbrell in its interesting states into PNG files,
// offscreen. Any QML warning fails the run.
//   NIMBRELL_APPEARANCE=light|dark nimbrell-screenshots OUTPUT_DIRECTORY
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "model/UuidString.h"
#include "platform/InotifyFileEventService.h"
#include "platform/MemorySettingsStore.h"
#include "platform/XdgAutostartLoginItem.h"
#include "sync/ActivityLog.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteListModel.h"
#include "ui/SettingsController.h"
#include "ui/TrayMenu.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QMenu>
#include <QQuickItem>
#include <QTemporaryDir>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

namespace {

int g_warnings = 0;
QtMessageHandler g_previousHandler = nullptr;

void countWarnings(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QLatin1String category(context.category ? context.category : "");
    if (type == QtWarningMsg && !category.startsWith(QLatin1String("org.nimbrell")) &&
        !message.contains(QLatin1String("This plugin does not support")) && // the offscreen platform
        !message.contains(QLatin1String("XDG_RUNTIME_DIR")))
        ++g_warnings;
    g_previousHandler(type, context, message);
}


void wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitFor(const std::function<bool()> &condition, int timeoutMs = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < timeoutMs)
        wait(20);
    return condition();
}

QString g_output;
bool g_failed = false;

void save(QQuickWindow *window, const QString &name)
{
    if (!window || !waitFor([window] { return window->isExposed(); })) {
        std::fprintf(stderr, "%s: the window was not shown\n", qPrintable(name));
        g_failed = true;
        return;
    }
    wait(250); // images and layout settle
    const QString path = g_output + u'/' + name + QStringLiteral(".png");
    if (!window->grabWindow().save(path)) {
        std::fprintf(stderr, "%s: cannot write %s\n", qPrintable(name), qPrintable(path));
        g_failed = true;
        return;
    }
    std::printf("%s\n", qPrintable(path));
}

// Waits until the remote pane has its storage figures (or knows it has none).
void waitForRemotePane(QQuickWindow *window)
{
    waitFor([window] {
        QObject *pane = window->findChild<QObject *>(QStringLiteral("remoteController"));
        QObject *storage = pane ? pane->property("storage").value<QObject *>() : nullptr;
        return storage && !storage->property("isLoading").toBool();
    });
}

void invoke(QQuickWindow *window, const char *objectName, const char *method)
{
    if (QObject *object = window->findChild<QObject *>(QLatin1String(objectName)))
        QMetaObject::invokeMethod(object, method);
}

void writeFixture(const QString &root)
{
    const QString home = root + QStringLiteral("/home");
    QDir().mkpath(home + QStringLiteral("/.config/rclone"));
    QFile config(root + QStringLiteral("/rclone.conf"));
    if (config.open(QIODevice::WriteOnly)) {
        config.write("[gdrive]\ntype = drive\n\n[Work Dropbox]\ntype = dropbox\n\n[team-dav]\ntype = webdav\nurl = http://127.0.0.1:9/\nvendor = nextcloud\nuser = ann\npass = "
                     "ZdEm3BsxN0q0c4Fdl1c_pZQz\n\n"
                     "[archive]\ntype = s3\n\n[backblaze]\ntype = b2\n\n[nas]\ntype = sftp\n\n[onedrive]\ntype = onedrive\n\n"
                     "[scratch]\ntype = local\n");
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto target = [](const char *remote, const char *path) {
        return RemoteTarget{QUuid::createUuid(), QString::fromLatin1(remote), QString::fromLatin1(path), true};
    };
    SyncFolder documents;
    documents.name = QStringLiteral("Documents");
    documents.localPath = home + QStringLiteral("/Documents");
    documents.remoteTargets = {target("gdrive", "Backup/Documents"), target("team-dav", "Documents")};
    documents.status = SyncStatus::success;
    documents.progress = 1;
    documents.lastSync = now.addSecs(-5 * 60);
    SyncFolder photos;
    photos.name = QStringLiteral("Photos");
    photos.localPath = home + QStringLiteral("/Pictures");
    // Synced for real while the pictures are taken, slowly (RCLONE_BWLIMIT).
    photos.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("scratch"), root + QStringLiteral("/scratch/photos"), true},
                            target("archive", "photos")};
    QDir().mkpath(photos.localPath);
    QFile picture(photos.localPath + QStringLiteral("/holiday.raw"));
    if (picture.open(QIODevice::WriteOnly))
        picture.write(QByteArray(50 * 1024 * 1024, 'p'));
    photos.lastSync = now.addSecs(-2 * 3600);
    SyncFolder projects;
    projects.name = QStringLiteral("Projects");
    projects.localPath = home + QStringLiteral("/Projects");
    projects.remoteTargets = {target("nas", "projects")};
    projects.status = SyncStatus::error;
    projects.lastError = QStringLiteral("nas:projects — Failed to bisync: connection refused");
    projects.lastSync = now.addDays(-3);
    SyncFolder music;
    music.name = QStringLiteral("Music");
    music.localPath = home + QStringLiteral("/Music");
    SyncFolder odd;
    odd.name = QStringLiteral("<b>Not bold</b> \u05E9\u05DC\u05D5\u05DD \U0001F600 ") + QString(400, u'x');
    odd.localPath = home + QStringLiteral("/odd");
    odd.remoteTargets = {target("scratch", "")};
    // Failures of each kind, as rclone left them.
    const auto failing = [&](const char *name, const char *path, RemoteTarget where, const QString &log) {
        SyncFolder folder;
        folder.name = QString::fromLatin1(name);
        folder.localPath = home + u'/' + QString::fromLatin1(path);
        QDir().mkpath(folder.localPath);
        for (int i = 0; i < 10; ++i) {
            QFile file(folder.localPath + QStringLiteral("/chapter %1.txt").arg(i));
            if (file.open(QIODevice::WriteOnly))
                file.write(QByteArray::number(i));
        }
        folder.remoteTargets = {where};
        folder.status = log.isEmpty() ? SyncStatus::idle : SyncStatus::error;
        if (!log.isEmpty())
            folder.lastError = where.remoteName + u':' + where.remotePath + QStringLiteral(" — ") + log;
        folder.lastSync = now.addSecs(-600);
        return folder;
    };
    const RemoteTarget scratchBook{QUuid::createUuid(), QStringLiteral("scratch"), root + QStringLiteral("/scratch/book"), true};
    QDir().mkpath(scratchBook.remotePath);
    QFile newer(scratchBook.remotePath + QStringLiteral("/chapter 3.txt"));
    if (newer.open(QIODevice::WriteOnly))
        newer.write("edited on the server");
    const SyncFolder book = failing("Book", "Book", scratchBook,
                                    QStringLiteral("ERROR : Bisync aborted. Must run --resync to recover.\nNOTICE: Failed to bisync: bisync aborted"));
    // What Book's runs kept of the files they deleted or overwrote, here and on its remote.
    const auto kept = [&](const QString &directory, qint64 secondsAgo, const char *path, qsizetype size) {
        const QString run = RemovedFiles::runDirectory(now.addSecs(-secondsAgo));
        QDir().mkpath(QFileInfo(directory + u'/' + run + u'/' + QString::fromUtf8(path)).path());
        QFile file(directory + u'/' + run + u'/' + QString::fromUtf8(path));
        if (file.open(QIODevice::WriteOnly))
            file.write(QByteArray(size, 'k'));
    };
    const QString keptHere = home + QStringLiteral("/.local/share/nimbrell/removed/") + uuidString(book.id);
    const QString keptThere = scratchBook.remotePath + QStringLiteral("/.nimbrell-removed");
    kept(keptHere, 2 * 3600, "chapter 3.txt", 18230);
    kept(keptThere, 20 * 60, "Figures/diagram 🖼.png", 734003);
    kept(keptThere, 26 * 3600, "chapter 9.txt", 9120);
    kept(keptHere, 3 * 86400, "notes/outline.md", 2048);
    // Book's directories, here and on its remote, for "Choose Folders…".
    for (const char *directory : {"Drafts", "Figures/Diagrams", "Figures/Photos", "Notes/2025", "Notes/2026", "Videos/Raw"})
        QDir().mkpath(book.localPath + u'/' + QString::fromLatin1(directory));
    for (const char *directory : {"Drafts", "Figures/Diagrams", "Notes/2025", "Archive"})
        QDir().mkpath(scratchBook.remotePath + u'/' + QString::fromLatin1(directory));
    const SyncFolder thesis = failing("Thesis", "Thesis",
                                      RemoteTarget{QUuid::createUuid(), QStringLiteral("scratch"), root + QStringLiteral("/scratch/thesis"), false}, {});
    const SyncFolder mail = failing("Mail", "Mail", target("gdrive", "Mail"),
                                    QStringLiteral("CRITICAL: Failed to create file system for destination \"gdrive:Mail\": couldn't fetch token: "
                                                   "invalid_grant: maybe token expired? - try refreshing with \"rclone config reconnect gdrive:\""));
    SyncFolder camera = failing("Camera", "Camera", target("onedrive", "Camera Roll"),
                                QStringLiteral("Local folder not found: ") + home + QStringLiteral("/Media/Camera"));
    camera.localPath = home + QStringLiteral("/Media/Camera");
    // Every file deleted here: rclone stops and drops the history.
    const SyncFolder letters = failing("Letters", "Letters", target("nas", "letters"),
                                       QStringLiteral("ERROR : Bisync critical error: empty current Path1 listing\n"
                                                      "ERROR : Bisync aborted. Must run --resync to recover."));
    for (const QString &name : QDir(letters.localPath).entryList(QDir::Files))
        QFile::remove(letters.localPath + u'/' + name);
    // What Documents' runs changed, and a file changed on both sides whose
    // two copies are both still there.
    QDir().mkpath(documents.localPath);
    const auto put = [&](const QString &name, const QByteArray &content, qint64 secondsAgo) {
        QFile file(documents.localPath + u'/' + name);
        if (file.open(QIODevice::WriteOnly)) {
            file.write(content);
            file.setFileTime(now.addSecs(-secondsAgo), QFileDevice::FileModificationTime);
        }
    };
    put(QStringLiteral("Proposal.odt"), QByteArray(48213, 'r'), 40 * 60);
    put(QStringLiteral("Proposal.odt.conflict1"), QByteArray(51877, 'l'), 55 * 60);
    const auto change = [&](const char *path, ChangeParser::Action action, bool onRemote, qint64 secondsAgo) {
        return ActivityRecord{documents.id, QStringLiteral("gdrive:Backup/Documents"), now.addSecs(-secondsAgo),
                              ActivityRecord::Kind::change, QString::fromUtf8(path), action, onRemote, {}, {}};
    };
    using A = ChangeParser::Action;
    ActivityLog(home + QStringLiteral("/.local/share/nimbrell/activity.jsonl")).append({
        change("Photos/beach 🏖.jpg", A::added, true, 3 * 3600),
        change("Budget 2027.xlsx", A::updated, false, 3600),
        change("old draft.docx", A::deleted, true, 20 * 60),
        change("Invoices/2026/inv-0042.pdf", A::added, true, 5 * 60),
        change("notes.md", A::added, false, 5 * 60),
        ActivityRecord{documents.id, QStringLiteral("gdrive:Backup/Documents"), now.addSecs(-5 * 60),
                       ActivityRecord::Kind::conflict, QStringLiteral("Proposal.odt"), A::added, false,
                       QStringLiteral("Proposal.odt.conflict1"), true},
        change("Proposal.odt.conflict1", A::added, true, 5 * 60),
        change("Reports/Q3 summary.pdf", A::updated, true, 2 * 60),
    });
    QFile store(home + QStringLiteral("/.config/rclone/rclone_sync_folders.json"));
    if (store.open(QIODevice::WriteOnly))
        store.write(FolderStore::encode({documents, photos, projects, music, odd, book, thesis, mail, camera, letters}).value());
}

// Scrolls the pane so that the item shows `above` pixels below its top.
void scrollTo(QQuickWindow *window, const char *objectName, qreal above)
{
    QQuickItem *item = window->findChild<QQuickItem *>(QString::fromLatin1(objectName));
    for (QQuickItem *up = item ? item->parentItem() : nullptr; up; up = up->parentItem()) {
        if (up->inherits("QQuickFlickable")) {
            up->setProperty("contentY",
                            item->mapToItem(up->property("contentItem").value<QQuickItem *>(), QPointF()).y() - above);
            return;
        }
    }
}

QString uuidStringOf(NimbrellApp &app, int row)
{
    return app.syncManager()->folders().at(row).id.toString(QUuid::WithoutBraces);
}

void shoot(const QString &appearance, bool withData)
{
    QTemporaryDir root;
    if (withData)
        writeFixture(root.path());
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.filePath(QStringLiteral("home/.config"))));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.filePath(QStringLiteral("home/.local/share"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));

    MemorySettingsStore settings;
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));
    InotifyFileEventService fileEvents;
    XdgAutostartLoginItem loginItem;
    ActivityLog activity;
    // One sync at a time: the next one waits.
    NimbrellApp app({.settings = settings, .engine = engine, .fileEvents = fileEvents, .loginItem = loginItem,
                     .concurrentSyncs = 1, .activity = &activity});
    app.start();
    QQuickWindow *main = app.window(QStringLiteral("main"));
    const QString suffix = u'-' + appearance;
    if (!withData) {
        waitFor([&] { return !app.remotes()->isLoading(); });
        save(main, QStringLiteral("main-empty") + suffix);
        return;
    }
    waitFor([&] { return app.remotes()->count() > 0; });
    app.syncManager()->automatic().setPaused(app.syncManager()->folders().at(3).id, true); // Music
    save(main, QStringLiteral("main-dashboard") + suffix);
    const auto controller = [main] { return main->findChild<QObject *>(QStringLiteral("folderRecovery")); };
    const auto review = [&](const QString &name) {
        QMetaObject::invokeMethod(controller(), "runAction", Q_ARG(int, 0));
        waitFor([&] { return controller()->property("reviewState").toString() != u"previewing"; });
        save(main, name + suffix);
        invoke(main, "folderRecovery", "cancelReview");
    };
    // Thesis syncs, then loses most of its files here: a real too-many-deletes stop.
    const QUuid thesisId = app.syncManager()->folders().at(6).id;
    app.syncManager()->syncFolder(thesisId);
    waitFor([&] { return !app.syncManager()->runs().isRunning(thesisId); });
    for (int i = 0; i < 7; ++i)
        QFile::remove(app.syncManager()->folders().at(6).localPath + QStringLiteral("/chapter %1.txt").arg(i));
    app.syncManager()->syncFolder(thesisId);
    waitFor([&] { return !app.syncManager()->runs().isRunning(thesisId); });
    for (const auto &[row, name] : {std::pair{5, "needs-resync"}, {6, "too-many-deletes"}, {7, "sign-in-expired"},
                                    {8, "local-folder-missing"}, {9, "empty-local"}}) {
        app.navigation()->showFolder(uuidStringOf(app, row));
        wait(100);
        save(main, QStringLiteral("folder-problem-") + QString::fromLatin1(name) + suffix);
    }
    app.navigation()->showFolder(uuidStringOf(app, 5));
    wait(100);
    review(QStringLiteral("review-resync"));
    // Book keeps what its runs remove: Recently Removed, and the editor's section for it.
    app.syncManager()->preferences().setKeepsRemoved(app.syncManager()->folders().at(5).id, true);
    app.navigation()->showFolder(uuidStringOf(app, 4));
    wait(100);
    app.navigation()->showFolder(uuidStringOf(app, 5));
    wait(100);
    invoke(main, "removedSheet", "open");
    waitFor([main] {
        const QObject *files = main->findChild<QObject *>(QStringLiteral("removedFiles"));
        return files && files->property("isLoaded").toBool() && !files->property("isBusy").toBool();
    });
    wait(300);
    save(main, QStringLiteral("folder-recently-removed") + suffix);
    invoke(main, "removedSheet", "close");
    wait(300);
    scrollTo(main, "recentlyRemovedCard", 300);
    save(main, QStringLiteral("folder-keeps-removed") + suffix);
    invoke(main, "folderEditor", "start");
    scrollTo(main, "editKeepRemoved", 200);
    save(main, QStringLiteral("folder-safety-control") + suffix);
    // What of Book syncs: its folder tree with two skipped, a rule rclone refuses, the direction.
    QObject *choices = main->findChild<QObject *>(QStringLiteral("folderChoices"));
    QObject *editor = main->findChild<QObject *>(QStringLiteral("folderEditor"));
    app.syncManager()->setSelection(app.syncManager()->folders().at(5).id, FolderSelection{{QStringLiteral("Videos"), QStringLiteral("Notes/2025")}, {}, {}});
    QMetaObject::invokeMethod(editor, "load");
    QMetaObject::invokeMethod(choices, "chooseFolders", Q_ARG(QString, editor->property("localPath").toString()),
                              Q_ARG(QVariantList, editor->property("targets").toList()));
    invoke(main, "chooseFoldersSheet", "open");
    QObject *tree = choices->property("tree").value<QObject *>();
    waitFor([tree] { return !tree->property("loading").toBool(); });
    if (QObject *view = main->findChild<QObject *>(QStringLiteral("folderTree"))) {
        QMetaObject::invokeMethod(view, "expand", Q_ARG(int, 3)); // Notes
        QMetaObject::invokeMethod(view, "expand", Q_ARG(int, 2)); // Figures
    }
    waitFor([tree] { return !tree->property("loading").toBool(); });
    save(main, QStringLiteral("folder-choose-folders") + suffix);
    invoke(main, "chooseFoldersSheet", "close");
    choices->setProperty("ignoreText", QStringLiteral("*.tmp\n/build/**\n[draft\n**/.cache/**"));
    waitFor([choices] { return !choices->property("checking").toBool(); });
    scrollTo(main, "ignoreRules", 240);
    save(main, QStringLiteral("folder-ignore-rules") + suffix);
    choices->setProperty("direction", 1);
    scrollTo(main, "direction", 120);
    save(main, QStringLiteral("folder-direction") + suffix);
    invoke(main, "folderEditor", "cancel");
    app.navigation()->showFolder(uuidStringOf(app, 6));
    wait(100);
    review(QStringLiteral("review-deletions"));

    // Documents only uploads: its row and pane show which way.
    app.syncManager()->setSelection(app.syncManager()->folders().at(0).id, FolderSelection{{}, {}, SyncDirection::upload});
    app.syncManager()->setSelection(app.syncManager()->folders().at(3).id, FolderSelection{{}, {}, SyncDirection::download});
    app.navigation()->showFolder(uuidStringOf(app, 0));
    wait(100);
    save(main, QStringLiteral("sidebar-one-way") + suffix);
    app.navigation()->showRemote(QStringLiteral("gdrive"));
    save(main, QStringLiteral("remote-loading") + suffix);
    waitForRemotePane(main);
    save(main, QStringLiteral("remote-storage-error") + suffix);
    app.navigation()->showFolder(uuidStringOf(app, 0));
    save(main, QStringLiteral("main-folder-selected") + suffix);
    // Further down the same pane: what its runs changed.
    scrollTo(main, "recentChanges", 260);
    save(main, QStringLiteral("folder-recent-changes") + suffix);
    app.syncManager()->syncFolder(app.syncManager()->folders().at(1).id);
    app.syncManager()->syncFolder(app.syncManager()->folders().at(4).id);
    app.navigation()->showFolder(uuidStringOf(app, 1));
    waitFor([&] { return app.syncManager()->folders().at(1).transferredSize.has_value(); });
    save(main, QStringLiteral("folder-syncing") + suffix);
    app.navigation()->showFolder(uuidStringOf(app, 4));
    save(main, QStringLiteral("folder-waiting") + suffix);
    app.navigation()->showFolder(uuidStringOf(app, 2));
    save(main, QStringLiteral("folder-error") + suffix);
    invoke(main, "errorLogSheet", "open");
    save(main, QStringLiteral("folder-error-log") + suffix);
    invoke(main, "errorLogSheet", "close");
    invoke(main, "folderEditor", "start");
    save(main, QStringLiteral("folder-editing") + suffix);
    app.navigation()->showNewSyncFolder();
    wait(100); // the earlier pane goes away
    if (QObject *editor = main->findChild<QObject *>(QStringLiteral("folderEditor")))
        editor->setProperty("localPath", QStringLiteral("relative/path"));
    save(main, QStringLiteral("folder-new") + suffix);
    app.navigation()->clear();
    save(main, QStringLiteral("main-no-selection") + suffix);

    invoke(main, "deleteDialog", "open");
    save(main, QStringLiteral("main-delete-confirmation") + suffix);
    invoke(main, "deleteDialog", "close");
    invoke(main, "contentView", "openAddRemote");
    save(main, QStringLiteral("add-remote") + suffix);
    if (QObject *sheet = main->findChild<QObject *>(QStringLiteral("addRemoteController"))) {
        sheet->setProperty("name", QStringLiteral("-bad \"name\""));
        QMetaObject::invokeMethod(sheet, "submit");
        waitFor([sheet] { return !sheet->property("isConfiguring").toBool(); });
        save(main, QStringLiteral("add-remote-refused") + suffix);
        sheet->setProperty("name", QStringLiteral("My Drive"));
        QMetaObject::invokeMethod(sheet, "submit");
        waitFor([sheet] { return sheet->property("buttonText").toString().startsWith(u"Waiting"); });
        save(main, QStringLiteral("add-remote-waiting-for-browser") + suffix);
    }
    invoke(main, "addRemoteSheet", "close"); // stops the sign-in and removes "My Drive" again
    invoke(main, "contentView", "openAddRemote");
    if (QObject *sheet = main->findChild<QObject *>(QStringLiteral("addRemoteController"))) {
        const auto formOf = [sheet] { return sheet->property("form").value<QObject *>(); };
        QMetaObject::invokeMethod(sheet, "chooseOther");
        waitFor([sheet] { return !sheet->property("catalogLoading").toBool(); });
        save(main, QStringLiteral("add-remote-backends") + suffix);
        sheet->setProperty("backendSearch", QStringLiteral("cloud"));
        save(main, QStringLiteral("add-remote-backends-search") + suffix);
        // jottacloud asks how to sign in before it is complete.
        sheet->setProperty("name", QStringLiteral("jotta"));
        QMetaObject::invokeMethod(sheet, "chooseBackend", Q_ARG(QString, QStringLiteral("jottacloud")));
        waitFor([&] { return formOf()->property("backend").toString() == u"jottacloud"; });
        QMetaObject::invokeMethod(sheet, "submit");
        waitFor([sheet] { return !sheet->property("question").toMap().isEmpty(); });
        save(main, QStringLiteral("add-remote-question") + suffix);
        invoke(main, "addRemoteSheet", "close"); // removes "jotta" again
        waitFor([sheet] { return !sheet->property("isCleaningUp").toBool(); });
        invoke(main, "contentView", "openAddRemote");
        sheet->setProperty("name", QStringLiteral("minio"));
        sheet->setProperty("type", QStringLiteral("s3"));
        waitFor([&] { return formOf()->property("backend").toString() == u"s3"; });
        QMetaObject::invokeMethod(formOf(), "setValue", Q_ARG(QString, QStringLiteral("provider")), Q_ARG(QString, QStringLiteral("Minio")));
        save(main, QStringLiteral("add-remote-s3") + suffix);
        sheet->setProperty("name", QStringLiteral("nas-dav"));
        sheet->setProperty("type", QStringLiteral("webdav"));
        waitFor([&] { return formOf()->property("backend").toString() == u"webdav"; });
        save(main, QStringLiteral("add-remote-webdav") + suffix);
        // Nothing listens on port 9: the test fails, and the remote waits for a decision.
        QMetaObject::invokeMethod(formOf(), "setValue", Q_ARG(QString, QStringLiteral("url")), Q_ARG(QString, QStringLiteral("http://127.0.0.1:9/dav")));
        QMetaObject::invokeMethod(formOf(), "setValue", Q_ARG(QString, QStringLiteral("user")), Q_ARG(QString, QStringLiteral("ann")));
        QMetaObject::invokeMethod(formOf(), "setValue", Q_ARG(QString, QStringLiteral("pass")), Q_ARG(QString, QStringLiteral("secret")));
        QMetaObject::invokeMethod(sheet, "submit");
        waitFor([sheet] { return sheet->property("testFailed").toBool(); });
        save(main, QStringLiteral("add-remote-test-failed") + suffix);
    }
    invoke(main, "addRemoteSheet", "close"); // removes "nas-dav" again
    app.navigation()->showRemote(QStringLiteral("team-dav"));
    wait(100);
    invoke(main, "editRemoteSettings", "clicked");
    if (QObject *edit = main->findChild<QObject *>(QStringLiteral("editRemoteController"))) {
        waitFor([edit] { return edit->property("state").toInt() != 0; });
        save(main, QStringLiteral("remote-edit-settings") + suffix);
    }
    invoke(main, "editRemoteSheet", "close");

    app.navigation()->showRemote(QStringLiteral("scratch"));
    waitForRemotePane(main);
    save(main, QStringLiteral("remote-storage") + suffix);
    app.navigation()->showRemote(QStringLiteral("Work Dropbox"));
    wait(100);
    invoke(main, "remoteController", "requestDelete");
    save(main, QStringLiteral("remote-delete-confirmation") + suffix);
    invoke(main, "remoteDeleteDialog", "close");
    app.navigation()->showRemote(QStringLiteral("nas"));
    wait(100);
    invoke(main, "remoteController", "requestDelete");
    save(main, QStringLiteral("remote-delete-refused") + suffix);
    invoke(main, "remoteRefusalDialog", "close");

    app.navigation()->showFolder(uuidStringOf(app, 3));
    save(main, QStringLiteral("folder-paused") + suffix);
    // On battery with "Pause on Battery Power": automatic sync on, yet waiting.
    app.syncManager()->automatic().setPauseOnBattery(true);
    app.syncManager()->automatic().setConditions(false, true);
    app.syncManager()->automatic().setGlobalSyncEnabled(true);
    app.navigation()->showDashboard();
    save(main, QStringLiteral("main-dashboard-on-battery") + suffix);
    app.syncManager()->automatic().setGlobalSyncEnabled(false);
    app.syncManager()->automatic().setConditions(false, false);
    // A save that fails (a directory where the store goes): the banner says so.
    const QString store = app.syncManager()->repository().path();
    QFile::rename(store, store + QStringLiteral(".aside"));
    QDir().mkpath(store);
    app.syncManager()->updateFolder(app.syncManager()->folders().at(0));
    save(main, QStringLiteral("main-dashboard-store-problem") + suffix);
    QDir(store).removeRecursively();
    QFile::rename(store + QStringLiteral(".aside"), store);
    app.syncManager()->repository().save();
    app.settings()->setLimitBandwidth(true);
    app.settings()->setUploadKiB(512);
    app.settings()->setDownloadKiB(4096);
    app.settings()->setBandwidthSchedule(QStringLiteral("08:00,512k 19:00,off"));
    QQuickWindow *settingsWindow = app.openWindow(QStringLiteral("settings"));
    save(settingsWindow, QStringLiteral("settings-loading") + suffix);
    waitFor([&] { return app.settings()->rcloneVersion() != u"Loading..."; });
    save(settingsWindow, QStringLiteral("settings") + suffix);

    save(app.openWindow(QStringLiteral("about")), QStringLiteral("about") + suffix);

    QMenu *menu = app.trayMenu()->menu();
    const auto saveMenu = [&](const QString &name) {
        menu->adjustSize();
        const QString menuPath = g_output + u'/' + name + suffix + QStringLiteral(".png");
        if (menu->grab().save(menuPath))
            std::printf("%s\n", qPrintable(menuPath));
        else
            g_failed = true;
    };
    saveMenu(QStringLiteral("tray-menu"));

    // Quitting while Photos syncs: the window waits for rclone to stop. The
    // program then leaves its event loops, so this comes last.
    app.navigation()->showFolder(uuidStringOf(app, 1));
    app.quit();
    saveMenu(QStringLiteral("tray-menu-finishing"));
    if (main->grabWindow().save(g_output + QStringLiteral("/main-finishing") + suffix + QStringLiteral(".png")))
        std::printf("%s\n", qPrintable(g_output + QStringLiteral("/main-finishing") + suffix + QStringLiteral(".png")));
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("RCLONE_BWLIMIT", "1M"); // syncs last while they are pictured
    if (qEnvironmentVariableIsEmpty("NIMBRELL_APPEARANCE"))
        qputenv("NIMBRELL_APPEARANCE", "light");
    prepareGraphics();
    QApplication application(argc, argv);
    setUpApplication();
    g_previousHandler = qInstallMessageHandler(countWarnings);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIRECTORY\n", argv[0]);
        return 2;
    }
    g_output = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    QDir().mkpath(g_output);
    // One appearance per run: the controls take their palette once, at the first window.
    const QString appearance = qgetenv("NIMBRELL_APPEARANCE") == "dark" ? QStringLiteral("dark") : QStringLiteral("light");
    shoot(appearance, false);
    shoot(appearance, true);
    if (g_warnings > 0)
        std::fprintf(stderr, "%d warning(s) while rendering\n", g_warnings);
    return g_failed || g_warnings > 0 ? 1 : 0;
}
