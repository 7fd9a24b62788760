#include "DataThread.h"
#include "FileProbe.h"
#include "PipelineDriver.h"

#include <QTemporaryDir>
#include <QtTest>

using PipelineDriver::frameFileContents;
using PipelineDriver::pushAndDrain;

namespace {

// One push of a framing scenario. With framesBefore set, the push waits until that many frame
// files exist; a file written by the silence flush thus proves that the silence has happened.
struct FramingStep
{
    QByteArray bytes;
    int framesBefore = -1;
};
using FramingSteps = QVector<FramingStep>;

FramingSteps chunks(const QByteArrayList& pushes)
{
    FramingSteps steps;
    for (const QByteArray& bytes : pushes) {
        steps.append({ bytes, -1 });
    }
    return steps;
}

FramingSteps operator+(FramingSteps steps, const FramingStep& step)
{
    steps.append(step);
    return steps;
}

FramingStep afterFrames(int count, const QByteArray& bytes)
{
    return { bytes, count };
}

} // namespace

Q_DECLARE_METATYPE(FramingStep)
Q_DECLARE_METATYPE(FramingSteps)

class tst_dataframing final : public QObject
{
    Q_OBJECT

private slots:
    void framesReachFiles_data();
    void framesReachFiles();
    void equalStartAndEndNeverFrame();
};

void tst_dataframing::framesReachFiles_data()
{
    QTest::addColumn<QString>("start");
    QTest::addColumn<QString>("end");
    QTest::addColumn<FramingSteps>("steps");
    QTest::addColumn<QByteArrayList>("frames");

    const QByteArray forty(40, 'k');
    const QByteArray padding(126, 'a');

    QTest::newRow("one frame in one chunk") << "#"
                                            << "$" << chunks({ "#ABC$" }) << QByteArrayList { "ABC" };
    QTest::newRow("frame completed by the next chunk")
        << "#"
        << "$" << chunks({ "#ABC$#DE", "F$" }) << QByteArrayList { "ABC", "DEF" };
    QTest::newRow("text in front of the start is dropped")
        << "#"
        << "$" << chunks({ "ZZ#AB", "D$" }) << QByteArrayList { "ABD" };
    QTest::newRow("text behind a stray end is carried") << "#"
                                                        << "$" << chunks({ "ABC$XY", "#D$" }) << QByteArrayList { "D" };
    QTest::newRow("empty frame is not written") << "#"
                                                << "$" << chunks({ "#$", "#Z$" }) << QByteArrayList { "Z" };
    QTest::newRow("frame behind an empty one comes at the silence")
        << "#"
        << "$" << chunks({ "#$#A$" }) + afterFrames(1, "#Z$") << QByteArrayList { "A", "Z" };
    QTest::newRow("second start belongs to the frame") << "#"
                                                       << "$" << chunks({ "##A$" }) << QByteArrayList { "#A" };
    QTest::newRow("silence writes the second frame and loses the third")
        << "#"
        << "$" << chunks({ "#ABC$#DEF$#GHI$" }) + afterFrames(2, "#Z$") << QByteArrayList { "ABC", "DEF", "Z" };
    QTest::newRow("each chunk yields one more frame")
        << "#"
        << "$" << chunks({ "#ABC$#DEF$#GHI$", "x" }) << QByteArrayList { "ABC", "DEF", "GHI" };
    QTest::newRow("long open start waits for its end")
        << "#"
        << "$" << chunks({ "#" + forty, "$" }) << QByteArrayList { forty };
    QTest::newRow("long open start behind other text")
        << "#"
        << "$" << chunks({ "pre#" + forty, "$" }) << QByteArrayList { forty };
    QTest::newRow("long open start is dropped at the silence")
        << "#"
        << "$" << chunks({ "#X$#Y$#" + forty }) + afterFrames(2, "$") + FramingStep { "#Z$" }
        << QByteArrayList { "X", "Y", "Z" };
    QTest::newRow("everything behind the first end is carried")
        << "#"
        << "$" << chunks({ "x$y#" + forty, "$" }) << QByteArrayList { forty };
    QTest::newRow("short start is carried from the start on")
        << "#"
        << "$" << chunks({ "zz#0123456789", "$" }) << QByteArrayList { "0123456789" };
    QTest::newRow("two-character markers") << "<<"
                                           << ">>" << chunks({ "<<A>>", "<<Z>>" }) << QByteArrayList { "<A", "<Z" };
    QTest::newRow("zero byte ends the chunk's text")
        << "#"
        << "$" << chunks({ QByteArray("#A\0B$", 5), "C$" }) << QByteArrayList { "AC" };
    QTest::newRow("UTF-8 sequence cut by the chunk's end") << "#"
                                                           << "$" << chunks({ "#" + padding + "\xC3", "\xA9$" })
                                                           << QByteArrayList { padding + "\xEF\xBF\xBD\xEF\xBF\xBD" };
    QTest::newRow("invalid UTF-8 becomes replacement characters") << "#"
                                                                  << "$"
                                                                  << chunks({ "#A\xFF\xFE"
                                                                              "B$" })
                                                                  << QByteArrayList { "A\xEF\xBF\xBD\xEF\xBF\xBD"
                                                                                      "B" };
    QTest::newRow("multi-byte characters keep their encoding")
        << "#"
        << "$" << chunks({ "#\xE4\xB8\xAD\xC3\xA9$" }) << QByteArrayList { "\xE4\xB8\xAD\xC3\xA9" };
    QTest::newRow("line ends are taken out of the frame")
        << "#"
        << "$" << chunks({ "#A\r\nB\rC\nD$" }) << QByteArrayList { "ABCD" };
    QTest::newRow("frame of line ends alone gives the prefix only")
        << "#"
        << "$" << chunks({ "#\r\n$" }) << QByteArrayList { "" };
}

void tst_dataframing::framesReachFiles()
{
    QFETCH(QString, start);
    QFETCH(QString, end);
    QFETCH(FramingSteps, steps);
    QFETCH(QByteArrayList, frames);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setKeyOutput(false);
    thread.setStartEndChar(start, end);
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    for (const FramingStep& step : steps) {
        if (step.framesBefore >= 0) {
            QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(dir.path()).size(), step.framesBefore, 15000);
        }
        QVERIFY(pushAndDrain(thread, step.bytes));
    }
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir.path()), frameFileContents(frames), 15000);

    QVERIFY(thread.stopThread());
}

void tst_dataframing::equalStartAndEndNeverFrame()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DataThread thread;
    thread.setStartEndChar("#", "#");
    thread.setFileDir(dir.path());
    QVERIFY(thread.startThread());

    // A control worker with distinct markers gets the same stream just behind it; once the
    // control's silence flush has written, the worker under test has had its silence too.
    QTemporaryDir controlDir;
    QVERIFY(controlDir.isValid());
    DataThread control;
    control.setStartEndChar("#", "$");
    control.setFileDir(controlDir.path());
    QVERIFY(control.startThread());

    for (const QByteArray& bytes : { QByteArray("#A#"), QByteArray("#B##C#"), QByteArray("#D$#E$") }) {
        QVERIFY(pushAndDrain(thread, bytes));
        QVERIFY(pushAndDrain(control, bytes));
    }
    QTRY_COMPARE_WITH_TIMEOUT(
        FileProbe::textFileContents(controlDir.path()), frameFileContents({ "A##B##C##D", "E" }), 15000);
    QVERIFY(control.stopThread());
    QVERIFY(thread.stopThread());
    QCOMPARE(FileProbe::textFiles(dir.path()), QStringList());
}

QTEST_GUILESS_MAIN(tst_dataframing)
#include "tst_dataframing.moc"
