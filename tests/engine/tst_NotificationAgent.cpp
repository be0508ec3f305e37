#include "DBusSession.h"
#include "LogCapture.h"
#include "async/Blocking.h"
#include "engine/NotificationAgent.h"

#include <QTest>

using namespace Qt::StringLiterals;

class NotificationAgentTest final : public QObject {
    Q_OBJECT

    DBusSession bus;
    NotificationRecorder recorder;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(bus.start(), "dbus-daemon did not start");
        QVERIFY(bus.registerRecorder(&recorder));
    }
    void init() { recorder.calls.clear(); }

    // clang-format off
    void postBatchComplete_data() {
        QTest::addColumn<int>("converted");
        QTest::addColumn<int>("skipped");
        QTest::addColumn<int>("failed");
        QTest::addColumn<QString>("body"); // null: nothing posted
        QTest::newRow("all three, in their order") << 3 << 1 << 2 << u"3 converted, 1 skipped, 2 failed"_s;
        QTest::newRow("one converted keeps its wording") << 1 << 0 << 0 << u"1 converted"_s;
        QTest::newRow("failures alone") << 0 << 0 << 2 << u"2 failed"_s;
        QTest::newRow("skipped and failed") << 0 << 2 << 1 << u"2 skipped, 1 failed"_s;
        QTest::newRow("all zero posts nothing") << 0 << 0 << 0 << QString();
    }
    // clang-format on
    void postBatchComplete() {
        QFETCH(int, converted);
        QFETCH(int, skipped);
        QFETCH(int, failed);
        QFETCH(QString, body);
        LogCapture log;
        {
            NotificationAgent agent;
            agent.postBatchComplete(converted, skipped, failed);
            if (!body.isNull()) {
                QTRY_COMPARE(recorder.calls.size(), 1);
            }
        }
        if (body.isNull()) {
            QTest::qWait(200);
            QCOMPARE(recorder.calls.size(), 0);
            QCOMPARE(log.count("com.morvane.NotificationAgent", QString()), 0);
            return;
        }
        const NotificationRecorder::Call& call = recorder.calls.first();
        QCOMPARE(call.appName, u"Morvane"_s);
        QCOMPARE(call.summary, u"Morvane — Batch Complete"_s);
        QCOMPARE(call.body, body);
        QCOMPARE(call.replacesId, 0u);
        QVERIFY(call.hints.contains(u"sound-name"_s));
    }

    void eachBatchGetsANewNotification() {
        NotificationAgent agent;
        agent.postBatchComplete(1, 0, 0);
        agent.postBatchComplete(1, 0, 0);
        QTRY_COMPARE(recorder.calls.size(), 2);
        QCOMPARE(recorder.calls[0].replacesId, 0u);
        QCOMPARE(recorder.calls[1].replacesId, 0u);
        QVERIFY(recorder.calls[0].hints.value(u"x-morvane-request"_s) !=
                recorder.calls[1].hints.value(u"x-morvane-request"_s));
    }

    void authorizationIsQuietWhenTheServiceAnswers() {
        LogCapture log;
        NotificationAgent agent;
        Async::waitFor(agent.requestAuthorization());
        QCOMPARE(log.count("com.morvane.NotificationAgent", QString()), 0);
    }

    void withoutAServiceOneErrorLineAndNothingElse() {
        bus.unregisterRecorder();
        LogCapture log;
        NotificationAgent agent;
        Async::waitFor(agent.requestAuthorization());
        QCOMPARE(log.count("com.morvane.NotificationAgent", u"Notification permission error: "_s),
                 1);
        agent.postBatchComplete(2, 0, 0);
        QTRY_COMPARE(log.count("com.morvane.NotificationAgent",
                               u"Failed to post batch-complete notification: "_s),
                     1);
        QVERIFY(bus.registerRecorder(&recorder));
    }
};

QTEST_GUILESS_MAIN(NotificationAgentTest)
#include "tst_NotificationAgent.moc"
