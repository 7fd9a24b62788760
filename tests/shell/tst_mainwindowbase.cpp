#include "MainWindowBase.h"
#include "PlatformGeometryProbe.h"
#include "PointerDriver.h"

#include <QtTest>
#include <memory>

namespace {

// 400 by 300 at (300, 200): the last pixel column is x 699, the last row y 499.
const QRect kStart(300, 200, 400, 300);
const QSize kMinimum(200, 150);

} // namespace

class tst_MainWindowBase final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void hoverShowsZoneCursor_data();
    void hoverShowsZoneCursor();
    void leftDragMovesTheGrabbedEdges_data();
    void leftDragMovesTheGrabbedEdges();
    void leftReleaseEndsTheResize();
    void edgeStopsShortOfTheMinimum_data();
    void edgeStopsShortOfTheMinimum();
    void otherButtonPatternsOnlyHover_data();
    void otherButtonPatternsOnlyHover();
    void otherButtonReleaseKeepsTheResizeGoing();
    void pressInsideStartsNothing();
    void unhandledChildPressReachesTheWindow();

private:
    bool settlesAt(const QRect& expected) const;
    QString where() const;

    std::unique_ptr<MainWindowBase> m_window;
    std::unique_ptr<PointerDriver> m_pointer;
    PlatformGeometryProbe* m_probe = nullptr;
};

void tst_MainWindowBase::init()
{
    m_window = std::make_unique<MainWindowBase>();
    m_window->setMinimumSize(kMinimum);
    m_window->resize(320, 240);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));

    m_probe = new PlatformGeometryProbe(m_window.get());
    m_window->setGeometry(kStart);
    QVERIFY(m_probe->waitFor(kStart));
    QCOMPARE(m_window->geometry(), kStart);

    m_pointer = std::make_unique<PointerDriver>(m_window.get());
}

void tst_MainWindowBase::cleanup()
{
    m_pointer.reset();
    m_window.reset();
}

// Waits until the window system has reported the geometry, so no older report is still queued.
bool tst_MainWindowBase::settlesAt(const QRect& expected) const
{
    return m_probe->waitFor(expected) && m_window->geometry() == expected;
}

QString tst_MainWindowBase::where() const
{
    const QRect g = m_window->geometry();
    return QString("window at %1,%2 %3x%4").arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height());
}

void tst_MainWindowBase::hoverShowsZoneCursor_data()
{
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<Qt::CursorShape>("cursor");

    QTest::newRow("top left corner") << QPoint(300, 200) << Qt::SizeFDiagCursor;
    QTest::newRow("top left, inner end of both bands") << QPoint(302, 202) << Qt::SizeFDiagCursor;
    QTest::newRow("bottom right corner") << QPoint(699, 499) << Qt::SizeFDiagCursor;
    QTest::newRow("bottom right, inner end") << QPoint(697, 497) << Qt::SizeFDiagCursor;
    QTest::newRow("bottom left corner") << QPoint(300, 499) << Qt::SizeBDiagCursor;
    QTest::newRow("top right corner") << QPoint(699, 200) << Qt::SizeBDiagCursor;
    QTest::newRow("left edge") << QPoint(300, 350) << Qt::SizeHorCursor;
    QTest::newRow("left band, inner end") << QPoint(302, 350) << Qt::SizeHorCursor;
    QTest::newRow("just right of the left band") << QPoint(303, 350) << Qt::ArrowCursor;
    QTest::newRow("right edge") << QPoint(699, 350) << Qt::SizeHorCursor;
    QTest::newRow("right band, inner end") << QPoint(697, 350) << Qt::SizeHorCursor;
    QTest::newRow("just left of the right band") << QPoint(696, 350) << Qt::ArrowCursor;
    QTest::newRow("top edge") << QPoint(500, 200) << Qt::SizeVerCursor;
    QTest::newRow("top band, inner end") << QPoint(500, 202) << Qt::SizeVerCursor;
    QTest::newRow("just below the top band") << QPoint(500, 203) << Qt::ArrowCursor;
    QTest::newRow("bottom edge") << QPoint(500, 499) << Qt::SizeVerCursor;
    QTest::newRow("bottom band, inner end") << QPoint(500, 497) << Qt::SizeVerCursor;
    QTest::newRow("inside") << QPoint(500, 350) << Qt::ArrowCursor;
    QTest::newRow("corner bands just missed") << QPoint(303, 203) << Qt::ArrowCursor;
}

void tst_MainWindowBase::hoverShowsZoneCursor()
{
    QFETCH(QPoint, point);
    QFETCH(Qt::CursorShape, cursor);

    // Start from a cursor that no row expects, so a move that isn't seen fails every row.
    m_window->setCursor(Qt::WaitCursor);
    m_pointer->moveTo(point);
    QCOMPARE(m_window->cursor().shape(), cursor);
    QCOMPARE(m_window->geometry(), kStart);
}

void tst_MainWindowBase::leftDragMovesTheGrabbedEdges_data()
{
    QTest::addColumn<QPoint>("pressAt");
    QTest::addColumn<QPoint>("dragTo");
    QTest::addColumn<QRect>("expected");

    QTest::newRow("right edge out") << QPoint(699, 350) << QPoint(749, 350) << QRect(300, 200, 449, 300);
    QTest::newRow("right edge in") << QPoint(699, 350) << QPoint(599, 360) << QRect(300, 200, 299, 300);
    QTest::newRow("bottom edge out") << QPoint(500, 499) << QPoint(520, 549) << QRect(300, 200, 400, 349);
    QTest::newRow("left edge out") << QPoint(300, 350) << QPoint(250, 340) << QRect(250, 200, 450, 300);
    QTest::newRow("left edge in") << QPoint(301, 350) << QPoint(400, 350) << QRect(400, 200, 300, 300);
    QTest::newRow("top edge out") << QPoint(500, 200) << QPoint(480, 150) << QRect(300, 150, 400, 350);
    QTest::newRow("top edge in") << QPoint(500, 201) << QPoint(500, 260) << QRect(300, 260, 400, 240);
    QTest::newRow("top left corner") << QPoint(300, 200) << QPoint(280, 190) << QRect(280, 190, 420, 310);
    QTest::newRow("bottom left corner") << QPoint(300, 499) << QPoint(280, 520) << QRect(280, 200, 420, 320);
    QTest::newRow("bottom right corner") << QPoint(699, 499) << QPoint(720, 530) << QRect(300, 200, 420, 330);
    QTest::newRow("top right corner") << QPoint(699, 200) << QPoint(720, 180) << QRect(300, 180, 420, 320);
}

void tst_MainWindowBase::leftDragMovesTheGrabbedEdges()
{
    QFETCH(QPoint, pressAt);
    QFETCH(QPoint, dragTo);
    QFETCH(QRect, expected);

    m_pointer->press(pressAt);
    QCOMPARE(QWidget::mouseGrabber(), m_window.get());
    m_pointer->moveTo(dragTo);
    QVERIFY2(settlesAt(expected), qPrintable(where()));
    m_pointer->release(dragTo);
}

void tst_MainWindowBase::leftReleaseEndsTheResize()
{
    m_pointer->press(QPoint(699, 350));
    m_pointer->moveTo(QPoint(749, 350));
    QVERIFY2(settlesAt(QRect(300, 200, 449, 300)), qPrintable(where()));
    m_pointer->release(QPoint(749, 350));

    QCOMPARE(QWidget::mouseGrabber(), nullptr);
    QCOMPARE(m_window->cursor().shape(), Qt::ArrowCursor);

    // A later hover over the new right edge resizes nothing.
    m_pointer->moveTo(QPoint(748, 350));
    QCOMPARE(m_window->cursor().shape(), Qt::SizeHorCursor);
    m_pointer->moveTo(QPoint(640, 350));
    QCOMPARE(m_window->cursor().shape(), Qt::ArrowCursor);
    QCOMPARE(m_window->geometry(), QRect(300, 200, 449, 300));
}

void tst_MainWindowBase::edgeStopsShortOfTheMinimum_data()
{
    QTest::addColumn<QPoint>("pressAt");
    QTest::addColumn<QPoint>("allowedTo");
    QTest::addColumn<QRect>("allowed");
    QTest::addColumn<QPoint>("pastMinimum");

    // Right edge at 699, minimum width 200: 699 - 450 = 249 passes, 699 - 520 = 179 doesn't.
    QTest::newRow("left edge") << QPoint(300, 350) << QPoint(450, 350) << QRect(450, 200, 250, 300) << QPoint(520, 350);
    // Exactly the minimum fails the strict test too.
    QTest::newRow("left edge at the minimum")
        << QPoint(300, 350) << QPoint(450, 350) << QRect(450, 200, 250, 300) << QPoint(499, 350);
    // Bottom row at 499, minimum height 150: 499 - 300 = 199 passes, 499 - 400 = 99 doesn't.
    QTest::newRow("top edge") << QPoint(500, 200) << QPoint(500, 300) << QRect(300, 300, 400, 200) << QPoint(500, 400);
    QTest::newRow("top edge at the minimum")
        << QPoint(500, 200) << QPoint(500, 300) << QRect(300, 300, 400, 200) << QPoint(500, 349);
    QTest::newRow("top left corner, both held")
        << QPoint(300, 200) << QPoint(450, 300) << QRect(450, 300, 250, 200) << QPoint(600, 450);
}

void tst_MainWindowBase::edgeStopsShortOfTheMinimum()
{
    QFETCH(QPoint, pressAt);
    QFETCH(QPoint, allowedTo);
    QFETCH(QRect, allowed);
    QFETCH(QPoint, pastMinimum);

    m_pointer->press(pressAt);
    m_pointer->moveTo(allowedTo);
    QVERIFY2(settlesAt(allowed), qPrintable(where()));

    // The edge stays where the last passing move left it: no jump to the pointer or the minimum.
    m_pointer->moveTo(pastMinimum);
    QCOMPARE(m_window->geometry(), allowed);
    m_pointer->release(pastMinimum);
}

void tst_MainWindowBase::otherButtonPatternsOnlyHover_data()
{
    QTest::addColumn<Qt::MouseButtons>("held");

    QTest::newRow("right alone") << Qt::MouseButtons(Qt::RightButton);
    QTest::newRow("middle alone") << Qt::MouseButtons(Qt::MiddleButton);
    QTest::newRow("left and right") << (Qt::LeftButton | Qt::RightButton);
}

void tst_MainWindowBase::otherButtonPatternsOnlyHover()
{
    QFETCH(Qt::MouseButtons, held);

    // Pressed on the right edge, left first where it takes part.
    const QPoint edge(699, 350);
    for (Qt::MouseButton button : { Qt::LeftButton, Qt::RightButton, Qt::MiddleButton }) {
        if (held & button) {
            m_pointer->press(edge, button);
        }
    }
    QCOMPARE(m_pointer->buttons(), held);

    // Each move refreshes the zone under the pointer and resizes nothing.
    m_pointer->moveTo(QPoint(749, 350));
    QCOMPARE(m_window->cursor().shape(), Qt::ArrowCursor);
    m_pointer->moveTo(QPoint(500, 499));
    QCOMPARE(m_window->cursor().shape(), Qt::SizeVerCursor);
    m_pointer->moveTo(QPoint(300, 200));
    QCOMPARE(m_window->cursor().shape(), Qt::SizeFDiagCursor);
    QCOMPARE(m_window->geometry(), kStart);

    for (Qt::MouseButton button : { Qt::RightButton, Qt::MiddleButton, Qt::LeftButton }) {
        if (held & button) {
            m_pointer->release(QPoint(300, 200), button);
        }
    }
}

void tst_MainWindowBase::otherButtonReleaseKeepsTheResizeGoing()
{
    m_pointer->press(QPoint(699, 350));
    m_pointer->moveTo(QPoint(720, 350));
    QVERIFY2(settlesAt(QRect(300, 200, 420, 300)), qPrintable(where()));

    for (Qt::MouseButton button : { Qt::RightButton, Qt::MiddleButton }) {
        m_pointer->press(QPoint(720, 350), button);
        m_pointer->release(QPoint(720, 350), button);
    }
    QCOMPARE(QWidget::mouseGrabber(), m_window.get());
    QCOMPARE(m_window->cursor().shape(), Qt::SizeHorCursor);

    m_pointer->moveTo(QPoint(740, 350));
    QVERIFY2(settlesAt(QRect(300, 200, 440, 300)), qPrintable(where()));
    m_pointer->release(QPoint(740, 350));
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
}

void tst_MainWindowBase::pressInsideStartsNothing()
{
    m_pointer->press(QPoint(500, 350));
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
    QCOMPARE(m_window->cursor().shape(), Qt::ArrowCursor);

    // Dragging across the right edge and beyond neither resizes nor moves the window.
    m_pointer->moveTo(QPoint(699, 350));
    m_pointer->moveTo(QPoint(760, 400));
    QCOMPARE(m_window->geometry(), kStart);
    m_pointer->release(QPoint(760, 400));
}

void tst_MainWindowBase::unhandledChildPressReachesTheWindow()
{
    // A plain child covering the window neither tracks the mouse nor takes presses.
    auto* body = new QWidget;
    m_window->setCentralWidget(body);
    QTRY_VERIFY(body->isVisible());
    QTRY_COMPARE(body->geometry(), m_window->rect());

    // Hovering over the child stays with the child; the window's cursor is found at the press.
    m_pointer->moveTo(QPoint(500, 499));
    QCOMPARE(m_window->cursor().shape(), Qt::ArrowCursor);
    m_pointer->press(QPoint(500, 499));
    QCOMPARE(m_window->cursor().shape(), Qt::SizeVerCursor);
    QCOMPARE(QWidget::mouseGrabber(), m_window.get());

    m_pointer->moveTo(QPoint(500, 530));
    QVERIFY2(settlesAt(QRect(300, 200, 400, 330)), qPrintable(where()));
    m_pointer->release(QPoint(500, 530));
}

QTEST_MAIN(tst_MainWindowBase)
#include "tst_mainwindowbase.moc"
