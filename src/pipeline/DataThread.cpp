#include "DataThread.h"

#include "FrameFileWriter.h"
#include "FrameKeeper.h"
#include "KeyInjector.h"
#include "Logger.h"
#include "XTestKeyInjector.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <QVector>
#include <algorithm>
#include <cstring>
#include <memory>

namespace {

const char* const kFramePrefix = "The package barcode info is :";

} // namespace

const QMap<QString, int> DataThread::vkNameTable = {
    { "VK_ALT", 18 },   { "VK_SHIFT", 16 }, { "VK_CTRL", 17 }, { "VK_LEFT", 37 },
    { "VK_RIGHT", 39 }, { "VK_DOWN", 40 },  { "VK_UP", 38 },   { "VK_TAB", 9 },
};

DataThread::DataThread(QObject* parent)
    : QThread(parent)
{
}

bool DataThread::startThread()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_buffer.clear();
        m_droppedBytes = 0;
    }
    m_stop = false;
    start(QThread::InheritPriority);
    return true;
}

bool DataThread::stopThread()
{
    if (!isRunning()) {
        return true;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_dataArrived.notify_all();
    quit();
    wait();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_buffer.clear();
    return true;
}

void DataThread::setStartEndChar(const QString& start, const QString& end)
{
    m_startChar = start;
    m_endChar = end;
}

void DataThread::setFileDir(const QString& dir)
{
    m_fileDir = dir;
}

void DataThread::setKeyOutput(bool on)
{
    m_keyOutput = on;
}

void DataThread::setOutputSpeed(int speed)
{
    m_keyDelay = (speed >= 0 && speed <= 4) ? 5 - speed : 5;
}

void DataThread::setKeepEveryFrame(bool on)
{
    m_keepEveryFrame = on;
}

void DataThread::setKeyInjector(KeyInjector* injector)
{
    m_keyInjector = injector;
}

void DataThread::pushData(const char* data, int len)
{
    if (data == nullptr || len <= 0) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const int room = (m_keepEveryFrame ? kKeepingBufferLimit : kBufferLimit) - m_buffer.size();
        const int kept = std::max(0, std::min(len, room));
        m_buffer.write(reinterpret_cast<const unsigned char*>(data), static_cast<unsigned int>(kept));
        m_droppedBytes += m_keepEveryFrame ? len - kept : 0;
    }
    m_dataArrived.notify_one();
}

int DataThread::pendingBytes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffer.size();
}

void DataThread::run()
{
    // Xlib is not thread-safe, so the desktop's injector lives on the worker, one per run.
    std::unique_ptr<XTestKeyInjector> desktopInjector;
    m_typingInjector = nullptr;
    if (m_keyOutput) {
        m_typingInjector = m_keyInjector;
        if (!m_typingInjector) {
            desktopInjector = std::make_unique<XTestKeyInjector>();
            m_typingInjector = desktopInjector.get();
        }
        if (!m_typingInjector->isAvailable()) {
            Logger::info("[INFO] Key output is off: no X display to type into.");
            m_typingInjector = nullptr;
        }
    }

    if (m_keepEveryFrame) {
        runKeeping();
    } else {
        runChunked();
    }

    // The worker's last steps under the lock that stopThread() takes after its wait: what the
    // worker did is then ordered before whatever follows the stop.
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_typingInjector) {
        m_typingInjector->finishTyping();
        m_typingInjector = nullptr;
    }
}

void DataThread::runChunked()
{
    QString keyCarry;
    QString fileCarry;
    int idlePasses = 0;
    unsigned char chunk[kChunkSize];
    while (!m_stop) {
        std::memset(chunk, 0, sizeof chunk);
        const int count = takeChunk(chunk);
        if (count > 0) {
            idlePasses = 0;
            extractFrame(fileCarry, reinterpret_cast<const char*>(chunk), count, m_fileDir);
            if (m_keyOutput && m_typingInjector) {
                feedKeyStream(keyCarry, reinterpret_cast<const char*>(chunk), count);
            }
            QThread::msleep(kChunkPauseMs);
            continue;
        }

        QThread::msleep(kIdlePauseMs);
        ++idlePasses;
        const bool silence = idlePasses == kSilencePasses;
        if (!keyCarry.isEmpty() && idlePasses == kSilencePasses) {
            const QByteArray bytes = keyCarry.toLocal8Bit();
            sendKeyData(bytes.constData(), bytes.size());
            idlePasses = 0;
            keyCarry.clear();
        }
        // Whatever typing borrowed (spare keycodes, released modifiers) goes back once the line is quiet.
        if (silence && m_typingInjector) {
            m_typingInjector->finishTyping();
        }
        if (!fileCarry.isEmpty() && idlePasses == kSilencePasses) {
            flushFileCarry(fileCarry);
            idlePasses = 0;
            fileCarry.clear();
        }
    }
}

void DataThread::runKeeping()
{
    FrameFileWriter writer(m_fileDir, [this](const QString& text) { emit writingNotice(text); });
    writer.recover();
    FrameKeeper keeper(m_startChar, m_endChar, writer);
    QString keyCarry;
    std::vector<unsigned char> bytes;
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto arrived = [this] { return m_stop || m_buffer.size() > 0; };
    for (;;) {
        if (!m_dataArrived.wait_for(lock, std::chrono::milliseconds(kKeepingSilenceMs), arrived)) {
            // Silence: the held tail goes out, typing gives back what it borrowed, then sleep until data.
            lock.unlock();
            sendKeyText(std::exchange(keyCarry, QString()));
            if (m_typingInjector) {
                m_typingInjector->finishTyping();
            }
            lock.lock();
            // Frames that wait for the disk are tried again now and then until data comes.
            while (writer.hasWaiting() && !m_dataArrived.wait_for(lock, writer.untilRetry(), arrived)) {
                lock.unlock();
                writer.retryIfDue();
                lock.lock();
            }
            m_dataArrived.wait(lock, arrived);
            continue;
        }
        // Asked to stop, the worker still writes the frames of what it has received.
        const bool stopping = m_stop;
        bytes.resize(static_cast<size_t>(m_buffer.size()));
        m_buffer.read(bytes.data(), static_cast<unsigned int>(bytes.size()));
        const qint64 dropped = std::exchange(m_droppedBytes, 0);
        lock.unlock();
        if (dropped > 0) {
            Logger::info(QString("[INFO] Dropped %1 received bytes: more than %2 bytes waited for the worker.")
                             .arg(dropped)
                             .arg(kKeepingBufferLimit)
                             .toStdString());
        }
        const QString text = keeper.feed(QByteArray(reinterpret_cast<const char*>(bytes.data()), int(bytes.size())));
        if (m_typingInjector) {
            feedKeyText(keyCarry, text);
        }
        if (stopping) {
            writer.finish();
            return;
        }
        writer.retryIfDue();
        lock.lock();
    }
}

int DataThread::takeChunk(unsigned char* chunk)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffer.read(chunk, kChunkSize);
}

void DataThread::extractFrame(QString& fileCarry, const char* data, int len, const QString& dir)
{
    QString text = QString(QByteArray(data, len));
    if (!fileCarry.isEmpty()) {
        text.prepend(fileCarry);
        fileCarry.clear();
    }

    const int size = text.size();
    const int s = text.indexOf(m_startChar);
    const int e = text.indexOf(m_endChar);

    if (s == -1 && e != -1) {
        fileCarry = text.mid(e + 1);
    } else if (s >= 0 && (e == -1 || e < s) && size - s < kShortStartLength) {
        fileCarry = text.mid(s);
    } else if (s >= 0) {
        if (e < size - 1) {
            fileCarry = text.mid(e + 1);
        }
        const int n = e - s - 1;
        if (e >= 0 && n >= 1) {
            QString frame = text.mid(s + 1, n);
            writeFrameFile(frame, dir);
        }
    }
    limitFileCarry(fileCarry);
}

void DataThread::limitFileCarry(QString& fileCarry)
{
    if (fileCarry.size() <= kFileCarryLimit) {
        return;
    }
    int frames = 0;
    for (int s = fileCarry.indexOf(m_startChar), e = 0; s >= 0; s = fileCarry.indexOf(m_startChar, e + 1)) {
        e = fileCarry.indexOf(m_endChar, s + 1);
        if (e < 0) {
            break;
        }
        frames += e > s + 1;
    }
    const QString dropped = frames == 0
        ? QString("[INFO] Dropped %1 characters of an unfinished frame: no end text within %2 characters.")
        : QString("[INFO] Dropped %1 characters holding %3 complete frames: the carried text passed %2 characters.");
    Logger::info(dropped.arg(fileCarry.size()).arg(kFileCarryLimit).arg(frames).toStdString());
    fileCarry.clear();
}

void DataThread::flushFileCarry(const QString& fileCarry)
{
    const int s = fileCarry.indexOf(m_startChar);
    const int e = fileCarry.indexOf(m_endChar);
    const int n = e - s - 1;
    if (s >= 0 && e >= 0 && n >= 1) {
        QString frame = fileCarry.mid(s + 1, n);
        writeFrameFile(frame, m_fileDir);
    }
}

void DataThread::writeFrameFile(QString& frame, const QString& dir)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const QString path = QString("%1/%2.txt").arg(dir, QDateTime::currentDateTime().toString("yyyyMMdd_hhmmss_zzz"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        Logger::info(QString("[INFO] Could not open file %1 for writing.").arg(path).toStdString());
        return;
    }
    frame.remove('\r');
    frame.remove('\n');
    {
        QTextStream out(&file);
        out << kFramePrefix << frame;
    }
    file.close();
}

void DataThread::feedKeyStream(QString& keyCarry, const char* data, int len)
{
    QString text = QString(QByteArray(data, len));
    // A zero-terminated copy, so the log line ends where the chunk's text does.
    QByteArray bytes(data, len);
    if (!keyCarry.isEmpty()) {
        text.prepend(keyCarry);
        keyCarry.clear();
        bytes = text.toUtf8();
    }

    const int lastOpen = heldChordStart(text);
    int n = bytes.size();
    if (lastOpen >= 0) {
        keyCarry = text.mid(lastOpen);
        // The tail starts at the last '<' byte in front of the first zero byte.
        const int textEnd = bytes.indexOf('\0');
        n = bytes.lastIndexOf('<', textEnd < 0 ? -1 : textEnd - 1);
    }
    if (n > 0) {
        sendKeyData(bytes.constData(), n);
    }
}

void DataThread::sendKeyData(const char* data, int len)
{
    Logger::info((QStringLiteral("[INFO] The Tapwright outputs data:") + QString::fromUtf8(data)).toStdString());

    for (int i = 0; i < len; ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        if (byte == '\r') {
            sendKeyChar('\r');
        } else {
            const int closing = sendChord(QString::fromLatin1(data + i));
            if (closing >= 0) {
                i += closing;
            } else {
                typeCharacter(byte);
            }
        }
        m_typingInjector->pause(m_keyDelay);
    }
}

void DataThread::feedKeyText(QString& keyCarry, const QString& received)
{
    const QString text = keyCarry + received;
    const int lastOpen = heldChordStart(text);
    keyCarry = lastOpen >= 0 ? text.mid(lastOpen) : QString();
    sendKeyText(lastOpen >= 0 ? text.left(lastOpen) : text);
}

int DataThread::heldChordStart(const QString& text)
{
    const int lastOpen = text.lastIndexOf('<');
    const bool held = lastOpen >= 0 && text.lastIndexOf('>') < lastOpen && text.size() - lastOpen < kHeldChordLength;
    return held ? lastOpen : -1;
}

void DataThread::sendKeyText(const QString& text)
{
    if (text.isEmpty() || !m_typingInjector) {
        return;
    }
    Logger::info((QStringLiteral("[INFO] The Tapwright outputs data:") + text).toStdString());
    const QVector<uint> codes = text.toUcs4();
    for (int i = 0; i < codes.size() && !m_stop; ++i) {
        const int closing
            = codes[i] == '<' ? sendChord(QString::fromUcs4(codes.constData() + i, codes.size() - i)) : -1;
        if (codes[i] == '\r') {
            sendKeyChar('\r');
        } else if (closing >= 0) {
            i += closing;
        } else {
            typeCharacter(codes[i]);
        }
        m_typingInjector->pause(m_keyDelay);
    }
}

int DataThread::sendChord(const QString& text)
{
    if (!text.startsWith('<')) {
        return -1;
    }
    const int g = text.indexOf('>');
    if (g == -1 || g == 1) {
        return -1;
    }
    QVector<int> keys;
    const QStringList parts = text.mid(1, g - 1).split('+');
    for (const QString& part : parts) {
        const auto key = vkNameTable.constFind(part.trimmed());
        if (key == vkNameTable.constEnd()) {
            return -1;
        }
        keys.append(key.value());
    }

    const int m = std::min(static_cast<int>(keys.size()), kMostChordKeys);
    QVector<KeyInjector::VirtualKeyEvent> events(2 * m);
    for (int k = 0; k < m; ++k) {
        events[k] = { keys[k], true };
        events[m + k] = { keys[k], false };
    }
    while (m_typingInjector->sendVirtualKeys(events) == 0 && !m_stop) {
        m_typingInjector->pause(0);
    }
    return g;
}

void DataThread::sendKeyChar(char c)
{
    m_typingInjector->tapCharacterKey(c);
}

void DataThread::typeCharacter(unsigned int code)
{
    // A refused event is tried again, but never past a request to stop.
    for (const bool down : { true, false }) {
        while (m_typingInjector->sendCharacter(code, down) == 0 && !m_stop) {
            m_typingInjector->pause(0);
        }
    }
}
