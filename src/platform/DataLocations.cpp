#include "DataLocations.h"

#include "ProgramDirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryFile>

namespace {

// $XDG_STATE_HOME, or ~/.local/state when it is unset or relative, as the base directory rules say.
QString stateHome()
{
    const QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    return QDir::isAbsolutePath(stateHome) ? stateHome : QDir::homePath() + QStringLiteral("/.local/state");
}

// Copies the file unless the target exists. Written afresh rather than copied, so that the user
// owns a writable file whatever the mode of the installed one.
void seed(const QString& source, const QString& target)
{
    QFile in(source);
    QFile out(target);
    if (in.open(QIODevice::ReadOnly) && QDir().mkpath(QFileInfo(target).path()) && out.open(QIODevice::NewOnly)) {
        out.write(in.readAll());
    }
}

} // namespace

DataLocations::DataLocations(const QString& programDir, bool programDirWritable)
    : m_programDir(programDir)
    , m_settingsDir(programDir)
    , m_logDir(programDir + QStringLiteral("/Log"))
{
    if (programDirWritable) {
        return;
    }
    m_settingsDir
        = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/tapwright");
    m_logDir = stateHome() + QStringLiteral("/tapwright/Log");
    QDir().mkpath(m_settingsDir);
    QDir().mkpath(m_logDir);
    seed(programDir + QStringLiteral("/TCPconfig.json"), configFile());
    seed(programDir + QStringLiteral("/Conf/language.ini"), languageFile());
}

const DataLocations& DataLocations::ofThisProgram()
{
    static const DataLocations locations = [] {
        const QString programDir = QFile::decodeName(executableDirectory());
        return DataLocations(programDir, canWriteIn(programDir));
    }();
    return locations;
}

bool DataLocations::canWriteIn(const QString& dir)
{
    QTemporaryFile probe(dir + QStringLiteral("/.tapwright-XXXXXX"));
    return probe.open();
}

std::string DataLocations::notice() const
{
    return QStringLiteral("[INFO] Settings in %1, logs in %2: the program directory %3 cannot be written.")
        .arg(m_settingsDir, m_logDir, m_programDir)
        .toStdString();
}
