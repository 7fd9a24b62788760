// Pushes frames through a running DataThread into files and reports how many arrive, how fast,
// and how long each took from its push to the close of its file.

#include "DataThread.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

const QByteArray kPrefix = "The package barcode info is :";

// Notes when each frame file is closed, by the frame number written into it.
class FileCloseWatcher
{
public:
    explicit FileCloseWatcher(const QString& dir)
        : m_dir(dir)
    {
        m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_fd >= 0) {
            inotify_add_watch(m_fd, QFile::encodeName(dir).constData(), IN_CLOSE_WRITE);
            m_thread = std::thread([this] { watch(); });
        }
    }

    ~FileCloseWatcher()
    {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        if (m_fd >= 0) {
            close(m_fd);
        }
    }

    bool isWatching() const { return m_fd >= 0; }

    std::map<int, Clock::time_point> arrivals()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_arrivals;
    }

    std::size_t count()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_arrivals.size();
    }

private:
    void watch()
    {
        alignas(inotify_event) char buffer[16 * 1024];
        while (!m_stop) {
            pollfd pfd { m_fd, POLLIN, 0 };
            if (poll(&pfd, 1, 50) <= 0) {
                continue;
            }
            const ssize_t length = read(m_fd, buffer, sizeof buffer);
            const Clock::time_point now = Clock::now();
            for (ssize_t offset = 0; offset < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                if (event->len > 0) {
                    record(QString::fromLocal8Bit(event->name), now);
                }
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }

    void record(const QString& name, Clock::time_point when)
    {
        QFile file(m_dir + "/" + name);
        if (!file.open(QIODevice::ReadOnly)) {
            return;
        }
        const QByteArray frame = file.readAll().mid(kPrefix.size());
        bool ok = false;
        const int number = frame.left(frame.indexOf(':')).toInt(&ok);
        if (ok) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_arrivals.emplace(number, when);
        }
    }

    QString m_dir;
    int m_fd = -1;
    std::atomic<bool> m_stop { false };
    std::thread m_thread;
    std::mutex m_mutex;
    std::map<int, Clock::time_point> m_arrivals;
};

struct Scenario
{
    const char* name;
    int frames;
    int frameBytes;
    bool waitForEachFile;
};

QByteArray makeFrame(int number, int frameBytes)
{
    QByteArray frame = "#" + QByteArray::number(number) + ":";
    frame.append(std::max(0, frameBytes - frame.size() - 1), 'x');
    frame.append('$');
    return frame;
}

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t index = std::min(values.size() - 1, static_cast<std::size_t>(fraction * values.size()));
    return values[index];
}

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    const Clock::time_point deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void run(const Scenario& scenario)
{
    QTemporaryDir dir;
    FileCloseWatcher watcher(dir.path());
    if (!dir.isValid() || !watcher.isWatching()) {
        std::printf("%-36s could not watch a temporary directory\n", scenario.name);
        return;
    }
    DataThread thread;
    thread.setKeyOutput(false);
    thread.setStartEndChar("#", "$");
    thread.setFileDir(dir.path());
    thread.startThread();

    std::vector<Clock::time_point> pushedAt(static_cast<std::size_t>(scenario.frames));
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < scenario.frames; ++i) {
        const QByteArray frame = makeFrame(i, scenario.frameBytes);
        // Never push more than there is room for: every byte reaches the worker.
        waitFor([&] { return thread.pendingBytes() + frame.size() <= DataThread::kBufferLimit; },
                std::chrono::seconds(10));
        pushedAt[static_cast<std::size_t>(i)] = Clock::now();
        thread.pushData(frame.constData(), frame.size());
        if (scenario.waitForEachFile) {
            waitFor([&] { return watcher.count() > static_cast<std::size_t>(i); }, std::chrono::seconds(2));
        }
    }
    waitFor([&] { return thread.pendingBytes() == 0; }, std::chrono::seconds(30));
    // Whatever is still carried comes out at the silence flush, or never.
    waitFor([&] { return watcher.count() == static_cast<std::size_t>(scenario.frames); },
            std::chrono::milliseconds(500));
    thread.stopThread();

    const std::map<int, Clock::time_point> arrivals = watcher.arrivals();
    std::vector<double> latencies;
    Clock::time_point last = begin;
    for (const auto& [number, when] : arrivals) {
        latencies.push_back(
            std::chrono::duration<double, std::milli>(when - pushedAt[static_cast<std::size_t>(number)]).count());
        last = std::max(last, when);
    }
    const double seconds = std::chrono::duration<double>(last - begin).count();
    std::printf("%-36s %6d %6d %8zu %9.1f %9.1f %9.1f\n",
                scenario.name,
                scenario.frames,
                scenario.frameBytes,
                arrivals.size(),
                seconds > 0 ? arrivals.size() / seconds : 0.0,
                percentile(latencies, 0.5),
                percentile(latencies, 0.99));
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);

    const Scenario scenarios[] = {
        { "one frame at a time", 150, 24, true },
        { "back to back, one chunk per frame", 400, 128, false },
        { "back to back, four chunks per frame", 100, 512, false },
        { "back to back, four frames per chunk", 400, 32, false },
    };
    std::printf(
        "%-36s %6s %6s %8s %9s %9s %9s\n", "scenario", "frames", "bytes", "written", "frames/s", "median ms", "p99 ms");
    for (const Scenario& scenario : scenarios) {
        run(scenario);
    }
    return 0;
}
