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
    void initTestCase() { QVERIFY(bus.start() && bus.registerRecorder(&recorder)); }

    void batchCompleteIsPostedWithItsCounts() {
        NotificationAgent agent;
        agent.postBatchComplete(0, 0, 0); // nothing to tell: were it posted, it would come first
        agent.postBatchComplete(1, 1, 1);
        QTRY_COMPARE(recorder.calls.size(), 1);
        QCOMPARE(recorder.calls[0].summary, u"Morvane — Batch Complete"_s);
        QCOMPARE(recorder.calls[0].body, u"1 converted, 1 skipped, 1 failed"_s);
    }

    void withoutAServiceOneErrorLine() {
        bus.unregisterRecorder();
        LogCapture log;
        NotificationAgent agent;
        Async::waitFor(agent.requestAuthorization());
        QCOMPARE(log.count("com.morvane.NotificationAgent", u"Notification permission error: "_s),
                 1);
    }
};

QTEST_GUILESS_MAIN(NotificationAgentTest)
#include "tst_NotificationAgent.moc"
