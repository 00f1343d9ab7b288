#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QtQuickTest/quicktest.h>

// Looking at a Qt Quick window the way a user does: the texts it shows and its
// controls, by walking the visual tree (delegates and popup contents are not
// all QObject children of the window).

inline void collectTexts(QQuickItem *item, QStringList &texts)
{
    if (!item->isVisible())
        return;
    if (item->inherits("QQuickText")) {
        const QString text = item->property("text").toString();
        if (!text.isEmpty())
            texts.append(text);
    }
    for (QQuickItem *child : item->childItems())
        collectTexts(child, texts);
}

// Every text the window shows now, popups included.
inline QStringList visibleTexts(QQuickWindow *window)
{
    QStringList texts;
    collectTexts(window->contentItem(), texts);
    return texts;
}

// Those of the expected texts the window does not show now: none when it shows
// them all (QCOMPARE names the ones it lacks).
inline QStringList missing(QQuickWindow *window, const QStringList &expected)
{
    const QStringList texts = visibleTexts(window);
    QStringList absent;
    for (const QString &text : expected) {
        if (!texts.contains(text))
            absent.append(text);
    }
    return absent;
}

// The first visible item that matches, in the order of the visual tree.
inline QQuickItem *findItem(QQuickWindow *window, const std::function<bool(QQuickItem *)> &matches)
{
    QList<QQuickItem *> pending{window->contentItem()};
    while (!pending.isEmpty()) {
        QQuickItem *candidate = pending.takeFirst();
        if (!candidate->isVisible())
            continue;
        if (matches(candidate))
            return candidate;
        pending.append(candidate->childItems());
    }
    return nullptr;
}

// The visible text item whose text starts so.
inline QQuickItem *textItem(QQuickWindow *window, const QString &startingWith)
{
    return findItem(window, [&](QQuickItem *item) {
        return item->inherits("QQuickText") && item->property("text").toString().startsWith(startingWith);
    });
}

// The visible item with this object name (the last one, when a pane was replaced).
inline QQuickItem *item(QQuickWindow *window, const char *name)
{
    QQuickItem *found = nullptr;
    findItem(window, [&](QQuickItem *candidate) {
        if (candidate->objectName() == QLatin1String(name))
            found = candidate;
        return false;
    });
    return found;
}

// Scrolls the flickable that holds `target` until it shows, as a user would.
inline void scrollIntoView(QQuickWindow *window, QQuickItem *target)
{
    for (QQuickItem *up = target->parentItem(); up; up = up->parentItem()) {
        if (!up->inherits("QQuickFlickable"))
            continue;
        const qreal top = target->mapToItem(up, QPointF()).y();
        if (top < 0 || top + target->height() > up->height()) {
            const qreal contentY = up->property("contentY").toReal() + top - up->height() / 3;
            up->setProperty("contentY", std::max<qreal>(0, contentY));
            QVERIFY(QQuickTest::qWaitForPolish(window));
        }
        return;
    }
}

inline void click(QQuickWindow *window, QQuickItem *target)
{
    QVERIFY(target);
    QVERIFY(target->isEnabled());
    // A pane that was just loaded lays itself out when the window is next
    // polished: until then its controls are not where they will be drawn.
    QVERIFY(QQuickTest::qWaitForPolish(window));
    QTRY_VERIFY(target->width() > 0 && target->height() > 0);
    scrollIntoView(window, target);
    const auto center = [&] { return target->mapToScene(QPointF(target->width() / 2, target->height() / 2)); };
    QTRY_VERIFY(QRectF(0, 0, window->width(), window->height()).contains(center()));
    QTest::mouseClick(window, Qt::LeftButton, {}, center().toPoint());
}

inline void type(QQuickWindow *window, QQuickItem *field, const QString &text)
{
    QVERIFY(field);
    // A pane that was just loaded may still be settling into place.
    QTRY_VERIFY_WITH_TIMEOUT(([&] {
                                 if (!field->hasActiveFocus())
                                     click(window, field);
                                 return field->hasActiveFocus();
                             }()),
                             5000);
    for (const QChar c : text)
        QTest::keyClick(window, c.toLatin1());
}
