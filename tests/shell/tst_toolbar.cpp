#include "MainWindowBase.h"
#include "PlatformGeometryProbe.h"
#include "PointerDriver.h"
#include "ToolBar.h"

#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtTest>
#include <memory>

namespace {

const QRect kStart(200, 150, 600, 400);

// Counts the events of the given types that reach an object, its own or passed on by a child.
class EventCounter final : public QObject
{
public:
    EventCounter(QObject* target, std::initializer_list<QEvent::Type> types)
        : QObject(target)
        , m_types(types)
    {
        target->installEventFilter(this);
    }

    int count() const { return m_count; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (m_types.contains(event->type())) {
            ++m_count;
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QList<QEvent::Type> m_types;
    int m_count = 0;
};

} // namespace

// A frameless window laid out as the program's: the title bar across the top, a body below.
class tst_ToolBar final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void constructionShowsEmptyTitleAndButtons();
    void setTitleAndRetranslate();
    void buttonVisibility();
    void leftDragMovesTheWindowByEachStep();
    void leftDragWithRightHeldMovesToo();
    void rightDragMovesNothing();
    void pressOnTheBarNeverReachesTheWindow_data();
    void pressOnTheBarNeverReachesTheWindow();
    void pressOnAButtonNeverDrags();
    void bodyPressStillResizesTheWindow();
    void enteringTheBarShowsTheArrow();
    void doubleClickTogglesMaximised();
    void doubleClickHeldDoesNotDrag();
    void maxButtonTogglesAndRefreshesTheStyleSheet();
    void maxButtonKeepsItsOwnRecord();
    void dragWhileMaximisedMovesAndKeepsTheRecord();
    void minButtonMinimises();
    void closeButtonClosesEveryWindow();

private:
    QPoint globalCenter(const QWidget* widget) const;
    bool settlesAt(const QRect& expected) const;
    QString where() const;

    std::unique_ptr<MainWindowBase> m_window;
    std::unique_ptr<PointerDriver> m_pointer;
    ToolBar* m_toolBar = nullptr;
    QWidget* m_body = nullptr;
    QLabel* m_title = nullptr;
    QToolButton* m_minBtn = nullptr;
    QToolButton* m_maxBtn = nullptr;
    QToolButton* m_closeBtn = nullptr;
    PlatformGeometryProbe* m_probe = nullptr;
};

void tst_ToolBar::init()
{
    m_window = std::make_unique<MainWindowBase>();
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->setSpacing(0);
    layout->setContentsMargins(0, 0, 0, 0);
    m_toolBar = new ToolBar(m_window.get());
    m_toolBar->setHeight(48);
    m_toolBar->setTitle("Packing line 3");
    layout->addWidget(m_toolBar);
    m_body = new QWidget;
    layout->addWidget(m_body, 1);
    m_window->setCentralWidget(central);

    m_title = m_toolBar->findChild<QLabel*>("titleNameLab");
    m_minBtn = m_toolBar->findChild<QToolButton*>("minBtn");
    m_maxBtn = m_toolBar->findChild<QToolButton*>("maxBtn");
    m_closeBtn = m_toolBar->findChild<QToolButton*>("closeBtn");
    QVERIFY(m_title && m_minBtn && m_maxBtn && m_closeBtn);

    m_window->resize(500, 300);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_probe = new PlatformGeometryProbe(m_window.get());
    m_window->setGeometry(kStart);
    QVERIFY(m_probe->waitFor(kStart));
    QTRY_COMPARE(m_toolBar->geometry(), QRect(0, 0, kStart.width(), 48));

    m_pointer = std::make_unique<PointerDriver>(m_window.get());
}

void tst_ToolBar::cleanup()
{
    qApp->setStyleSheet(QString());
    m_pointer.reset();
    m_window.reset();
}

QPoint tst_ToolBar::globalCenter(const QWidget* widget) const
{
    return widget->mapToGlobal(widget->rect().center());
}

bool tst_ToolBar::settlesAt(const QRect& expected) const
{
    return m_probe->waitFor(expected) && m_window->geometry() == expected;
}

QString tst_ToolBar::where() const
{
    const QRect g = m_window->geometry();
    return QString("window at %1,%2 %3x%4").arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height());
}

void tst_ToolBar::constructionShowsEmptyTitleAndButtons()
{
    ToolBar bar(m_window.get());
    QCOMPARE(bar.windowTitle(), QString("ToolBar"));
    QCOMPARE(bar.findChild<QLabel*>("titleNameLab")->text(), QString());
    for (const char* name : { "minBtn", "maxBtn", "closeBtn" }) {
        auto* button = bar.findChild<QToolButton*>(name);
        QVERIFY2(!button->isHidden(), name);
        QVERIFY2(button->text().isEmpty() && button->icon().isNull(), name);
    }
    QVERIFY(!bar.findChild<QToolButton*>("maxBtn")->property("maxNormal").isValid());
}

void tst_ToolBar::setTitleAndRetranslate()
{
    QCOMPARE(m_title->text(), QString("Packing line 3"));
    QCOMPARE(m_toolBar->height(), 48);

    // A language change empties the title; the owner has to set it again.
    m_toolBar->retranslate();
    QCOMPARE(m_title->text(), QString());
    QCOMPARE(m_toolBar->windowTitle(), QString("ToolBar"));
    m_toolBar->setTitle("Packing line 4");
    QCOMPARE(m_title->text(), QString("Packing line 4"));
}

void tst_ToolBar::buttonVisibility()
{
    m_toolBar->setMaxButtonVisible(false);
    QVERIFY(!m_maxBtn->isVisible());
    QVERIFY(m_minBtn->isVisible());
    m_toolBar->setMinButtonVisible(false);
    QVERIFY(!m_minBtn->isVisible());
    QVERIFY(m_closeBtn->isVisible());

    m_toolBar->setMaxButtonVisible(true);
    QVERIFY(m_maxBtn->isVisible());
    QVERIFY(!m_minBtn->isVisible());

    m_toolBar->setMinButtonVisible(false);
    m_toolBar->setMaxButtonVisible(false);
    m_toolBar->showButtons();
    QVERIFY(m_minBtn->isVisible() && m_maxBtn->isVisible() && m_closeBtn->isVisible());
}

void tst_ToolBar::leftDragMovesTheWindowByEachStep()
{
    const QPoint grip = globalCenter(m_title);
    m_pointer->press(grip);

    const QList<QPoint> steps = { QPoint(30, 10), QPoint(5, -40), QPoint(-60, 25) };
    QPoint pointer = grip;
    QRect expected = kStart;
    for (const QPoint& step : steps) {
        pointer += step;
        expected.translate(step);
        m_pointer->moveTo(pointer);
        QVERIFY2(settlesAt(expected), qPrintable(where()));
    }
    m_pointer->release(pointer);

    // Once released, moving on moves nothing.
    m_pointer->moveTo(pointer + QPoint(40, 40));
    QCOMPARE(m_window->geometry(), expected);
}

void tst_ToolBar::leftDragWithRightHeldMovesToo()
{
    const QPoint grip = globalCenter(m_title);
    m_pointer->press(grip);
    m_pointer->press(grip, Qt::RightButton);
    m_pointer->moveTo(grip + QPoint(25, 35));
    QVERIFY2(settlesAt(kStart.translated(25, 35)), qPrintable(where()));
    m_pointer->release(grip + QPoint(25, 35), Qt::RightButton);
    m_pointer->release(grip + QPoint(25, 35));
}

void tst_ToolBar::rightDragMovesNothing()
{
    const QPoint grip = globalCenter(m_title);
    m_pointer->press(grip, Qt::RightButton);
    m_pointer->moveTo(grip + QPoint(50, 50));
    QCOMPARE(m_window->geometry(), kStart);

    // The left button joining in later doesn't count as a press on the bar either.
    m_pointer->release(grip + QPoint(50, 50), Qt::RightButton);
    m_pointer->moveTo(grip + QPoint(80, 60));
    QCOMPARE(m_window->geometry(), kStart);
}

void tst_ToolBar::pressOnTheBarNeverReachesTheWindow_data()
{
    QTest::addColumn<QPoint>("offset");
    QTest::addColumn<QString>("under");

    // Offsets from the window's top left, with the widget found there.
    QTest::newRow("top edge above the title") << QPoint(20, 0) << "titleNameLab";
    QTest::newRow("top edge in the middle") << QPoint(300, 1) << "frame";
    QTest::newRow("title label") << QPoint(20, 24) << "titleNameLab";
    QTest::newRow("empty bar below the buttons") << QPoint(560, 40) << "frame";
}

void tst_ToolBar::pressOnTheBarNeverReachesTheWindow()
{
    QFETCH(QPoint, offset);
    QFETCH(QString, under);

    const QPoint at = kStart.topLeft() + offset;
    QWidget* target = m_window->childAt(offset);
    QVERIFY(target);
    QCOMPARE(target->objectName(), under);
    QVERIFY(m_toolBar->isAncestorOf(target));
    EventCounter windowPresses(m_window.get(), { QEvent::MouseButtonPress });
    m_window->setCursor(Qt::WaitCursor);

    m_pointer->press(at);
    QCOMPARE(windowPresses.count(), 0);
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
    QCOMPARE(m_window->cursor().shape(), Qt::WaitCursor);

    // The drag moves the window instead of resizing it.
    m_pointer->moveTo(at + QPoint(20, -30));
    QVERIFY2(settlesAt(kStart.translated(20, -30)), qPrintable(where()));
    m_pointer->release(at + QPoint(20, -30));
    QCOMPARE(windowPresses.count(), 0);
}

void tst_ToolBar::pressOnAButtonNeverDrags()
{
    EventCounter windowCloses(m_window.get(), { QEvent::Close });
    const QPoint onButton = globalCenter(m_closeBtn);
    m_pointer->press(onButton);
    QVERIFY(m_closeBtn->isDown());
    m_pointer->moveTo(onButton + QPoint(-60, 30));
    QCOMPARE(m_window->geometry(), kStart);

    // Let go away from the button: no click, so nothing closes.
    m_pointer->release(onButton + QPoint(-60, 30));
    QVERIFY(!m_closeBtn->isDown());
    QCOMPARE(windowCloses.count(), 0);
    QVERIFY(m_window->isVisible());
}

void tst_ToolBar::bodyPressStillResizesTheWindow()
{
    EventCounter windowPresses(m_window.get(), { QEvent::MouseButtonPress });
    const QPoint bottomEdge(kStart.center().x(), kStart.bottom());

    m_pointer->press(bottomEdge);
    QCOMPARE(windowPresses.count(), 1);
    QCOMPARE(m_window->cursor().shape(), Qt::SizeVerCursor);
    m_pointer->moveTo(bottomEdge + QPoint(0, 40));
    QVERIFY2(settlesAt(QRect(kStart.topLeft(), kStart.size() + QSize(0, 39))), qPrintable(where()));
    m_pointer->release(bottomEdge + QPoint(0, 40));
}

void tst_ToolBar::enteringTheBarShowsTheArrow()
{
    // The window shows a resize cursor left over from its edge.
    m_window->setCursor(Qt::SizeVerCursor);
    QVERIFY(!m_toolBar->testAttribute(Qt::WA_SetCursor));

    m_pointer->moveTo(globalCenter(m_body));
    m_pointer->moveTo(globalCenter(m_title));
    QVERIFY(m_toolBar->testAttribute(Qt::WA_SetCursor));
    QCOMPARE(m_toolBar->cursor().shape(), Qt::ArrowCursor);
    QCOMPARE(m_window->cursor().shape(), Qt::SizeVerCursor);
}

void tst_ToolBar::doubleClickTogglesMaximised()
{
    m_pointer->doubleClick(globalCenter(m_title));
    QTRY_VERIFY(m_window->isMaximized());
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(true));

    m_pointer->doubleClick(globalCenter(m_title));
    QTRY_VERIFY(!m_window->isMaximized());
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(false));

    // Any button's double click counts.
    m_pointer->doubleClick(globalCenter(m_title), Qt::RightButton);
    QTRY_VERIFY(m_window->isMaximized());
}

void tst_ToolBar::doubleClickHeldDoesNotDrag()
{
    // The second press arrives as the double click alone, so the bar doesn't count it as pressed.
    const QPoint grip = globalCenter(m_title);
    m_pointer->doubleClickPress(grip);
    QTRY_VERIFY(m_window->isMaximized());
    const QRect before = m_window->geometry();
    m_pointer->moveTo(grip + QPoint(30, 30));
    QCOMPARE(m_window->geometry(), before);
    m_pointer->release(grip + QPoint(30, 30));
}

void tst_ToolBar::maxButtonTogglesAndRefreshesTheStyleSheet()
{
    // Rules on the property only apply to its new value once the sheet is set again.
    qApp->setStyleSheet("QToolButton#maxBtn { color: rgb(0, 0, 255); }"
                        "QToolButton#maxBtn[maxNormal=\"true\"] { color: rgb(255, 0, 0); }");
    QCOMPARE(m_maxBtn->palette().color(QPalette::ButtonText), QColor(0, 0, 255));

    m_pointer->click(globalCenter(m_maxBtn));
    QTRY_VERIFY(m_window->isMaximized());
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(true));
    QCOMPARE(m_maxBtn->palette().color(QPalette::ButtonText), QColor(255, 0, 0));

    // The button moved with the maximised window; find it again.
    m_pointer->click(globalCenter(m_maxBtn));
    QTRY_VERIFY(!m_window->isMaximized());
    const QVariant maxNormal = m_maxBtn->property("maxNormal");
    QVERIFY(maxNormal.isValid());
    QCOMPARE(maxNormal, QVariant(false));
    QCOMPARE(m_maxBtn->palette().color(QPalette::ButtonText), QColor(0, 0, 255));
}

void tst_ToolBar::maxButtonKeepsItsOwnRecord()
{
    // Maximised by other means, the bar still counts the window as normal: its first click
    // maximises again, the second restores.
    m_window->showMaximized();
    QTRY_VERIFY(m_window->isMaximized());

    m_pointer->click(globalCenter(m_maxBtn));
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(true));
    QVERIFY(m_window->isMaximized());

    m_pointer->click(globalCenter(m_maxBtn));
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(false));
    QTRY_VERIFY(!m_window->isMaximized());
}

void tst_ToolBar::dragWhileMaximisedMovesAndKeepsTheRecord()
{
    m_pointer->click(globalCenter(m_maxBtn));
    QTRY_VERIFY(m_window->isMaximized());
    const QRect maximised = m_window->geometry();

    const QPoint grip = globalCenter(m_title);
    m_pointer->press(grip);
    m_pointer->moveTo(grip + QPoint(15, 20));
    QCOMPARE(m_window->pos(), maximised.topLeft() + QPoint(15, 20));
    m_pointer->release(grip + QPoint(15, 20));

    // Still maximised as far as the bar knows: the next click restores.
    m_pointer->click(globalCenter(m_maxBtn));
    QCOMPARE(m_maxBtn->property("maxNormal"), QVariant(false));
    QTRY_VERIFY(!m_window->isMaximized());
}

void tst_ToolBar::minButtonMinimises()
{
    m_pointer->click(globalCenter(m_minBtn));
    QTRY_VERIFY(m_window->isMinimized());
    QVERIFY(!m_maxBtn->property("maxNormal").isValid());
}

void tst_ToolBar::closeButtonClosesEveryWindow()
{
    QWidget other;
    other.resize(120, 80);
    other.show();
    QVERIFY(QTest::qWaitForWindowExposed(&other));
    EventCounter windowCloses(m_window.get(), { QEvent::Close });
    EventCounter otherCloses(&other, { QEvent::Close });

    m_pointer->click(globalCenter(m_closeBtn));
    QTRY_COMPARE(windowCloses.count(), 1);
    QCOMPARE(otherCloses.count(), 1);
    QVERIFY(!m_window->isVisible());
    QVERIFY(!other.isVisible());
}

QTEST_MAIN(tst_ToolBar)
#include "tst_toolbar.moc"
