#include "XdgAutostartStore.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTextStream>

namespace {

const QString kGroupHeader = QStringLiteral("[Desktop Entry]");

// Characters that force an Exec argument into double quotes.
const QString kReservedInExec = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");

// Inside double quotes these four take a backslash in front.
const QString kEscapedInQuotes = QStringLiteral("\"`$\\");

// The escapes of a desktop entry's string values, applied before the Exec quoting is read.
QString unescapeString(const QString& raw)
{
    QString out;
    out.reserve(raw.size());
    for (int i = 0; i < raw.size(); ++i) {
        const QChar c = raw.at(i);
        if (c != QLatin1Char('\\') || i + 1 == raw.size()) {
            out.append(c);
            continue;
        }
        const QChar next = raw.at(++i);
        switch (next.unicode()) {
        case 's':
            out.append(QLatin1Char(' '));
            break;
        case 'n':
            out.append(QLatin1Char('\n'));
            break;
        case 't':
            out.append(QLatin1Char('\t'));
            break;
        case 'r':
            out.append(QLatin1Char('\r'));
            break;
        case '\\':
            out.append(QLatin1Char('\\'));
            break;
        default:
            out.append(QLatin1Char('\\'));
            out.append(next);
            break;
        }
    }
    return out;
}

QString escapeString(const QString& text)
{
    QString out;
    out.reserve(text.size() + 8);
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '\\':
            out.append(QLatin1String("\\\\"));
            break;
        case '\n':
            out.append(QLatin1String("\\n"));
            break;
        case '\t':
            out.append(QLatin1String("\\t"));
            break;
        case '\r':
            out.append(QLatin1String("\\r"));
            break;
        default:
            out.append(c);
            break;
        }
    }
    if (out.startsWith(QLatin1Char(' ')))
        out.replace(0, 1, QLatin1String("\\s"));
    return out;
}

// The keys of the main group, first occurrence winning, as the desktop reads them.
struct DesktopEntry
{
    bool found = false;
    QString exec;
    bool hidden = false;
    bool gnomeDisabled = false;
};

DesktopEntry readEntry(const QString& path)
{
    DesktopEntry entry;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return entry;
    QTextStream in(&file);
    in.setCodec("UTF-8");
    bool inMainGroup = false;
    bool haveExec = false;
    bool haveHidden = false;
    bool haveGnome = false;
    QString line;
    while (in.readLineInto(&line)) {
        const QString trimmed = line.trimmed();
        if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char('#')))
            continue;
        if (trimmed.startsWith(QLatin1Char('['))) {
            inMainGroup = trimmed == kGroupHeader;
            entry.found = entry.found || inMainGroup;
            continue;
        }
        if (!inMainGroup)
            continue;
        const int eq = trimmed.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        const QString key = trimmed.left(eq).trimmed();
        const QString value = trimmed.mid(eq + 1).trimmed();
        if (key == QLatin1String("Exec") && !haveExec) {
            entry.exec = unescapeString(value);
            haveExec = true;
        } else if (key == QLatin1String("Hidden") && !haveHidden) {
            entry.hidden = value == QLatin1String("true");
            haveHidden = true;
        } else if (key == QLatin1String("X-GNOME-Autostart-enabled") && !haveGnome) {
            entry.gnomeDisabled = value == QLatin1String("false");
            haveGnome = true;
        }
    }
    return entry;
}

} // namespace

XdgAutostartStore::XdgAutostartStore()
    // GenericConfigLocation is $XDG_CONFIG_HOME, or ~/.config when that is unset or relative.
    : m_directory(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                  + QStringLiteral("/autostart"))
{
}

QString XdgAutostartStore::entryPath(const QString& name) const
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name == QLatin1String(".") || name == QLatin1String(".."))
        return QString();
    return m_directory + QLatin1Char('/') + name + QStringLiteral(".desktop");
}

bool XdgAutostartStore::contains(const QString& name) const
{
    return !value(name).isEmpty();
}

QString XdgAutostartStore::value(const QString& name) const
{
    const QString path = entryPath(name);
    if (path.isEmpty())
        return QString();
    const DesktopEntry entry = readEntry(path);
    if (!entry.found || entry.hidden || entry.gnomeDisabled)
        return QString();
    return programOfExec(entry.exec);
}

void XdgAutostartStore::setValue(const QString& name, const QString& path)
{
    const QString file = entryPath(name);
    if (file.isEmpty() || path.isEmpty())
        return;
    if (!QDir().mkpath(m_directory))
        return;

    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Text))
        return;
    QTextStream text(&out);
    text.setCodec("UTF-8");
    text << kGroupHeader << '\n'
         << "Type=Application\n"
         << "Version=1.0\n"
         << "Name=Tapwright\n"
         << "Comment=Receives barcode text from cameras over TCP\n"
         << "Exec=" << escapeString(execValue(path)) << '\n'
         << "TryExec=" << escapeString(path) << '\n'
         << "Icon=tapwright\n"
         << "Terminal=false\n"
         << "X-GNOME-Autostart-enabled=true\n";
    text.flush();
    out.commit();
}

void XdgAutostartStore::remove(const QString& name)
{
    const QString path = entryPath(name);
    if (!path.isEmpty())
        QFile::remove(path);
}

QString XdgAutostartStore::execValue(const QString& path)
{
    QString argument;
    bool needsQuotes = false;
    for (const QChar c : path) {
        if (kReservedInExec.contains(c))
            needsQuotes = true;
        if (c == QLatin1Char('%'))
            argument.append(QLatin1Char('%'));
        argument.append(c);
    }
    if (!needsQuotes)
        return argument;

    QString quoted(QLatin1Char('"'));
    for (const QChar c : argument) {
        if (kEscapedInQuotes.contains(c))
            quoted.append(QLatin1Char('\\'));
        quoted.append(c);
    }
    quoted.append(QLatin1Char('"'));
    return quoted;
}

QString XdgAutostartStore::programOfExec(const QString& exec)
{
    QString program;
    int i = 0;
    while (i < exec.size() && (exec.at(i) == QLatin1Char(' ') || exec.at(i) == QLatin1Char('\t')))
        ++i;
    if (i < exec.size() && exec.at(i) == QLatin1Char('"')) {
        bool closed = false;
        for (++i; i < exec.size(); ++i) {
            const QChar c = exec.at(i);
            if (c == QLatin1Char('"')) {
                closed = true;
                break;
            }
            if (c == QLatin1Char('\\') && i + 1 < exec.size() && kEscapedInQuotes.contains(exec.at(i + 1)))
                ++i;
            program.append(exec.at(i));
        }
        if (!closed)
            return QString();
    } else {
        for (; i < exec.size() && exec.at(i) != QLatin1Char(' ') && exec.at(i) != QLatin1Char('\t'); ++i)
            program.append(exec.at(i));
    }
    // "%%" is a literal percent sign; any other field code cannot be part of a path we wrote.
    return program.replace(QStringLiteral("%%"), QStringLiteral("%"));
}
