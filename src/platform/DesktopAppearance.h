#pragma once

#include <QDBusConnection>
#include <QObject>

class QDBusVariant;

// The desktop's light or dark preference, as the XDG desktop portal tells it
// (org.freedesktop.appearance color-scheme), read at start and followed as
// it changes. Without a bus or a portal there is no preference.
class DesktopAppearance final : public QObject
{
    Q_OBJECT

public:
    enum class ColorScheme { noPreference, dark, light };

    explicit DesktopAppearance(QObject *parent = nullptr); // the user's session bus
    explicit DesktopAppearance(const QDBusConnection &bus, QObject *parent = nullptr);

    ColorScheme colorScheme() const { return m_scheme; }

Q_SIGNALS:
    void colorSchemeChanged(DesktopAppearance::ColorScheme scheme);

private Q_SLOTS:
    void settingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    void setScheme(const QVariant &value);

    QDBusConnection m_bus;
    ColorScheme m_scheme = ColorScheme::noPreference;
};
