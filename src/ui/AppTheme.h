#pragma once

#include <QColor>
#include <QObject>
#include <QPalette>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

// Colours the screens share: the status colours and one accent, each in a
// light and a dark variant that follow the desktop's palette.
class AppTheme : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(bool isDark READ isDark NOTIFY changed)
    Q_PROPERTY(QColor accent READ accent NOTIFY changed)
    Q_PROPERTY(QColor blue READ blue NOTIFY changed)
    Q_PROPERTY(QColor green READ green NOTIFY changed)
    Q_PROPERTY(QColor red READ red NOTIFY changed)
    Q_PROPERTY(QColor orange READ orange NOTIFY changed)
    Q_PROPERTY(QColor purple READ purple NOTIFY changed)
    Q_PROPERTY(QColor secondary READ secondary NOTIFY changed)
    Q_PROPERTY(QColor card READ card NOTIFY changed)
    Q_PROPERTY(QColor separator READ separator NOTIFY changed)
    // The colour of each folder status ("idle", "syncing", "error",
    // "success"), as a property so that bindings follow a palette change.
    Q_PROPERTY(QVariantMap statusColors READ statusColors NOTIFY changed)
    // The application palette, role by role, for the windows to take over:
    // Qt Quick Controls read only the platform's palette by themselves.
    Q_PROPERTY(QColor window READ window NOTIFY changed)
    Q_PROPERTY(QColor windowText READ windowText NOTIFY changed)
    Q_PROPERTY(QColor base READ base NOTIFY changed)
    Q_PROPERTY(QColor alternateBase READ alternateBase NOTIFY changed)
    Q_PROPERTY(QColor text READ text NOTIFY changed)
    Q_PROPERTY(QColor button READ button NOTIFY changed)
    Q_PROPERTY(QColor buttonText READ buttonText NOTIFY changed)
    Q_PROPERTY(QColor brightText READ brightText NOTIFY changed)
    Q_PROPERTY(QColor highlight READ highlight NOTIFY changed)
    Q_PROPERTY(QColor highlightedText READ highlightedText NOTIFY changed)
    Q_PROPERTY(QColor light READ light NOTIFY changed)
    Q_PROPERTY(QColor midlight READ midlight NOTIFY changed)
    Q_PROPERTY(QColor mid READ mid NOTIFY changed)
    Q_PROPERTY(QColor dark READ dark NOTIFY changed)
    Q_PROPERTY(QColor shadow READ shadow NOTIFY changed)
    Q_PROPERTY(QColor placeholderText READ placeholderText NOTIFY changed)
    Q_PROPERTY(QColor toolTipBase READ toolTipBase NOTIFY changed)
    Q_PROPERTY(QColor toolTipText READ toolTipText NOTIFY changed)
    Q_PROPERTY(QColor link READ link NOTIFY changed)

public:
    explicit AppTheme(QObject *parent = nullptr);

    bool isDark() const;
    QColor accent() const { return blue(); }
    QColor blue() const { return isDark() ? QColor(0x0A, 0x84, 0xFF) : QColor(0x00, 0x7A, 0xFF); }
    QColor green() const { return isDark() ? QColor(0x30, 0xD1, 0x58) : QColor(0x28, 0xA7, 0x45); }
    QColor red() const { return isDark() ? QColor(0xFF, 0x45, 0x3A) : QColor(0xE0, 0x33, 0x2B); }
    QColor orange() const { return isDark() ? QColor(0xFF, 0x9F, 0x0A) : QColor(0xF0, 0x8C, 0x00); }
    QColor purple() const { return isDark() ? QColor(0xBF, 0x5A, 0xF2) : QColor(0xAF, 0x52, 0xDE); }
    QColor secondary() const;
    QColor card() const;
    QColor separator() const;

    QColor window() const { return palette().color(QPalette::Window); }
    QColor windowText() const { return palette().color(QPalette::WindowText); }
    QColor base() const { return palette().color(QPalette::Base); }
    QColor alternateBase() const { return palette().color(QPalette::AlternateBase); }
    QColor text() const { return palette().color(QPalette::Text); }
    QColor button() const { return palette().color(QPalette::Button); }
    QColor buttonText() const { return palette().color(QPalette::ButtonText); }
    QColor brightText() const { return palette().color(QPalette::BrightText); }
    QColor highlight() const { return palette().color(QPalette::Highlight); }
    QColor highlightedText() const { return palette().color(QPalette::HighlightedText); }
    QColor light() const { return palette().color(QPalette::Light); }
    QColor midlight() const { return palette().color(QPalette::Midlight); }
    QColor mid() const { return palette().color(QPalette::Mid); }
    QColor dark() const { return palette().color(QPalette::Dark); }
    QColor shadow() const { return palette().color(QPalette::Shadow); }
    QColor placeholderText() const { return palette().color(QPalette::PlaceholderText); }
    QColor toolTipBase() const { return palette().color(QPalette::ToolTipBase); }
    QColor toolTipText() const { return palette().color(QPalette::ToolTipText); }
    QColor link() const { return palette().color(QPalette::Link); }

    QVariantMap statusColors() const;

Q_SIGNALS:
    void changed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPalette palette() const;
};
