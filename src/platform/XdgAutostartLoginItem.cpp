#include "platform/XdgAutostartLoginItem.h"

#include "platform/InstallLayout.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
// An Exec value: the path quoted, with the characters the desktop entry
// format reserves escaped.
QString execValue(const QString &path)
{
    QString escaped = path;
    escaped.replace(u'\\', QStringLiteral("\\\\\\\\"));
    for (const QChar c : {u'"', u'`', u'$'})
        escaped.replace(c, QStringLiteral("\\\\") + c);
    escaped.replace(u'%', QStringLiteral("%%"));
    return u'"' + escaped + u'"';
}
} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable)
    : m_executable(executable.isEmpty() ? InstallLayout::launcherPath() : std::move(executable))
{
}

QString XdgAutostartLoginItem::entryPath() const
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/org.nimbrell.Nimbrell.desktop");
}

bool XdgAutostartLoginItem::isEnabled() const
{
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray &raw : entry.readAll().split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return false;
    }
    return true;
}

std::optional<QString> XdgAutostartLoginItem::registerItem()
{
    const QString path = entryPath();
    if (!QDir().mkpath(QFileInfo(path).path()))
        return QStringLiteral("Cannot create the folder %1").arg(QFileInfo(path).path());
    QSaveFile entry(path);
    if (!entry.open(QIODevice::WriteOnly))
        return entry.errorString();
    entry.write("[Desktop Entry]\n"
                "Type=Application\n"
                "Name=Nimbrell\n"
                "Comment=Keep folders in two-way sync with cloud storage\n"
                "Icon=org.nimbrell.Nimbrell\n"
                "Exec=" + execValue(m_executable).toUtf8() + "\n"
                "Terminal=false\n"
                "X-GNOME-Autostart-enabled=true\n");
    // commit() alone misses a write that fails as the buffer is flushed.
    if (!entry.flush() || !entry.commit()) {
        const QString why = entry.errorString();
        entry.cancelWriting();
        return why;
    }
    return std::nullopt;
}

std::optional<QString> XdgAutostartLoginItem::unregisterItem()
{
    QFile entry(entryPath());
    if (entry.exists() && !entry.remove())
        return entry.errorString();
    return std::nullopt;
}
