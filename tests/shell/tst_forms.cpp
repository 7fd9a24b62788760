#include "TCPSettingWidget.h"
#include "ui_MainWindow.h"
#include "ui_ToolBar.h"

#include <QMetaEnum>
#include <QStyle>
#include <QTranslator>
#include <QtTest>

namespace {

QString policyName(QSizePolicy::Policy policy)
{
    return QMetaEnum::fromType<QSizePolicy::Policy>().valueToKey(policy);
}

QString describe(QLayoutItem* item)
{
    if (QSpacerItem* spacer = item->spacerItem()) {
        const QSize hint = spacer->sizeHint();
        return QString("spacer %1x%2 %3/%4")
            .arg(hint.width())
            .arg(hint.height())
            .arg(policyName(spacer->sizePolicy().horizontalPolicy()),
                 policyName(spacer->sizePolicy().verticalPolicy()));
    }
    if (QWidget* widget = item->widget()) {
        return "widget " + widget->objectName();
    }
    if (QLayout* layout = item->layout()) {
        return "layout " + layout->objectName();
    }
    return "unknown";
}

// The entries of a layout in their order on screen.
QStringList entries(const QLayout* layout)
{
    QStringList list;
    for (int i = 0; i < layout->count(); ++i) {
        list << describe(layout->itemAt(i));
    }
    return list;
}

// Some classes track the mouse for hover effects of their own, whatever the form says.
bool tracksByDefault(const QWidget* widget)
{
    if (qobject_cast<const QTextEdit*>(widget) != nullptr) {
        return QTextEdit().hasMouseTracking();
    }
    if (qobject_cast<const QCheckBox*>(widget) != nullptr) {
        return QCheckBox().hasMouseTracking();
    }
    return false;
}

// Tags every text with the context it was asked for in, so a test sees which texts go through
// translation and under which context.
class TaggingTranslator final : public QTranslator
{
public:
    QString translate(const char* context, const char* sourceText, const char*, int) const override
    {
        return QString("%1|%2").arg(context, QString::fromUtf8(sourceText));
    }
    bool isEmpty() const override { return false; }
};

} // namespace

class tst_Forms final : public QObject
{
    Q_OBJECT

private slots:
    void toolBarTree();
    void toolBarButtonsAndTitle();
    void mainWindowTree();
    void mainWindowWidgets();
    void mainWindowTexts();
    void setupKeepsAnExistingName();
    void retranslateUsesTheFormContexts();
    void formsLeaveTheLookToTheStyleSheet();
};

void tst_Forms::toolBarTree()
{
    QWidget bar;
    Ui::ToolBar ui;
    ui.setupUi(&bar);

    QCOMPARE(bar.objectName(), QString("ToolBar"));
    QCOMPARE(bar.size(), QSize(758, 61));
    QCOMPARE(bar.layout(), ui.verticalLayout_2);
    QCOMPARE(ui.verticalLayout_2->spacing(), 0);
    QCOMPARE(ui.verticalLayout_2->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(entries(ui.verticalLayout_2), QStringList { "widget frame" });

    QCOMPARE(ui.frame->parentWidget(), &bar);
    QCOMPARE(ui.frame->layout(), ui.horizontalLayout_2);
    QCOMPARE(ui.horizontalLayout_2->spacing(), 0);
    QCOMPARE(ui.horizontalLayout_2->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(entries(ui.horizontalLayout_2),
             (QStringList { "spacer 10x20 Fixed/Minimum", "widget titleNameLab", "layout verticalLayout_3" }));
    QCOMPARE(ui.verticalLayout_3->spacing(), 0);
    QCOMPARE(entries(ui.verticalLayout_3),
             (QStringList { "layout horizontalLayout", "spacer 20x40 Minimum/Expanding" }));
    QCOMPARE(ui.horizontalLayout->spacing(), 0);
    QCOMPARE(entries(ui.horizontalLayout),
             (QStringList { "spacer 40x20 Expanding/Minimum", "widget minBtn", "widget maxBtn", "widget closeBtn" }));
}

void tst_Forms::toolBarButtonsAndTitle()
{
    QWidget bar;
    Ui::ToolBar ui;
    ui.setupUi(&bar);

    QCOMPARE(ui.frame->frameShape(), QFrame::NoFrame);
    QCOMPARE(ui.frame->frameShadow(), QFrame::Plain);
    QCOMPARE(ui.frame->lineWidth(), 0);

    QCOMPARE(ui.titleNameLab->parentWidget(), ui.frame);
    QCOMPARE(ui.titleNameLab->alignment(), Qt::AlignLeading | Qt::AlignLeft | Qt::AlignVCenter);
    QCOMPARE(ui.titleNameLab->text(), QString());

    for (QToolButton* button : { ui.minBtn, ui.maxBtn, ui.closeBtn }) {
        QCOMPARE(button->parentWidget(), ui.frame);
        QCOMPARE(button->minimumSize(), QSize(28, 28));
        QCOMPARE(button->maximumSize(), QSize(28, 28));
        QCOMPARE(button->text(), QString());
        QVERIFY(button->icon().isNull());
    }
    QCOMPARE(ui.minBtn->objectName(), QString("minBtn"));
    QCOMPARE(ui.maxBtn->objectName(), QString("maxBtn"));
    QCOMPARE(ui.closeBtn->objectName(), QString("closeBtn"));

    // Laid out, the three buttons sit at the top right corner of the bar.
    bar.setFixedHeight(48);
    bar.show();
    QVERIFY(QTest::qWaitForWindowExposed(&bar));
    QTRY_COMPARE(ui.closeBtn->mapTo(&bar, QPoint(0, 0)), QPoint(758 - 28, 0));
    QCOMPARE(ui.maxBtn->mapTo(&bar, QPoint(0, 0)), QPoint(758 - 2 * 28, 0));
    QCOMPARE(ui.minBtn->mapTo(&bar, QPoint(0, 0)), QPoint(758 - 3 * 28, 0));
    QCOMPARE(ui.titleNameLab->mapTo(&bar, QPoint(0, 0)).x(), 10);
}

void tst_Forms::mainWindowTree()
{
    QMainWindow window;
    Ui::MainWindowClass ui;
    ui.setupUi(&window);

    QCOMPARE(window.objectName(), QString("MainWindowClass"));
    QCOMPARE(window.size(), QSize(922, 830));
    QCOMPARE(window.centralWidget(), ui.centralWidget);
    QCOMPARE(ui.centralWidget->objectName(), QString("centralWidget"));
    QCOMPARE(ui.centralWidget->layout(), ui.verticalLayout_4);

    QCOMPARE(ui.verticalLayout_4->spacing(), 0);
    QCOMPARE(ui.verticalLayout_4->contentsMargins(), QMargins(0, 0, 0, 0));
    QCOMPARE(entries(ui.verticalLayout_4),
             (QStringList {
                 "layout toolBarLayout", "layout horizontalLayout", "spacer 20x5 Minimum/Fixed", "widget frame" }));

    QCOMPARE(ui.toolBarLayout->count(), 0);
    QCOMPARE(ui.toolBarLayout->spacing(), 6);

    QCOMPARE(ui.horizontalLayout->spacing(), 6);
    QCOMPARE(ui.horizontalLayout->contentsMargins().left(), 6);
    QCOMPARE(ui.horizontalLayout->contentsMargins().top(), 6);
    QCOMPARE(ui.horizontalLayout->contentsMargins().right(), 6);
    QCOMPARE(entries(ui.horizontalLayout), (QStringList { "layout verticalLayout", "layout verticalLayout_2" }));
    QCOMPARE(ui.horizontalLayout->stretch(0), 2);
    QCOMPARE(ui.horizontalLayout->stretch(1), 0);

    QCOMPARE(ui.verticalLayout->spacing(), 6);
    QCOMPARE(ui.verticalLayout->contentsMargins().right(), 0);
    QCOMPARE(entries(ui.verticalLayout), (QStringList { "widget textEdit", "widget textEdit_log" }));
    QCOMPARE(ui.verticalLayout->stretch(0), 2);
    QCOMPARE(ui.verticalLayout->stretch(1), 1);

    const QString gap = "spacer 20x15 Minimum/Fixed";
    QCOMPARE(ui.verticalLayout_2->spacing(), 6);
    QCOMPARE(ui.verticalLayout_2->contentsMargins().right(), 0);
    QCOMPARE(ui.verticalLayout_2->contentsMargins().bottom(), 0);
    QCOMPARE(entries(ui.verticalLayout_2),
             (QStringList { gap,
                            "layout gridLayout",
                            gap,
                            "widget stackedWidget",
                            gap,
                            "widget btnClearData",
                            gap,
                            "layout horizontalLayout_2",
                            "spacer 20x40 Minimum/Expanding",
                            "widget versionLab" }));

    QCOMPARE(ui.gridLayout->spacing(), 6);
    QCOMPARE(ui.gridLayout->rowCount(), 1);
    QCOMPARE(ui.gridLayout->columnCount(), 1);
    QCOMPARE(ui.gridLayout->itemAtPosition(0, 0)->widget(), ui.comboBox_Device);
    QCOMPARE(ui.gridLayout->columnStretch(0), 3);

    QCOMPARE(ui.horizontalLayout_2->spacing(), 6);
    QCOMPARE(ui.horizontalLayout_2->contentsMargins().bottom(), 0);
    QCOMPARE(entries(ui.horizontalLayout_2),
             (QStringList { "spacer 30x20 Fixed/Minimum",
                            "widget checkBox_autoApp",
                            "spacer 40x20 Expanding/Minimum",
                            "widget checkBox_minimize",
                            "spacer 40x20 Expanding/Minimum" }));

    QCOMPARE(ui.frame->layout(), ui.horizontalLayout_6);
    QCOMPARE(ui.horizontalLayout_6->spacing(), 6);
    QCOMPARE(ui.horizontalLayout_6->contentsMargins().top(), 5);
    QCOMPARE(ui.horizontalLayout_6->contentsMargins().bottom(), 5);
    // Left and right are left to the style, as for any widget's own layout.
    const int styleMargin = ui.frame->style()->pixelMetric(QStyle::PM_LayoutLeftMargin, nullptr, ui.frame);
    QCOMPARE(ui.horizontalLayout_6->contentsMargins().left(), styleMargin);
    QCOMPARE(entries(ui.horizontalLayout_6), (QStringList { "spacer 40x20 Expanding/Minimum", "widget languageBox" }));
}

void tst_Forms::mainWindowWidgets()
{
    QMainWindow window;
    Ui::MainWindowClass ui;
    ui.setupUi(&window);

    // Every widget hangs off the central widget, except the bottom combo and the device pages.
    for (QWidget* widget : std::initializer_list<QWidget*> { ui.textEdit,
                                                             ui.textEdit_log,
                                                             ui.comboBox_Device,
                                                             ui.stackedWidget,
                                                             ui.btnClearData,
                                                             ui.checkBox_autoApp,
                                                             ui.checkBox_minimize,
                                                             ui.versionLab,
                                                             ui.frame }) {
        QVERIFY2(widget->parentWidget() == ui.centralWidget, qPrintable(widget->objectName()));
    }
    QCOMPARE(ui.languageBox->parentWidget(), ui.frame);

    QCOMPARE(ui.stackedWidget->count(), 2);
    QCOMPARE(ui.stackedWidget->currentIndex(), 0);
    auto* first = qobject_cast<TCPSettingWidget*>(ui.stackedWidget->widget(0));
    auto* second = qobject_cast<TCPSettingWidget*>(ui.stackedWidget->widget(1));
    QVERIFY(first && second);
    QCOMPARE(first, ui.page_Device1);
    QCOMPARE(second, ui.page_Device2);
    QCOMPARE(first->objectName(), QString("page_Device1"));
    QCOMPARE(second->objectName(), QString("page_Device2"));
    QCOMPARE(first->parentWidget(), ui.stackedWidget);

    QCOMPARE(ui.textEdit->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
    QCOMPARE(ui.textEdit->sizePolicy().verticalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(ui.textEdit->minimumSize(), QSize(300, 0));
    QCOMPARE(ui.comboBox_Device->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
    QCOMPARE(ui.comboBox_Device->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
    QCOMPARE(ui.comboBox_Device->count(), 0);
    QCOMPARE(ui.languageBox->count(), 0);

    QCOMPARE(ui.frame->sizePolicy().horizontalPolicy(), QSizePolicy::Preferred);
    QCOMPARE(ui.frame->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
    QCOMPARE(ui.frame->minimumSize(), QSize(0, 30));
    QCOMPARE(ui.frame->frameShape(), QFrame::StyledPanel);
    QCOMPARE(ui.frame->frameShadow(), QFrame::Raised);

    QCOMPARE(ui.versionLab->alignment(), Qt::AlignRight | Qt::AlignTrailing | Qt::AlignVCenter);
}

void tst_Forms::mainWindowTexts()
{
    QMainWindow window;
    Ui::MainWindowClass ui;
    ui.setupUi(&window);

    QCOMPARE(window.windowTitle(), QString("MainWindow"));
    QCOMPARE(ui.btnClearData->text(), QString("Clear data"));
    QCOMPARE(ui.checkBox_autoApp->text(), QString("Automatic startup"));
    QCOMPARE(ui.checkBox_minimize->text(), QString("Minimal enable"));

    // The colon is the full-width one, not ASCII.
    const QString version = ui.versionLab->text();
    QCOMPARE(version, QString::fromUtf8("Version\xEF\xBC\x9AV1.00.003"));
    QCOMPARE(version.at(7).unicode(), ushort(0xFF1A));
    QCOMPARE(ui.comboBox_Device->currentText(), QString());
}

void tst_Forms::setupKeepsAnExistingName()
{
    QMainWindow window;
    window.setObjectName("packingWindow");
    Ui::MainWindowClass windowUi;
    windowUi.setupUi(&window);
    QCOMPARE(window.objectName(), QString("packingWindow"));

    QWidget bar;
    bar.setObjectName("titleBar");
    Ui::ToolBar barUi;
    barUi.setupUi(&bar);
    QCOMPARE(bar.objectName(), QString("titleBar"));
}

void tst_Forms::retranslateUsesTheFormContexts()
{
    QMainWindow window;
    Ui::MainWindowClass windowUi;
    windowUi.setupUi(&window);
    windowUi.comboBox_Device->addItems({ "Device 1", "Device 2" });
    windowUi.comboBox_Device->setCurrentIndex(1);
    QWidget bar;
    Ui::ToolBar barUi;
    barUi.setupUi(&bar);
    barUi.titleNameLab->setText("Tapwright");
    barUi.maxBtn->setText("[]");

    TaggingTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    windowUi.retranslateUi(&window);
    barUi.retranslateUi(&bar);
    QCoreApplication::removeTranslator(&translator);

    QCOMPARE(window.windowTitle(), QString("MainWindowClass|MainWindow"));
    QCOMPARE(windowUi.btnClearData->text(), QString("MainWindowClass|Clear data"));
    QCOMPARE(windowUi.checkBox_autoApp->text(), QString("MainWindowClass|Automatic startup"));
    QCOMPARE(windowUi.checkBox_minimize->text(), QString("MainWindowClass|Minimal enable"));
    QCOMPARE(windowUi.versionLab->text(), QString::fromUtf8("MainWindowClass|Version\xEF\xBC\x9AV1.00.003"));
    // The empty current text of an uneditable combo changes no selection.
    QCOMPARE(windowUi.comboBox_Device->currentIndex(), 1);

    QCOMPARE(bar.windowTitle(), QString("ToolBar|ToolBar"));
    // The title and the buttons get an empty text that is never translated.
    QCOMPARE(barUi.titleNameLab->text(), QString());
    QCOMPARE(barUi.maxBtn->text(), QString());
    QCOMPARE(barUi.minBtn->text(), QString());
    QCOMPARE(barUi.closeBtn->text(), QString());
}

void tst_Forms::formsLeaveTheLookToTheStyleSheet()
{
    QMainWindow window;
    Ui::MainWindowClass windowUi;
    windowUi.setupUi(&window);
    QWidget bar;
    Ui::ToolBar barUi;
    barUi.setupUi(&bar);

    // Mouse tracking belongs to the frameless window alone: on a child it would swallow the hover
    // moves that show the window's resize cursors.
    QList<QWidget*> widgets = window.findChildren<QWidget*>() + bar.findChildren<QWidget*>();
    widgets << &window << &bar;
    for (QWidget* widget : widgets) {
        // Qt's own inner widgets and the device pages are not these forms' business.
        if (widget->objectName().isEmpty() || widget->objectName().startsWith("qt_")
            || windowUi.stackedWidget->isAncestorOf(widget)) {
            continue;
        }
        QVERIFY2(widget->hasMouseTracking() == tracksByDefault(widget), qPrintable(widget->objectName()));
        QVERIFY2(widget->styleSheet().isEmpty(), qPrintable(widget->objectName()));
    }
}

QTEST_MAIN(tst_Forms)
#include "tst_forms.moc"
