#include "Logger.h"

#include <cstdio>
#include <ctime>
#include <locale.h>

namespace {

// The time text must not follow the user's locale, which the Qt application sets for us.
locale_t cLocale()
{
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return locale;
}

} // namespace

Logger& Logger::instance()
{
    static Logger logger;
    return logger;
}

Logger::~Logger()
{
    close();
}

bool Logger::open(const std::string& path)
{
    Logger& self = instance();
    {
        std::lock_guard<std::mutex> lock(self.mutex);
        if (self.opened) {
            return false;
        }
        self.path = path;
        self.openFile();
        self.opened = true;
    }
    write(LOG_INFO, "LOG INITIALISED");
    return true;
}

bool Logger::close()
{
    Logger& self = instance();
    {
        std::lock_guard<std::mutex> lock(self.mutex);
        if (!self.opened) {
            return false;
        }
    }
    write(LOG_INFO, "LOG FINALISED");
    std::lock_guard<std::mutex> lock(self.mutex);
    self.file.close();
    self.closed = true;
    return true;
}

void Logger::setLevel(LogLevel level)
{
    instance().level = level;
}

bool Logger::fatal(const std::string& message)
{
    return write(LOG_FATAL, message);
}

bool Logger::fatal(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const bool written = writeFormatted(LOG_FATAL, format, args);
    va_end(args);
    return written;
}

bool Logger::error(const std::string& message)
{
    return write(LOG_ERROR, message);
}

bool Logger::error(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const bool written = writeFormatted(LOG_ERROR, format, args);
    va_end(args);
    return written;
}

bool Logger::warn(const std::string& message)
{
    return write(LOG_WARN, message);
}

bool Logger::warn(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const bool written = writeFormatted(LOG_WARN, format, args);
    va_end(args);
    return written;
}

bool Logger::info(const std::string& message)
{
    return write(LOG_INFO, message);
}

bool Logger::info(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const bool written = writeFormatted(LOG_INFO, format, args);
    va_end(args);
    return written;
}

bool Logger::debug(const std::string& message)
{
    return write(LOG_DEBUG, message);
}

bool Logger::debug(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const bool written = writeFormatted(LOG_DEBUG, format, args);
    va_end(args);
    return written;
}

bool Logger::beginScope(const std::string& name)
{
    if (name.empty()) {
        return false;
    }
    write(LOG_DEBUG, name + " BEGIN");
    Logger& self = instance();
    std::lock_guard<std::mutex> lock(self.mutex);
    self.scopes.push_back(name);
    return true;
}

std::string Logger::endScope()
{
    Logger& self = instance();
    std::string name;
    {
        std::lock_guard<std::mutex> lock(self.mutex);
        if (self.scopes.empty()) {
            return {};
        }
        name = self.scopes.back();
        self.scopes.pop_back();
    }
    write(LOG_DEBUG, name + " END");
    return name;
}

std::string Logger::currentScope()
{
    Logger& self = instance();
    std::lock_guard<std::mutex> lock(self.mutex);
    return self.scopes.empty() ? std::string() : self.scopes.back();
}

void Logger::writeStackTrace()
{
    Logger& self = instance();
    std::string trace = "---Stack Trace---\n";
    {
        std::lock_guard<std::mutex> lock(self.mutex);
        for (const std::string& scope : self.scopes) {
            trace += "| " + scope + "\n";
        }
    }
    trace += "-----------------";
    writeLine("%s", trace.c_str());
}

const char* Logger::levelName(LogLevel level)
{
    switch (level) {
    case LOG_FATAL:
        return "FATAL";
    case LOG_ERROR:
        return "ERROR";
    case LOG_WARN:
        return "WARN ";
    case LOG_INFO:
        return "INFO ";
    case LOG_DEBUG:
        return "DEBUG";
    }
    return "UNKWN";
}

bool Logger::write(LogLevel level, const std::string& message)
{
    if (level > instance().level) {
        return false;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    char timeText[kTimeBufferSize];
    if (strftime_l(timeText, sizeof timeText, "%X %x", &local, cLocale()) == 0) {
        timeText[0] = '\0';
    }
    writeLine("[%s] %s - %s", timeText, levelName(level), message.c_str());
    return true;
}

bool Logger::writeFormatted(LogLevel level, const char* format, va_list args)
{
    char message[kLineBufferSize];
    std::vsnprintf(message, sizeof message, format, args);
    return write(level, message);
}

void Logger::writeLine(const char* format, ...)
{
    char line[kLineBufferSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);

    Logger& self = instance();
    std::lock_guard<std::mutex> lock(self.mutex);
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    if (!self.opened || self.closed) {
        return;
    }
    self.reopenAfterFailedWrite();
    // After a failure the file may end in part of a lost line; the next line starts on its own.
    const std::string text = (self.failing ? "\n" : "") + std::string(line) + '\n';
    self.file.write(text.data(), static_cast<std::streamsize>(text.size()));
    self.file.flush();
    if (self.file.fail() && !self.failing) {
        std::fprintf(stderr,
                     "tapwright: the log file %s cannot be written; its lines are lost until it can.\n",
                     self.path.c_str());
    }
    self.failing = self.file.fail();
}

void Logger::openFile()
{
    // Unbuffered, each line one write: a line the disk cannot take is not kept to land later.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(path, std::ios::out | std::ios::app);
}

void Logger::reopenAfterFailedWrite()
{
    // A stream that failed writes nothing more until it is cleared; the file may be gone, too.
    if (!file.fail()) {
        return;
    }
    file.close();
    file.clear();
    openFile();
}
