// Characters per second that key output gets into a focused Qt widget, next to xdotool.
// Uses $DISPLAY, or starts a private Xvfb when there is none.

#include "DataThread.h"
#include "Logger.h"
#include "XTestKeyInjector.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>
#include <functional>
#include <memory>

namespace {

constexpr int kCharacters = 2000;
constexpr qint64 kStallMs = 3000;

struct Figures
{
    double charactersPerSecond = 0;
    int lost = 0;
    bool exact = false;
};

// Printable ASCII without '<', so no chord is ever held back.
QByteArray benchText()
{
    QByteArray pattern;
    for (char c = 0x20; c <= 0x7E; ++c) {
        if (c != '<') {
            pattern.append(c);
        }
    }
    QByteArray text;
    while (text.size() < kCharacters) {
        text.append(pattern);
    }
    return text.left(kCharacters);
}

// Finds a free display number, starts Xvfb on it and waits until it takes connections.
std::unique_ptr<QProcess> startXvfb()
{
    for (int number = 90; number < 200; ++number) {
        if (QFile::exists(QString("/tmp/.X11-unix/X%1").arg(number))
            || QFile::exists(QString("/tmp/.X%1-lock").arg(number))) {
            continue;
        }
        const QString display = QString(":%1").arg(number);
        auto xvfb = std::make_unique<QProcess>();
        xvfb->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        xvfb->start("Xvfb", { display, "-noreset", "-nolisten", "tcp", "-screen", "0", "1280x1024x24" });
        if (!xvfb->waitForStarted(5000)) {
            return nullptr;
        }
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 5000 && xvfb->state() == QProcess::Running) {
            if (XTestKeyInjector(display.toLatin1()).isAvailable()) {
                qputenv("DISPLAY", display.toLatin1());
                return xvfb;
            }
            QThread::msleep(50);
        }
        xvfb->kill();
        xvfb->waitForFinished();
    }
    return nullptr;
}

// Runs `send` and waits until the widget holds the whole text or stops growing.
Figures measure(QLineEdit& edit, const QByteArray& text, const std::function<void()>& send)
{
    edit.clear();
    QApplication::processEvents();
    QElapsedTimer clock;
    clock.start();
    send();
    qint64 lastGrowth = 0;
    int lastSize = 0;
    qint64 finished = 0;
    while (true) {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        const int size = edit.text().size();
        if (size != lastSize) {
            lastSize = size;
            lastGrowth = clock.elapsed();
        }
        if (size >= text.size()) {
            finished = clock.elapsed();
            break;
        }
        if (clock.elapsed() - lastGrowth > kStallMs) {
            finished = lastGrowth;
            break;
        }
    }
    Figures figures;
    figures.charactersPerSecond = finished > 0 ? lastSize * 1000.0 / finished : 0;
    figures.lost = text.size() - lastSize;
    figures.exact = edit.text() == QString::fromLatin1(text);
    return figures;
}

Figures throughWorker(QLineEdit& edit, const QByteArray& text, int outputSpeed)
{
    QTemporaryDir frames;
    DataThread worker;
    worker.setKeyInjectorFactory([] { return std::make_unique<XTestKeyInjector>(); });
    worker.setKeyOutput(true);
    worker.setStartEndChar("\x01", "\x02");
    worker.setFileDir(frames.path());
    if (outputSpeed >= 0) {
        worker.setOutputSpeed(outputSpeed);
    }
    worker.startThread();
    const Figures figures = measure(edit, text, [&] { worker.pushData(text.constData(), text.size()); });
    worker.stopThread();
    return figures;
}

Figures throughInjector(QLineEdit& edit, const QByteArray& text)
{
    std::unique_ptr<QThread> typist(QThread::create([text] {
        XTestKeyInjector injector;
        for (const char c : text) {
            injector.sendCharacter(static_cast<unsigned char>(c), true);
            injector.sendCharacter(static_cast<unsigned char>(c), false);
        }
        injector.finishTyping();
    }));
    const Figures figures = measure(edit, text, [&] { typist->start(); });
    typist->wait();
    return figures;
}

Figures throughXdotool(QLineEdit& edit, const QByteArray& text, int delayMs)
{
    QProcess xdotool;
    const Figures figures = measure(edit, text, [&] {
        xdotool.start("xdotool", { "type", "--delay", QString::number(delayMs), QString::fromLatin1(text) });
    });
    xdotool.waitForFinished(30000);
    return figures;
}

void report(const char* what, const Figures& figures)
{
    std::printf("%-32s %8.0f chars/s  %4d lost  %s\n",
                what,
                figures.charactersPerSecond,
                figures.lost,
                figures.exact ? "text exact" : "TEXT DIFFERS");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    std::unique_ptr<QProcess> xvfb;
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        xvfb = startXvfb();
        if (!xvfb) {
            std::fprintf(stderr, "bench_keys: no DISPLAY and no Xvfb could be started\n");
            return 1;
        }
    }
    // One log line per chunk typed would bury the figures.
    Logger::setLevel(LOG_WARN);
    int result = 0;
    {
        QApplication app(argc, argv);
        QWidget window;
        auto* layout = new QVBoxLayout(&window);
        auto* edit = new QLineEdit(&window);
        layout->addWidget(edit);
        window.resize(800, 60);
        window.show();
        window.activateWindow();
        edit->setFocus();
        QElapsedTimer waited;
        waited.start();
        while (!edit->hasFocus() && waited.elapsed() < 5000) {
            QApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        if (!edit->hasFocus()) {
            std::fprintf(stderr, "bench_keys: the widget did not get the focus\n");
            result = 1;
        } else {
            const QByteArray text = benchText();
            std::printf("bench_keys: %d characters into a focused QLineEdit on %s\n",
                        kCharacters,
                        qgetenv("DISPLAY").constData());
            report("injector alone, no pause", throughInjector(*edit, text));
            report("worker, key delay 0 ms", throughWorker(*edit, text, -1));
            report("worker, key delay 1 ms", throughWorker(*edit, text, 4));
            if (QStandardPaths::findExecutable("xdotool").isEmpty()) {
                std::printf("xdotool not found; no comparison\n");
            } else {
                report("xdotool type --delay 0", throughXdotool(*edit, text, 0));
                report("xdotool type --delay 1", throughXdotool(*edit, text, 1));
            }
        }
    }
    if (xvfb) {
        xvfb->terminate();
        xvfb->waitForFinished(5000);
    }
    return result;
}
