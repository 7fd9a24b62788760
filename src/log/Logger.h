#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

enum LogLevel : std::int32_t
{
    LOG_FATAL = 0,
    LOG_ERROR = 1,
    LOG_WARN = 2,
    LOG_INFO = 3,
    LOG_DEBUG = 4
};

// The process-wide log: every line goes to standard output and then to one file, each flushed
// before the write returns. A line the file cannot take (a full disk) is lost from the file only;
// the next line tries the file again. Lives in static storage and writes its last line at process exit.
class Logger
{
public:
    static Logger& instance();

    static bool open(const std::string& path);
    static bool close();
    static void setLevel(LogLevel level);

    static bool fatal(const std::string& message);
    static bool fatal(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static bool error(const std::string& message);
    static bool error(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static bool warn(const std::string& message);
    static bool warn(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static bool info(const std::string& message);
    static bool info(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static bool debug(const std::string& message);
    static bool debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

    static bool beginScope(const std::string& name);
    static std::string endScope();
    static std::string currentScope();
    static void writeStackTrace();

    static const char* levelName(LogLevel level);

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    Logger() = default;
    ~Logger();

    static bool write(LogLevel level, const std::string& message);
    static bool writeFormatted(LogLevel level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));
    static void writeLine(const char* format, ...) __attribute__((format(printf, 1, 2)));
    void openFile();
    void reopenAfterFailedWrite();

    static constexpr int kLineBufferSize = 512;
    static constexpr int kTimeBufferSize = 21;

    std::atomic<LogLevel> level { LOG_INFO };
    bool opened = false;
    bool closed = false;
    // Set from a failed write until a line reaches the file again; the console hears of it once.
    bool failing = false;
    std::string path;
    std::vector<std::string> scopes;
    std::ofstream file;

    // Lines from several threads must never interleave; also guards the fields other than level.
    std::mutex mutex;
};
