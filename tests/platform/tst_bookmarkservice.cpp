#include "platform/BookmarkService.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class TestBookmarkService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsTheFolderAgain()
    {
        QTemporaryDir parent;
        const QString path = parent.filePath("My Projects ✓");
        QVERIFY(QDir().mkpath(path));
        const auto bookmark = BookmarkService::create(path);
        QVERIFY(bookmark);

        const auto same = BookmarkService::resolve(*bookmark);
        QVERIFY(same);
        QCOMPARE(same->path, path);
        QVERIFY(!same->isStale);

        // Renamed in place: found under its new name, marked stale.
        QVERIFY(QDir().rename(path, parent.filePath("Projects 2026")));
        const auto renamed = BookmarkService::resolve(*bookmark);
        QVERIFY(renamed);
        QCOMPARE(renamed->path, parent.filePath("Projects 2026"));
        QVERIFY(renamed->isStale);

        // A different folder at the old path is not the bookmarked one.
        QVERIFY(QDir().mkpath(path));
        QCOMPARE(BookmarkService::resolve(*bookmark)->path, parent.filePath("Projects 2026"));

        // Gone altogether.
        QVERIFY(QDir(parent.filePath("Projects 2026")).removeRecursively());
        QCOMPARE(BookmarkService::resolve(*bookmark).has_value(), false);

        // Another folder that holds the inode number the bookmarked one had
        // (a file system reuses them) is not it: only a folder born when it
        // was is, and a bookmark that does not know when stays unresolved.
        QVERIFY(QDir().mkpath(parent.filePath("Made later")));
        const QByteArray later = BookmarkService::create(parent.filePath("Made later")).value();
        const QByteArray reused = QByteArray(later).replace("Made later", "Gone");
        QCOMPARE(BookmarkService::resolve(reused)->path, parent.filePath("Made later")); // the same folder, renamed
        const QRegularExpression birth("\"birth\":\"[0-9.]+\",?");
        QVERIFY(QString::fromUtf8(reused).contains(birth));
        const auto withBirth = [&](const QString &value) { return QString::fromUtf8(reused).replace(birth, value).toUtf8(); };
        QCOMPARE(BookmarkService::resolve(withBirth("\"birth\":\"1.000000000\",")).has_value(), false);
        QCOMPARE(BookmarkService::resolve(withBirth("")).has_value(), false);

        // Nothing to bookmark, or no bookmark of ours.
        QCOMPARE(BookmarkService::create("/nonexistent/folder"), std::nullopt);
        QCOMPARE(BookmarkService::resolve(QByteArray()).has_value(), false);
        QCOMPARE(BookmarkService::resolve("bookmark bytes").has_value(), false);
        QCOMPARE(BookmarkService::resolve("nimbrell-bookmark/1\n{\"path\":\"/tmp\"}").has_value(), false);
    }
};

QTEST_APPLESS_MAIN(TestBookmarkService)
#include "tst_bookmarkservice.moc"
