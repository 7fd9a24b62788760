#pragma once

#include <QObject>

class QComboBox;

// English or Chinese for the whole program: the translators, the box that chooses, and the choice
// kept for the next start.
class LanguageSwitcher : public QObject
{
    Q_OBJECT

public:
    // Fills the box with the two languages; a choice in it switches.
    LanguageSwitcher(QComboBox* box, QObject* parent);

    // The language recorded in Conf/language.ini, English unless it says Chinese.
    void loadStored();

signals:
    // The translators changed: every text on screen is to be set again.
    void switched();

public slots:
    // The box's entries: 0 English, 1 Chinese.
    void choose(int boxIndex);

private:
    // 0 Chinese, anything else English, as the settings file records it.
    void apply(int lang);

    QComboBox* m_box;
};
