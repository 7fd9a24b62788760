#pragma once

#include <QPoint>
#include <QString>
#include <QWidget>

class QEvent;
class QMouseEvent;

namespace Ui {
class ToolBar;
}

// The title bar of a frameless window: shows the title, minimises, maximises, restores and
// closes the window, and moves it when dragged.
class ToolBar : public QWidget
{
    Q_OBJECT

public:
    // The parent is the window that the bar drives.
    explicit ToolBar(QWidget* parent);
    ~ToolBar() override;

    void setTitle(const QString& title);
    void setHeight(int height);
    // Empties the title too; the caller sets it again.
    void retranslate();
    void showButtons();
    void setMaxButtonVisible(bool visible);
    void setMinButtonVisible(bool visible);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void enterEvent(QEvent* event) override;

private slots:
    void on_closeBtn_clicked();
    void on_maxBtn_clicked();
    void on_minBtn_clicked();

private:
    Ui::ToolBar* ui;
    QWidget* m_window;
    QPoint m_pressPos;
    bool m_pressed;
    bool m_maximized;
    bool m_minimized;
};
