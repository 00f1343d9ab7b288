#pragma once

#include <QColor>
#include <QObject>
#include <QPalette>
#include <QtQml/qqmlregistration.h>

// Colours the screens share: the status colours and one accent, each in a
// light and a dark variant that follow the desktop's palette.
class AppTheme : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(bool dark READ isDark NOTIFY changed)
    Q_PROPERTY(QColor accent READ accent NOTIFY changed)
    Q_PROPERTY(QColor blue READ blue NOTIFY changed)
    Q_PROPERTY(QColor green READ green NOTIFY changed)
    Q_PROPERTY(QColor red READ red NOTIFY changed)
    Q_PROPERTY(QColor orange READ orange NOTIFY changed)
    Q_PROPERTY(QColor purple READ purple NOTIFY changed)
    Q_PROPERTY(QColor secondary READ secondary NOTIFY changed)
    Q_PROPERTY(QColor card READ card NOTIFY changed)
    Q_PROPERTY(QColor separator READ separator NOTIFY changed)

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

    // The colour of a folder status ("idle", "syncing", "error", "success").
    Q_INVOKABLE QColor statusColor(const QString &status) const;

Q_SIGNALS:
    void changed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPalette palette() const;
};
