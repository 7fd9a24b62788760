#include "ToolBar.h"

#include "ui_ToolBar.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWindow>

ToolBar::ToolBar(QWidget* parent)
    : QWidget(parent)
    , ui(new Ui::ToolBar)
    , m_window(parent)
    , m_pressed(false)
    , m_maximized(false)
    , m_minimized(false)
{
    ui->setupUi(this);
    showButtons();
}

ToolBar::~ToolBar()
{
    delete ui;
}

void ToolBar::setTitle(const QString& title)
{
    ui->titleNameLab->setText(title);
}

void ToolBar::setHeight(int height)
{
    setFixedHeight(height);
}

void ToolBar::retranslate()
{
    ui->retranslateUi(this);
}

void ToolBar::showButtons()
{
    ui->minBtn->show();
    ui->maxBtn->show();
    ui->closeBtn->show();
}

void ToolBar::setMaxButtonVisible(bool visible)
{
    ui->maxBtn->setVisible(visible);
}

void ToolBar::setMinButtonVisible(bool visible)
{
    ui->minBtn->setVisible(visible);
}

// The mouse handlers keep their events: a press here must never start a resize of the window.
void ToolBar::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressPos = event->pos();
        m_pressed = true;
    }
}

void ToolBar::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressPos = event->pos();
        m_pressed = false;
    }
}

void ToolBar::mouseDoubleClickEvent(QMouseEvent*)
{
    on_maxBtn_clicked();
}

void ToolBar::mouseMoveEvent(QMouseEvent* event)
{
    if ((event->buttons() & Qt::LeftButton) && m_pressed) {
        // The window manager moves the window where it can (under Wayland nothing else can), and
        // keeps the release.
        QWindow* handle = m_window->windowHandle();
        if (handle && handle->startSystemMove()) {
            m_pressed = false;
            return;
        }
        // The bar travels with the window, so the offset from the press point is the latest step.
        const QPoint delta = event->pos() - m_pressPos;
        m_window->move(m_window->pos() + delta);
    }
}

void ToolBar::enterEvent(QEvent*)
{
    // The window may still show a resize cursor from its edge.
    setCursor(Qt::ArrowCursor);
}

void ToolBar::on_closeBtn_clicked()
{
    QApplication::closeAllWindows();
}

void ToolBar::on_maxBtn_clicked()
{
    if (!m_maximized) {
        m_window->showMaximized();
        m_maximized = true;
    } else {
        m_window->showNormal();
        m_maximized = false;
    }
    ui->maxBtn->setChecked(m_maximized);
    ui->maxBtn->setProperty("maxNormal", m_maximized);
    // Setting the same sheet again makes rules on the property apply to its new value.
    qApp->setStyleSheet(qApp->styleSheet());
    m_minimized = false;
}

void ToolBar::on_minBtn_clicked()
{
    m_window->showMinimized();
    m_minimized = true;
}
