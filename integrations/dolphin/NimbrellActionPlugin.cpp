#include "NimbrellActionPlugin.h"

#include "DesktopNotification.h"
#include "NimbrellFiles.h"

#include <KFileItem>
#include <KFileItemListProperties>
#include <KPluginFactory>
#include <KPluginMetaData>

#include <QAction>
#include <QClipboard>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QJsonArray>
#include <QMenu>
#include <QPluginLoader>
#include <QPointer>

K_PLUGIN_CLASS_WITH_JSON(NimbrellActionPlugin, "nimbrellactions.json")

namespace {

const QString kError = QStringLiteral("error");

// Why a command failed, as the user reads it.
QString problem(const QJsonObject &reply)
{
    const QString error = reply.value(kError).toString();
    if (error == u"no window")
        return QStringLiteral("Nimbrell runs as a service without a window (nimbrell --headless).");
    return error.isEmpty() ? QStringLiteral("Nimbrell did not say why.") : error;
}

// A reply that says what went wrong, under `summary`; one that went well goes
// to `done`. The menu, and this plugin with it, may be gone by then: nothing
// here refers to them.
NimbrellFiles::Reply reporting(const QString &summary, std::function<void(const QJsonObject &)> done = {})
{
    return [summary, done = std::move(done)](const QJsonObject &reply) {
        if (!reply.value(QStringLiteral("ok")).toBool())
            notify(summary, problem(reply));
        else if (done)
            done(reply);
    };
}

} // namespace

NimbrellActionPlugin::NimbrellActionPlugin(QObject *parent, const QVariantList &arguments)
    : KAbstractFileItemActionPlugin(parent)
{
    Q_UNUSED(arguments)
}

NimbrellFiles *NimbrellActionPlugin::files()
{
    // Qt keeps one instance of a plugin file per process: the overlay plugin
    // Dolphin loaded for the emblems, connected since. Where nobody had loaded
    // it, it starts now, and the menu appears from the next one on.
    static QPointer<QObject> overlay;
    if (!overlay) {
        const KPluginMetaData metaData =
            KPluginMetaData::findPluginById(QStringLiteral("kf5/overlayicon"), QStringLiteral("nimbrelloverlay"));
        if (metaData.isValid())
            overlay = QPluginLoader(metaData.fileName()).instance();
    }
    return qobject_cast<NimbrellFiles *>(overlay.data());
}

QList<QAction *> NimbrellActionPlugin::actions(const KFileItemListProperties &items, QWidget *parentWidget)
{
    if (items.items().size() != 1)
        return {};
    const KFileItem item = items.items().constFirst();
    const QString path = item.localPath();
    if (path.isEmpty())
        return {};
    NimbrellFiles *files = NimbrellActionPlugin::files();
    if (!files)
        return {};
    const std::optional<NimbrellFolder> found = files->folderOf(path);
    if (!found)
        return {};
    const NimbrellFolder folder = *found;
    const QString state = files->stateOf(path);
    const QString fileName = QFileInfo(path).fileName();

    auto *menu = new QMenu(QStringLiteral("Nimbrell"), parentWidget);
    menu->setIcon(QIcon::fromTheme(QStringLiteral("org.nimbrell.Nimbrell")));
    // Goes with its context menu's actions (and this plugin), not with the window.
    connect(this, &QObject::destroyed, menu, &QObject::deleteLater);
    const auto add = [menu](const QString &icon, const QString &text, const std::function<void()> &triggered) {
        QAction *action = menu->addAction(QIcon::fromTheme(icon), text);
        connect(action, &QAction::triggered, action, triggered);
    };

    add(QStringLiteral("view-refresh"), QStringLiteral("Sync Now"), [files, folder] {
        const QString summary = QStringLiteral("Nimbrell could not sync %1").arg(folder.name);
        files->request(QStringLiteral("sync"), {{QStringLiteral("folders"), QJsonArray{folder.id}}},
                       reporting(summary, [summary](const QJsonObject &reply) {
                           const QJsonArray notStarted = reply.value(QStringLiteral("notStarted")).toArray();
                           if (!notStarted.isEmpty())
                               notify(summary, notStarted.first()[QStringLiteral("reason")].toString());
                       }));
    });
    add(QStringLiteral("org.nimbrell.Nimbrell"), QStringLiteral("Show in Nimbrell"), [files, folder] {
        files->request(QStringLiteral("open"), {{QStringLiteral("folder"), folder.id}},
                       reporting(QStringLiteral("Nimbrell could not show %1").arg(folder.name)));
    });
    add(QStringLiteral("emblem-shared-symbolic"), QStringLiteral("Copy Share Link"), [files, path, fileName] {
        files->request(QStringLiteral("share"), {{QStringLiteral("path"), path}},
                       reporting(QStringLiteral("No share link for %1").arg(fileName), [fileName](const QJsonObject &reply) {
                           const QString url = reply.value(QStringLiteral("link")).toString();
                           QGuiApplication::clipboard()->setText(url);
                           notify(QStringLiteral("Share link to %1 copied").arg(fileName), url);
                       }));
    });
    add(QStringLiteral("user-trash"), QStringLiteral("Recently Removed…"), [files, folder] {
        files->request(QStringLiteral("open"), {{QStringLiteral("folder"), folder.id}, {QStringLiteral("sheet"), QStringLiteral("removed")}},
                       reporting(QStringLiteral("Nimbrell could not show what %1 removed").arg(folder.name)));
    });
    // One of the two copies of a file changed on both sides.
    if (state == u"conflict" && !item.isDir()) {
        menu->addSeparator();
        for (const auto &[text, choice] : {std::pair{QStringLiteral("Keep This"), QStringLiteral("keepThis")},
                                           std::pair{QStringLiteral("Keep Both"), QStringLiteral("keepBoth")}}) {
            add(QString(), text, [files, path, fileName, choice = choice] {
                files->request(QStringLiteral("resolve"), {{QStringLiteral("path"), path}, {QStringLiteral("choice"), choice}},
                               reporting(QStringLiteral("The conflict over %1 is not settled").arg(fileName)));
            });
        }
    }
    return {menu->menuAction()};
}

#include "NimbrellActionPlugin.moc"
