// The program as an operator runs it, measured from outside: a scratch copy of the program
// directory, simulated cameras on loopback, frame files read back. Prints one figure a line as
// "name<TAB>value<TAB>unit" after a human-readable header, for scripts/bench to gather.
//
// Needs $DISPLAY (scripts/bench gives it a private Xvfb). Run it in a network namespace with
// only loopback (scripts/bench does when it can), or device 2, a server, listens on the
// machine's address.

#include <QApplication>
#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <X11/Xlib.h>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const QByteArray kPrefix = "The package barcode info is :";
constexpr int kWaitMs = 15000;

void figure(const std::string& name, double value, const char* unit)
{
    std::printf("%s\t%.2f\t%s\n", name.c_str(), value, unit);
    std::fflush(stdout);
}

void note(const QString& text)
{
    std::fprintf(stderr, "bench_e2e: %s\n", qPrintable(text));
}

// Lets the event loop run (sockets of an idle camera, the bench's own widgets) for a while.
void spin(int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
}

bool spinUntil(const std::function<bool()>& condition, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto rank = size_t(std::max(0.0, std::ceil(p * double(values.size())) - 1));
    return values[std::min(rank, values.size() - 1)];
}

bool copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString source = it.next();
        const QString target = to + source.mid(from.size());
        if (!QDir().mkpath(QFileInfo(target).path()) || !QFile::copy(source, target)) {
            return false;
        }
        QFile::setPermissions(target, QFile(source).permissions());
    }
    return true;
}

struct Device
{
    int type = 0; // 0 client, 1 server
    quint16 port = 0;
    QString frameDir;
    QString start = "[";
    QString end = "]";
    bool keepEveryFrame = false;
};

// Set for the second round of figures: every device keeps every frame, and each figure's name says so.
bool g_keep = false;

std::string named(const char* name)
{
    return std::string(name) + (g_keep ? "_kept" : "");
}

// A scratch program directory with its own XDG tree; one run of the program at a time.
class ScratchProgram
{
public:
    ScratchProgram(const QString& binDir)
    {
        m_ok = m_dir.isValid() && copyTree(binDir, programDir());
        for (const char* sub : { "config", "data", "cache", "runtime" }) {
            QDir().mkpath(m_dir.filePath(sub));
        }
        QFile::setPermissions(m_dir.filePath("runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    ~ScratchProgram() { stop(); }

    bool isValid() const { return m_ok; }
    QString programDir() const { return m_dir.filePath("program"); }
    // The second round's files go apart from the first's.
    QString path(const QString& name) const { return m_dir.filePath((g_keep ? "kept-" : "") + name); }

    void configure(const QList<Device>& devices)
    {
        QFile::remove(programDir() + "/TCPconfig.json");
        if (devices.isEmpty()) {
            return;
        }
        QFile file(programDir() + "/TCPconfig.json");
        file.open(QIODevice::WriteOnly);
        QByteArray json = "{\n";
        for (int i = 0; i < devices.size(); ++i) {
            const Device& d = devices[i];
            QDir().mkpath(d.frameDir);
            json += QStringLiteral("\"page_Device%1\": {\"Status\": 1, \"TcpType\": %2, \"TcpPort\": \"%3\", "
                                   "\"TcpClientIP\": \"127.0.0.1\", \"FileDir\": \"%4\", \"StartChar\": \"%5\", "
                                   "\"EndChar\": \"%6\"%8}%7\n")
                        .arg(i + 1)
                        .arg(d.type)
                        .arg(d.port)
                        .arg(d.frameDir, d.start, d.end, i + 1 < devices.size() ? "," : "")
                        .arg(d.keepEveryFrame || g_keep ? ", \"KeepEveryFrame\": 1" : "")
                        .toUtf8();
        }
        file.write(json + "}\n");
    }

    bool start(const QStringList& extraEnvironment = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString& pair : extraEnvironment) {
            env.insert(pair.section('=', 0, 0), pair.section('=', 1));
        }
        env.insert("XDG_CONFIG_HOME", m_dir.filePath("config"));
        env.insert("XDG_DATA_HOME", m_dir.filePath("data"));
        env.insert("XDG_CACHE_HOME", m_dir.filePath("cache"));
        env.insert("XDG_RUNTIME_DIR", m_dir.filePath("runtime"));
        env.remove("QT_QPA_PLATFORM");
        m_process.setProcessEnvironment(env);
        m_process.setStandardOutputFile(m_dir.filePath("program.out"));
        m_process.setStandardErrorFile(m_dir.filePath("program.err"));
        m_process.start(programDir() + "/tapwright", QStringList());
        return m_process.waitForStarted(kWaitMs);
    }

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning) {
            return;
        }
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    qint64 pid() const { return m_process.processId(); }
    bool isRunning() const { return m_process.state() == QProcess::Running; }

    // The address a server device listens on at port, from the kernel's table of TCP sockets.
    static QString listeningAddress(quint16 port)
    {
        QFile table("/proc/net/tcp");
        table.open(QIODevice::ReadOnly);
        for (const QByteArray& line : table.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            const QList<QByteArray> local = fields.value(1).split(':');
            if (fields.value(3) == "0A" && local.value(1).toUInt(nullptr, 16) == port) {
                // The address's bytes in network order, printed as a native integer.
                return QHostAddress(qFromBigEndian(quint32(local.value(0).toUInt(nullptr, 16)))).toString();
            }
        }
        return QString();
    }

    // Milliseconds of CPU (user + system) the program used so far.
    double cpuMs() const
    {
        QFile file(QStringLiteral("/proc/%1/stat").arg(pid()));
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QByteArray stat = file.readAll();
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        const double ticks = fields.value(11).toDouble() + fields.value(12).toDouble();
        return ticks * 1000.0 / double(sysconf(_SC_CLK_TCK));
    }

    // A "Vm..." figure of /proc/<pid>/status in MB.
    double memoryMb(const char* key) const
    {
        QFile file(QStringLiteral("/proc/%1/status").arg(pid()));
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        for (const QByteArray& line : file.readAll().split('\n')) {
            if (line.startsWith(key)) {
                return line.mid(int(qstrlen(key))).simplified().split(' ').value(0).toDouble() / 1024.0;
            }
        }
        return 0;
    }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    bool m_ok = false;
};

// A camera simulator whose printed frames go to a file: seq -> sending time (ms since the epoch).
class Camera
{
public:
    Camera(const QString& logPath, const QStringList& arguments)
        : m_logPath(logPath)
    {
        m_process.setStandardOutputFile(logPath);
        m_process.setStandardErrorFile(logPath + ".err");
        m_process.start(QStringLiteral(TAPWRIGHT_CAMERA_PATH), arguments);
        m_process.waitForStarted(kWaitMs);
    }
    ~Camera()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            m_process.waitForFinished(5000);
        }
    }

    bool isRunning() const { return m_process.state() == QProcess::Running; }
    bool waitUntilListening() const
    {
        return spinUntil(
            [&] {
                QFile file(m_logPath + ".err");
                return file.open(QIODevice::ReadOnly) && file.readAll().contains("listening on");
            },
            kWaitMs);
    }

    // Frame text (unwrapped) -> time it went out.
    std::map<QString, double> sent() const
    {
        std::map<QString, double> frames;
        QFile file(m_logPath);
        file.open(QIODevice::ReadOnly);
        for (const QByteArray& line : file.readAll().split('\n')) {
            const QList<QByteArray> parts = line.split(' ');
            if (parts.size() == 3) {
                const QString wrapped = QString::fromUtf8(parts[2]);
                frames[wrapped.mid(1, wrapped.size() - 2)] = parts[1].toDouble();
            }
        }
        return frames;
    }

private:
    QString m_logPath;
    QProcess m_process;
};

// Frame text -> the time its file was last written (ms since the epoch, to the microsecond).
std::map<QString, double> storedFrames(const QString& dir)
{
    std::map<QString, double> frames;
    for (const QFileInfo& info : QDir(dir).entryInfoList({ "*.txt" }, QDir::Files)) {
        QFile file(info.filePath());
        struct stat status
        {
        };
        if (!file.open(QIODevice::ReadOnly) || ::stat(QFile::encodeName(info.filePath()).constData(), &status) != 0) {
            continue;
        }
        const QByteArray content = file.readAll();
        const double written = double(status.st_mtim.tv_sec) * 1e3 + double(status.st_mtim.tv_nsec) / 1e6;
        frames[QString::fromUtf8(content.mid(kPrefix.size()))] = written;
    }
    return frames;
}

// When each frame file in a directory got its final name, to the microsecond: the file system's own
// times are those of its last clock tick, milliseconds early.
class FileArrivals
{
public:
    explicit FileArrivals(const QString& dir)
        : m_dir(dir)
        , m_fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        inotify_add_watch(m_fd, QFile::encodeName(dir).constData(), IN_MOVED_TO | IN_CLOSE_WRITE);
        m_thread = std::thread([this] { watch(); });
    }
    ~FileArrivals()
    {
        m_stop = true;
        m_thread.join();
        ::close(m_fd);
    }

    // Frame text -> when its file appeared, ms since the epoch.
    std::map<QString, double> frames() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::map<QString, double> frames;
        for (const auto& [name, at] : m_arrived) {
            QFile file(m_dir + "/" + name);
            if (file.open(QIODevice::ReadOnly)) {
                frames[QString::fromUtf8(file.readAll().mid(kPrefix.size()))] = at;
            }
        }
        return frames;
    }

private:
    void watch()
    {
        alignas(inotify_event) char buffer[64 * 1024];
        while (!m_stop) {
            pollfd ready { m_fd, POLLIN, 0 };
            if (::poll(&ready, 1, 50) <= 0) {
                continue;
            }
            const ssize_t got = ::read(m_fd, buffer, sizeof buffer);
            timespec now {};
            clock_gettime(CLOCK_REALTIME, &now);
            const double at = double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
            std::lock_guard<std::mutex> lock(m_mutex);
            for (ssize_t offset = 0; offset < got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                const QString name = QFile::decodeName(event->len ? event->name : "");
                if (name.endsWith(".txt")) {
                    m_arrived.emplace(name, at);
                }
                offset += ssize_t(sizeof(inotify_event) + event->len);
            }
        }
    }

    const QString m_dir;
    const int m_fd;
    std::atomic<bool> m_stop { false };
    mutable std::mutex m_mutex;
    std::map<QString, double> m_arrived;
    std::thread m_thread;
};

// Every stored frame text in the order of the file names, copies of one millisecond by their number.
QStringList storedInOrder(const QString& dir)
{
    QStringList names = QDir(dir).entryList({ "*.txt" }, QDir::Files);
    const auto key = [](const QString& name) {
        return name.left(19) + name.mid(19).section('.', 0, 0).mid(1).rightJustified(9, '0');
    };
    std::sort(names.begin(), names.end(), [&](const QString& a, const QString& b) { return key(a) < key(b); });
    QStringList texts;
    for (const QString& name : names) {
        QFile file(dir + "/" + name);
        texts << (file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().mid(kPrefix.size())) : QString());
    }
    return texts;
}

// The port a listening camera chose, from its standard error.
quint16 listeningPort(const QString& cameraLog)
{
    QFile err(cameraLog + ".err");
    err.open(QIODevice::ReadOnly);
    return quint16(QRegularExpression(":(\\d+)").match(QString::fromUtf8(err.readAll())).captured(1).toUInt());
}

// One read's worth and more at once: the camera sends a burst of 16-byte frames as fast as it can.
void measureBurst(ScratchProgram& program, int bytes)
{
    const QString dir = program.path("burst-frames");
    const QString frames = QString::number(bytes / 16);
    Camera camera(program.path("burst-camera.log"),
                  { "--listen", "127.0.0.1:0", "--rate", "0", "--repeat", frames, "FRAME-C-{seq}" });
    if (!camera.waitUntilListening()) {
        note("the burst camera did not listen");
        return;
    }
    program.configure({ Device { 0, listeningPort(program.path("burst-camera.log")), dir } });
    program.start();
    spinUntil([&] { return !camera.isRunning(); }, kWaitMs * 4);
    // Until every frame is there, or no file came for three seconds.
    for (int count = -1, now = 0; (now = QDir(dir).entryList({ "*.txt" }, QDir::Files).size()) > count;) {
        count = now;
        spinUntil([&] { return QDir(dir).entryList({ "*.txt" }, QDir::Files).size() >= frames.toInt(); }, 3000);
    }
    program.stop();
    const int lost = int(camera.sent().size()) - int(storedFrames(dir).size());
    std::fprintf(stderr, "burst of %d bytes: %s frames sent, %d lost\n", bytes, qPrintable(frames), lost);
    figure(named("burst_frames_lost"), lost, "frames");
}

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

// Start -> first window mapped on the display, from a separate X connection watching the root.
void measureStart(ScratchProgram& program, int runs)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        note("no X display for the start measurement");
        return;
    }
    XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
    XSync(display, True);
    program.configure({});

    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        XSync(display, True);
        QElapsedTimer timer;
        timer.start();
        if (!program.start()) {
            note("the program did not start");
            break;
        }
        bool mapped = false;
        while (!mapped && timer.elapsed() < kWaitMs) {
            while (!mapped && XPending(display) > 0) {
                XEvent event;
                XNextEvent(display, &event);
                mapped = event.type == MapNotify;
            }
            if (!mapped) {
                fd_set fds;
                FD_ZERO(&fds);
                FD_SET(ConnectionNumber(display), &fds);
                timeval wait = { 0, 2000 };
                select(ConnectionNumber(display) + 1, &fds, nullptr, nullptr, &wait);
            }
        }
        if (mapped) {
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
        }
        spin(300);
        program.stop();
    }
    XCloseDisplay(display);
    std::fprintf(stderr, "start -> window shown over %zu runs: median %.0f ms\n", times.size(), percentile(times, 0.5));
    figure("start_ms", percentile(times, 0.5), "ms");
}

// Camera send -> file for every frame stored: median and p99 as "<name>_median_ms<suffix>" and
// "<name>_p99_ms<suffix>".
void reportLatency(const std::string& name,
                   const std::string& suffix,
                   const std::map<QString, double>& sent,
                   const std::map<QString, double>& stored)
{
    std::vector<double> latencies;
    for (const auto& [text, at] : sent) {
        const auto found = stored.find(text);
        if (found != stored.end()) {
            latencies.push_back(found->second - at);
        }
    }
    std::fprintf(stderr,
                 "%s over %zu of %zu frames: median %.2f ms, p99 %.2f ms, max %.2f ms\n",
                 name.c_str(),
                 latencies.size(),
                 sent.size(),
                 percentile(latencies, 0.5),
                 percentile(latencies, 0.99),
                 percentile(latencies, 1.0));
    figure(name + "_median_ms" + suffix, percentile(latencies, 0.5), "ms");
    figure(name + "_p99_ms" + suffix, percentile(latencies, 0.99), "ms");
}

// Camera send -> frame file, one client device, frames spaced so that each one is its own read.
void measureLatency(ScratchProgram& program, int frames)
{
    const QString dir = program.path("latency-frames");
    Camera camera(program.path("latency-camera.log"),
                  { "--listen", "127.0.0.1:0", "--rate", "20", "--repeat", QString::number(frames), "LAT{seq}" });
    if (!camera.waitUntilListening()) {
        note("the latency camera did not listen");
        return;
    }
    program.configure({ Device { 0, listeningPort(program.path("latency-camera.log")), dir } });
    const FileArrivals arrivals(dir);
    program.start();
    spinUntil([&] { return !camera.isRunning(); }, frames * 100 + kWaitMs);
    spinUntil([&] { return storedFrames(dir).size() >= size_t(frames); }, 3000);
    program.stop();

    reportLatency("latency", g_keep ? "_kept" : "", camera.sent(), arrivals.frames());
}

// socat | gawk writing one file per frame as the program does, prefix and all: the kept figures'
// comparison. Runs until the camera closes the connection.
QString gawkPipeline(quint16 port, const QString& dir)
{
    return QStringLiteral("socat -u TCP:127.0.0.1:%1 STDOUT | gawk -v RS=']' -v dir='%2' -v prefix='%3' "
                          "'!sub(/^[^[]*\\[/, \"\") { next } "
                          "{ f = dir \"/\" NR \".txt\"; printf \"%s%s\", prefix, $0 > f; close(f) }'")
        .arg(port)
        .arg(dir, QString::fromLatin1(kPrefix));
}

bool haveGawkPipeline()
{
    if (QStandardPaths::findExecutable("socat").isEmpty() || QStandardPaths::findExecutable("gawk").isEmpty()) {
        note("socat or gawk missing; no comparison");
        return false;
    }
    return true;
}

// The same latency run through socat | gawk.
void measureGawkLatency(ScratchProgram& program, int frames)
{
    if (!haveGawkPipeline()) {
        return;
    }
    const QString dir = program.path("gawk-latency-frames");
    QDir().mkpath(dir);
    const QString log = program.path("gawk-latency-camera.log");
    Camera camera(log, { "--listen", "127.0.0.1:0", "--rate", "20", "--repeat", QString::number(frames), "LAT{seq}" });
    if (!camera.waitUntilListening()) {
        note("the latency camera did not listen");
        return;
    }
    const FileArrivals arrivals(dir);
    QProcess pipeline;
    pipeline.start("sh", { "-c", gawkPipeline(listeningPort(log), dir) });
    pipeline.waitForFinished(frames * 100 + kWaitMs);
    reportLatency("gawk_latency", "", camera.sent(), arrivals.frames());
}

// A burst with every frame kept into a tmpfs directory, by the program and then by socat | gawk
// from the same camera: frames a second from the first frame sent to the last file written.
void measureThroughput(ScratchProgram& program, int frames)
{
    QTemporaryDir tmpfs(QStringLiteral("/dev/shm/tapwright-bench-XXXXXX"));
    if (!tmpfs.isValid() || !haveGawkPipeline()) {
        note("no tmpfs at /dev/shm or no socat | gawk; no throughput figures");
        return;
    }
    double rate[2] = { 0, 0 };
    for (const bool gawk : { false, true }) {
        const QString dir = tmpfs.filePath(gawk ? "gawk" : "program");
        QDir().mkpath(dir);
        const QString log = program.path(gawk ? "throughput-gawk-camera.log" : "throughput-camera.log");
        Camera camera(
            log, { "--listen", "127.0.0.1:0", "--rate", "0", "--repeat", QString::number(frames), "FRAME-T-{seq}" });
        if (!camera.waitUntilListening()) {
            note("the throughput camera did not listen");
            return;
        }
        if (gawk) {
            QProcess pipeline;
            pipeline.start("sh", { "-c", gawkPipeline(listeningPort(log), dir) });
            pipeline.waitForFinished(kWaitMs * 4);
        } else {
            program.configure({ Device { 0, listeningPort(log), dir } });
            program.start();
            // Listing the directory costs the writer; a look every quarter second is enough.
            QElapsedTimer looked;
            looked.start();
            spinUntil(
                [&] {
                    if (looked.elapsed() < 250) {
                        return false;
                    }
                    looked.restart();
                    return QDir(dir).entryList({ "*.txt" }, QDir::Files).size() >= frames;
                },
                kWaitMs * 4);
            program.stop();
        }
        const std::map<QString, double> sent = camera.sent();
        const std::map<QString, double> stored = storedFrames(dir);
        int lost = 0;
        double first = 0;
        double last = 0;
        for (const auto& [text, at] : sent) {
            const auto found = stored.find(text);
            lost += found == stored.end() ? 1 : 0;
            first = first == 0 ? at : std::min(first, at);
            last = found == stored.end() ? last : std::max(last, found->second);
        }
        rate[gawk] = last > first ? 1000.0 * double(stored.size()) / (last - first) : 0;
        std::fprintf(stderr,
                     "burst of %d frames to tmpfs, %s: %d lost, %.0f frames/s\n",
                     frames,
                     gawk ? "socat | gawk" : "the program",
                     lost,
                     rate[gawk]);
        figure(gawk ? "gawk_throughput_lost" : "throughput_lost_kept", lost, "frames");
    }
    figure("throughput_frames_per_s_kept", rate[0], "frames/s");
    figure("gawk_throughput_frames_per_s", rate[1], "frames/s");
    figure("throughput_ratio_kept", rate[1] > 0 ? rate[0] / rate[1] : 0, "");
}

// Devices streaming at a rate for a while: frames lost and memory. The second device is a server
// its camera connects to; the others are clients of cameras that listen.
void measureStreaming(ScratchProgram& program, int deviceCount, int seconds, int rate)
{
    const QString frames = QString::number(seconds * rate);
    std::vector<std::unique_ptr<Camera>> cameras(static_cast<size_t>(deviceCount));
    QList<Device> devices;
    QStringList dirs;
    for (int i = 0; i < deviceCount; ++i) {
        // Kept, 16-byte frames with their markers; otherwise the short ones of the first figures.
        const QString letter(QChar('A' + i));
        const QString frame = g_keep ? "FRAME-" + letter + "-{seq}" : letter + "{seq}";
        dirs << program.path(QStringLiteral("stream-frames-%1").arg(i + 1));
        const QString log = program.path(QStringLiteral("stream-camera%1.log").arg(i + 1));
        if (i == 1) {
            devices << Device { 1, freePort(), dirs.last(), "#", "$" };
            continue;
        }
        cameras[size_t(i)] = std::make_unique<Camera>(
            log, QStringList { "--listen", "127.0.0.1:0", "--rate", QString::number(rate), "--repeat", frames, frame });
        if (!cameras[size_t(i)]->waitUntilListening()) {
            note(QStringLiteral("camera %1 did not listen").arg(i + 1));
            return;
        }
        devices << Device { 0, listeningPort(log), dirs.last() };
    }
    program.configure(devices);
    program.start();
    if (!spinUntil([&] { return !ScratchProgram::listeningAddress(devices[1].port).isEmpty(); }, kWaitMs)) {
        note("device 2 did not listen");
        program.stop();
        return;
    }
    cameras[1] = std::make_unique<Camera>(
        program.path("stream-camera2.log"),
        QStringList {
            "--connect",
            QStringLiteral("%1:%2").arg(ScratchProgram::listeningAddress(devices[1].port)).arg(devices[1].port),
            "--reconnect",
            "--interval",
            "100",
            "--start",
            "#",
            "--end",
            "$",
            "--rate",
            QString::number(rate),
            "--repeat",
            frames,
            g_keep ? "FRAME-B-{seq}" : "B{seq}" });

    double peakRss = 0;
    spinUntil(
        [&] {
            peakRss = std::max(peakRss, program.memoryMb("VmRSS:"));
            return std::none_of(cameras.begin(), cameras.end(), [](const auto& camera) { return camera->isRunning(); });
        },
        seconds * 1000 * 2 + kWaitMs);
    peakRss = std::max(peakRss, program.memoryMb("VmHWM:"));
    // The carried text of the last frames goes at the silence flush.
    spin(1000);
    program.stop();

    int lost = 0;
    int sentTotal = 0;
    int duplicated = 0;
    int outOfOrder = 0;
    for (int i = 0; i < deviceCount; ++i) {
        const std::map<QString, double> sent = cameras[size_t(i)]->sent();
        const std::map<QString, double> stored = storedFrames(dirs[i]);
        int missing = 0;
        for (const auto& entry : sent) {
            missing += stored.count(entry.first) ? 0 : 1;
        }
        const QStringList inOrder = storedInOrder(dirs[i]);
        duplicated += inOrder.size() - int(stored.size());
        for (int f = 1; f < inOrder.size(); ++f) {
            outOfOrder += inOrder[f].right(6).toInt() <= inOrder[f - 1].right(6).toInt() ? 1 : 0;
        }
        std::fprintf(stderr, "device %d: %zu sent, %zu stored, %d lost\n", i + 1, sent.size(), stored.size(), missing);
        lost += missing;
        sentTotal += int(sent.size());
    }
    figure(named("stream_devices"), deviceCount, "devices");
    figure(named("stream_frames_sent"), sentTotal, "frames");
    figure(named("stream_frames_lost"), lost, "frames");
    figure(named("stream_frames_duplicated"), duplicated, "frames");
    figure(named("stream_frames_out_of_order"), outOfOrder, "frames");
    figure(named("peak_rss_mb"), peakRss, "MB");
}

// Open devices with nothing to say: clients connected to a silent camera, the second a server waiting.
void measureIdle(ScratchProgram& program, int deviceCount, int seconds)
{
    QTcpServer silentCamera;
    silentCamera.listen(QHostAddress::LocalHost);
    QList<QTcpSocket*> held;
    QObject::connect(&silentCamera, &QTcpServer::newConnection, [&] {
        while (QTcpSocket* socket = silentCamera.nextPendingConnection()) {
            held.append(socket);
        }
    });
    QList<Device> devices;
    for (int i = 0; i < deviceCount; ++i) {
        const QString dir = program.path(QStringLiteral("idle-frames-%1").arg(i + 1));
        devices << (i == 1 ? Device { 1, freePort(), dir } : Device { 0, silentCamera.serverPort(), dir });
    }
    program.configure(devices);
    program.start();
    spinUntil([&] { return held.size() == deviceCount - 1; }, kWaitMs);
    spin(2000);
    const double before = program.cpuMs();
    QElapsedTimer wall;
    wall.start();
    spin(seconds * 1000);
    const double used = program.cpuMs() - before;
    const double percent = 100.0 * used / double(wall.elapsed());
    const double rss = program.memoryMb("VmRSS:");
    program.stop();
    std::fprintf(stderr, "idle: %.0f ms of CPU in %.1f s\n", used, double(wall.elapsed()) / 1000.0);
    figure(named("idle_devices"), deviceCount, "devices");
    figure(named("idle_cpu_percent"), percent, "% of a core");
    figure(named("idle_rss_mb"), rss, "MB");
    if (g_keep) {
        qDeleteAll(held);
        return;
    }

    // Qt's GLX probe loads the desktop's GL driver (with LLVM on Mesa) into a program that draws
    // no OpenGL; the same idle program without it shows what that costs.
    held.clear();
    program.start({ "QT_XCB_GL_INTEGRATION=none" });
    spinUntil([&] { return held.size() == deviceCount - 1; }, kWaitMs);
    spin(2000);
    figure("idle_rss_without_gl_mb", program.memoryMb("VmRSS:"), "MB");
    program.stop();
    qDeleteAll(held);
}

// The same kind of text through socat into xdotool, into a focused line edit, for comparison.
void measureSocatXdotool(const QString& scratch, int characters)
{
    if (QStandardPaths::findExecutable("socat").isEmpty() || QStandardPaths::findExecutable("xdotool").isEmpty()) {
        note("socat or xdotool missing; no comparison");
        return;
    }
    QByteArray text;
    for (char c = 0x21; text.size() < characters; c = c == 0x7E ? 0x21 : char(c + 1)) {
        if (c != '<' && c != '\\') {
            text.append(c);
        }
    }
    QLineEdit edit;
    edit.setMaxLength(characters * 2);
    edit.resize(600, 30);
    edit.show();
    edit.activateWindow();
    edit.setFocus();
    if (!spinUntil([&] { return edit.hasFocus(); }, 5000)) {
        note("the line edit did not get the focus");
        return;
    }
    const quint16 port = freePort();
    QProcess pipeline;
    pipeline.start("sh",
                   { "-c",
                     QStringLiteral("socat -u TCP-LISTEN:%1,bind=127.0.0.1,reuseaddr STDOUT | xdotool type --delay 0 "
                                    "--file -")
                         .arg(port) });
    pipeline.waitForStarted(kWaitMs);
    Camera camera(scratch + "/socat-camera.log",
                  { "--connect",
                    QStringLiteral("127.0.0.1:%1").arg(port),
                    "--reconnect",
                    "--interval",
                    "20",
                    "--start",
                    "",
                    "--end",
                    "",
                    "--rate",
                    "0",
                    QString::fromLatin1(text) });
    QElapsedTimer timer;
    spinUntil([&] { return !edit.text().isEmpty(); }, kWaitMs);
    timer.start();
    int last = 0;
    qint64 lastChange = 0;
    spinUntil(
        [&] {
            if (edit.text().size() != last) {
                last = edit.text().size();
                lastChange = timer.elapsed();
            }
            return last >= characters || timer.elapsed() - lastChange > 2000;
        },
        60000);
    pipeline.waitForFinished(kWaitMs);
    const int got = edit.text().size();
    const double rate = lastChange > 0 ? 1000.0 * got / double(lastChange) : 0;
    std::fprintf(stderr,
                 "socat | xdotool type: %d of %d characters, %s\n",
                 got,
                 characters,
                 edit.text().toLatin1() == text ? "text exact" : "text differs");
    figure("socat_xdotool_chars_per_s", rate, "chars/s");
    figure("socat_xdotool_lost", characters - got, "chars");
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("End-to-end figures of the program with simulated cameras.");
    parser.addHelpOption();
    parser.addOptions({
        { "stream-seconds", "Length of the two-device streaming run (default 60).", "s", "60" },
        { "rate", "Frames per second per device in that run (default 100).", "n", "100" },
        { "kept-rate", "The same, with every frame kept (default 1000).", "n", "1000" },
        { "kept-devices", "Devices streaming, then idle, with every frame kept (default 8).", "n", "8" },
        { "throughput-frames", "Frames of the burst for the throughput figures (default 50000).", "n", "50000" },
        { "idle-seconds", "Length of the idle measurement (default 30).", "s", "30" },
        { "latency-frames", "Frames for the latency measurement (default 200).", "n", "200" },
        { "typing-characters", "Characters for the socat | xdotool comparison (default 2000).", "n", "2000" },
    });
    parser.process(app);

    const QString binDir = QStringLiteral(TAPWRIGHT_PROGRAM_DIR);
    ScratchProgram program(binDir);
    if (!program.isValid()) {
        note("cannot copy the program directory " + binDir);
        return 1;
    }
    std::printf("bench_e2e: program %s, display %s\n", qPrintable(binDir), qgetenv("DISPLAY").constData());
    measureStart(program, 5);
    measureLatency(program, parser.value("latency-frames").toInt());
    measureStreaming(program, 2, parser.value("stream-seconds").toInt(), parser.value("rate").toInt());
    measureIdle(program, 2, parser.value("idle-seconds").toInt());
    measureSocatXdotool(program.path(""), parser.value("typing-characters").toInt());

    g_keep = true;
    measureLatency(program, parser.value("latency-frames").toInt());
    measureGawkLatency(program, parser.value("latency-frames").toInt());
    measureBurst(program, 1024 * 1024);
    measureThroughput(program, parser.value("throughput-frames").toInt());
    measureStreaming(program,
                     parser.value("kept-devices").toInt(),
                     parser.value("stream-seconds").toInt(),
                     parser.value("kept-rate").toInt());
    measureIdle(program, parser.value("kept-devices").toInt(), parser.value("idle-seconds").toInt());
    return 0;
}
