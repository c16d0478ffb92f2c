#include "app/Log.h"
#include "ui/StyleSheet.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestStyle : public QObject {
    Q_OBJECT

private slots:
    void scaleFactorFollowsAvailableHeight_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<double>("factor");
        QTest::newRow("no screen") << 0 << 1.0;
        QTest::newRow("negative") << -5 << 1.0;
        QTest::newRow("tiny clamps to 0.7") << 480 << 0.7;
        QTest::newRow("768") << 768 << 0.768;
        QTest::newRow("1000") << 1000 << 1.0;
        QTest::newRow("1080 never enlarges") << 1080 << 1.0;
        QTest::newRow("2160") << 2160 << 1.0;
    }

    void scaleFactorFollowsAvailableHeight()
    {
        QFETCH(int, height);
        QFETCH(double, factor);
        QCOMPARE(zl::scaleForHeight(height), factor);
    }

    void pixelSizesAreRewritten_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<QString>("in");
        QTest::addColumn<QString>("out");
        QTest::newRow("768: 10px to 8px, 1px stays") << 0.768 << "QLabel { font-size: 10px; border: 1px solid #0ff; }"
                                                     << "QLabel { font-size: 8px; border: 1px solid #0ff; }";
        QTest::newRow("several on a line") << 0.7 << "padding: 4px 10px;margin:-5px 0"
                                           << "padding: 3px 7px;margin:-4px 0";
        QTest::newRow("zero becomes one") << 0.9 << "height: 0px;"
                                          << "height: 1px;";
        QTest::newRow("no unit untouched") << 0.7 << "font-size: 13pt; width: 100"
                                           << "font-size: 13pt; width: 100";
        QTest::newRow("beyond int counts as 0") << 0.8 << "99999999999px x"
                                                << "1px x";
        QTest::newRow("text between kept") << 0.5 << "a10pxb20pxc"
                                           << "a5pxb10pxc";
        QTest::newRow("empty") << 0.5 << ""
                               << "";
    }

    void pixelSizesAreRewritten()
    {
        QFETCH(double, factor);
        QFETCH(QString, in);
        QFETCH(QString, out);
        QCOMPARE(zl::scalePixelSizes(in, factor), out);
    }

    void logFolderRules()
    {
        qputenv("XDG_STATE_HOME", "/state");
        const QString state = "/state/zephyrlake/log";
        // Started from a folder named "build": the log goes beside it; only an exact "build" counts.
        QCOMPARE(zl::logFolders({}, "/tree/build"), (QStringList{"/tree/log", state}));
        QCOMPARE(zl::logFolders({}, "/x/build-asan"), (QStringList{"/x/build-asan/log", state}));
        // Anywhere else below the program's folder; a configured folder comes first.
        QCOMPARE(zl::logFolders("/mine/logs", "/opt/bin"), (QStringList{"/mine/logs", "/opt/bin/log", state}));
        qunsetenv("XDG_STATE_HOME");
        QCOMPARE(zl::logFolders({}, "/opt/bin").last(), QDir::homePath() + "/.local/state/zephyrlake/log");
    }

    void oldLogsArePrunedToTheNewest()
    {
        QTemporaryDir tmp;
        for (int i = 0; i < 33; ++i)
            QFile(tmp.filePath(QStringLiteral("zl-2611%1-120000.log").arg(i + 10))).open(QIODevice::WriteOnly);
        QFile(tmp.filePath("notes.txt")).open(QIODevice::WriteOnly);
        zl::pruneLogs(tmp.path(), 30);
        const QStringList left = QDir(tmp.path()).entryList(QDir::Files, QDir::Name);
        QCOMPARE(left.size(), 31);
        QCOMPARE(left.first(), QString("notes.txt"));
        QCOMPARE(left.at(1), QString("zl-261113-120000.log"));
    }
};

QTEST_GUILESS_MAIN(TestStyle)
#include "tst_style.moc"
