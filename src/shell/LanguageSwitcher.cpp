#include "LanguageSwitcher.h"

#include "DataLocations.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QListView>
#include <QSettings>
#include <QStandardPaths>
#include <QTranslator>

LanguageSwitcher::LanguageSwitcher(QComboBox* box, QObject* parent)
    : QObject(parent)
    , m_box(box)
{
    m_box->addItem(QStringLiteral("English"));
    m_box->addItem(QStringLiteral("中文"));
    m_box->setView(new QListView());
    connect(m_box, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &LanguageSwitcher::choose);
}

void LanguageSwitcher::loadStored()
{
    const QSettings settings(DataLocations::ofThisProgram().languageFile(), QSettings::IniFormat);
    const int stored = settings.value(QStringLiteral("language/lang"), QStringLiteral("2")).toInt();
    apply(stored == 0 ? 0 : 1);
}

void LanguageSwitcher::choose(int boxIndex)
{
    apply(boxIndex == 0 ? 1 : 0);
}

void LanguageSwitcher::apply(int lang)
{
    // One pair for the whole process, kept until it ends.
    static QTranslator* programTranslator = nullptr;
    static QTranslator* qtTranslator = nullptr;
    if (!programTranslator) {
        programTranslator = new QTranslator();
        qtTranslator = new QTranslator();
    }

    const QString languageDir = QCoreApplication::applicationDirPath() + QStringLiteral("/Language");
    if (lang == 0) {
        programTranslator->load(
            languageDir + QStringLiteral("/chinese/quillon_zh.qm"), QString(), QString(), QString());
        QCoreApplication::installTranslator(programTranslator);
        qtTranslator->load(languageDir + QStringLiteral("/chinese/qt_zh_CN.qm"), QString(), QString(), QString());
        QCoreApplication::installTranslator(qtTranslator);
        m_box->setCurrentIndex(1);
    } else {
        qtTranslator->load(languageDir + QStringLiteral("/english/qt_uk.qm"), QString(), QString(), QString());
        QCoreApplication::removeTranslator(programTranslator);
        QCoreApplication::installTranslator(qtTranslator);
        m_box->setCurrentIndex(0);
    }
    emit switched();

    // The user's own copy, read at the next start before the program's.
    QSettings settings(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/')
                           + QCoreApplication::applicationName() + QStringLiteral("/language.ini"),
                       QSettings::IniFormat);
    settings.setValue(QStringLiteral("language/lang"), lang);
}
