#include "platform/DesktopAppearance.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

namespace {
const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kGroup = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");

// Read() answers a variant in a variant; the signal, one variant.
QVariant unwrapped(QVariant value)
{
    while (value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}
} // namespace

DesktopAppearance::DesktopAppearance(QObject *parent)
    : DesktopAppearance(QDBusConnection::sessionBus(), parent)
{
}

DesktopAppearance::DesktopAppearance(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("SettingChanged"), this,
                  SLOT(settingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Read"));
    read << kGroup << kKey;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answer) {
        answer->deleteLater();
        const QDBusMessage reply = answer->reply();
        // No portal, or one without the setting: no preference.
        if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty())
            setScheme(reply.arguments().constFirst());
    });
}

void DesktopAppearance::settingChanged(const QString &group, const QString &key, const QDBusVariant &value)
{
    if (group == kGroup && key == kKey)
        setScheme(value.variant());
}

void DesktopAppearance::setScheme(const QVariant &value)
{
    const QVariant plain = unwrapped(value);
    bool ok = false;
    const uint number = plain.toUInt(&ok);
    // 1 prefers dark, 2 prefers light; 0 and anything else, no preference.
    const ColorScheme scheme = !ok        ? ColorScheme::noPreference
        : number == 1                     ? ColorScheme::dark
        : number == 2                     ? ColorScheme::light
                                          : ColorScheme::noPreference;
    if (scheme == m_scheme)
        return;
    m_scheme = scheme;
    Q_EMIT colorSchemeChanged(scheme);
}
