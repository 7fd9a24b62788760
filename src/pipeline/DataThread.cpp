#include "DataThread.h"

#include "ChunkFramer.h"
#include "EveryFrameFramer.h"
#include "FrameFileSink.h"
#include "KeptFrameFileSink.h"
#include "KeyInjector.h"
#include "Logger.h"

#include <QByteArray>
#include <QDateTime>
#include <algorithm>

DataThread::DataThread(QObject* parent)
    : QThread(parent)
{
}

DataThread::~DataThread() = default;

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
    m_keyDelay = KeyPlayer::delayForSpeed(speed);
}

void DataThread::setKeepEveryFrame(bool on)
{
    m_keepEveryFrame = on;
}

void DataThread::setKeyInjectorFactory(KeyInjectorFactory factory)
{
    m_keyInjectorFactory = std::move(factory);
}

void DataThread::setKeyInjector(KeyInjector* injector)
{
    m_keyInjector = injector;
}

void DataThread::addFrameSink(FrameSink* sink)
{
    m_extraSinks.push_back(sink);
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
    std::unique_ptr<KeyInjector> madeInjector;
    m_typingInjector = nullptr;
    if (m_keyOutput) {
        m_typingInjector = m_keyInjector;
        if (!m_typingInjector && m_keyInjectorFactory) {
            madeInjector = m_keyInjectorFactory();
            m_typingInjector = madeInjector.get();
        }
        if (!m_typingInjector || !m_typingInjector->isAvailable()) {
            Logger::info("[INFO] Key output is off: no X display to type into.");
            m_typingInjector = nullptr;
        }
    }
    std::optional<KeyPlayer> player;
    if (m_typingInjector) {
        player.emplace(*m_typingInjector, m_keyDelay, m_stop);
    }

    m_device = objectName();
    std::unique_ptr<FrameSink> files;
    if (m_keepEveryFrame) {
        files
            = std::make_unique<KeptFrameFileSink>(m_fileDir, [this](const QString& text) { emit writingNotice(text); });
    } else {
        files = std::make_unique<FrameFileSink>(m_fileDir, m_mutex);
    }
    std::vector<FrameSink*> sinks { files.get() };
    sinks.insert(sinks.end(), m_extraSinks.begin(), m_extraSinks.end());
    for (FrameSink* sink : sinks) {
        sink->open();
    }

    if (m_keepEveryFrame) {
        runKeeping(sinks, player ? &*player : nullptr);
    } else {
        runChunked(sinks, player ? &*player : nullptr);
    }
    for (FrameSink* sink : sinks) {
        sink->finish();
    }

    // The worker's last steps under the lock that stopThread() takes after its wait: what the
    // worker did is then ordered before whatever follows the stop.
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_typingInjector) {
        m_typingInjector->finishTyping();
        m_typingInjector = nullptr;
    }
}

void DataThread::runChunked(const std::vector<FrameSink*>& sinks, KeyPlayer* player)
{
    ChunkFramer framer(m_startChar, m_endChar);
    KeyPlan keys(KeyPlan::Encoding::Latin1);
    int idlePasses = 0;
    unsigned char chunk[kChunkSize];
    while (!m_stop) {
        int count = 0;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            count = m_buffer.read(chunk, kChunkSize);
        }
        if (count > 0) {
            idlePasses = 0;
            const QByteArray bytes(reinterpret_cast<const char*>(chunk), count);
            deliver(framer.feed(bytes), sinks);
            if (player) {
                type(keys.feed(bytes), *player, KeyPlayer::Stop::InRetries);
            }
            for (FrameSink* sink : sinks) {
                sink->retryIfDue();
            }
            QThread::msleep(kChunkPauseMs);
            continue;
        }

        QThread::msleep(kIdlePauseMs);
        if (++idlePasses != kSilencePasses) {
            continue;
        }
        // A silence types the held keys first; the carried frame then waits for the next silence.
        if (player && !keys.held().isEmpty()) {
            type(keys.flush(), *player, KeyPlayer::Stop::InRetries);
            idlePasses = 0;
        }
        // Whatever typing borrowed (spare keycodes, released modifiers) goes back once the line is quiet.
        if (m_typingInjector) {
            m_typingInjector->finishTyping();
        }
        if (idlePasses == kSilencePasses) {
            if (const std::optional<Framer::Result> ended = framer.silence()) {
                deliver(*ended, sinks);
                idlePasses = 0;
            }
        }
    }
}

void DataThread::runKeeping(const std::vector<FrameSink*>& sinks, KeyPlayer* player)
{
    EveryFrameFramer framer(m_startChar, m_endChar);
    KeyPlan keys(KeyPlan::Encoding::Utf8);
    std::vector<unsigned char> bytes;
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto arrived = [this] { return m_stop || m_buffer.size() > 0; };
    for (;;) {
        if (!m_dataArrived.wait_for(lock, std::chrono::milliseconds(kKeepingSilenceMs), arrived)) {
            // Silence: the held tail goes out, typing gives back what it borrowed, then sleep until data.
            lock.unlock();
            if (const std::optional<Framer::Result> ended = framer.silence()) {
                deliver(*ended, sinks);
            }
            if (player) {
                type(keys.flush(), *player, KeyPlayer::Stop::BetweenSteps);
                m_typingInjector->finishTyping();
            }
            lock.lock();
            // Frames that wait for a sink are tried again now and then until data comes.
            for (auto wait = untilRetry(sinks); wait && !m_dataArrived.wait_for(lock, *wait, arrived);
                 wait = untilRetry(sinks)) {
                lock.unlock();
                for (FrameSink* sink : sinks) {
                    sink->retryIfDue();
                }
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
        const QByteArray read = QByteArray::fromRawData(reinterpret_cast<const char*>(bytes.data()), int(bytes.size()));
        deliver(framer.feed(read), sinks);
        if (player) {
            type(keys.feed(read), *player, KeyPlayer::Stop::BetweenSteps);
        }
        if (stopping) {
            return;
        }
        for (FrameSink* sink : sinks) {
            sink->retryIfDue();
        }
        lock.lock();
    }
}

void DataThread::deliver(const Framer::Result& result, const std::vector<FrameSink*>& sinks)
{
    std::vector<FrameSink::Frame> frames;
    frames.reserve(size_t(result.frames.size()));
    for (const QString& text : result.frames) {
        // The local time looks at the time zone file each time: once a millisecond is enough.
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        if (now != m_receivedMs) {
            m_receivedMs = now;
            // A fixed offset: sinks that format or compare the time need not look at the zone again.
            const int offset = QDateTime::fromMSecsSinceEpoch(now).offsetFromUtc();
            m_received = QDateTime::fromMSecsSinceEpoch(now, Qt::OffsetFromUTC, offset);
        }
        frames.push_back({ text, m_device, m_received });
    }
    if (!frames.empty()) {
        for (FrameSink* sink : sinks) {
            sink->takeAll(frames);
        }
    }
    for (const QString& line : result.dropped) {
        Logger::info(line.toStdString());
    }
}

void DataThread::type(const KeyPlan::Typing& typing, KeyPlayer& player, KeyPlayer::Stop stop)
{
    if (typing.actions.isEmpty()) {
        return;
    }
    Logger::info((QStringLiteral("[INFO] The Tapwright outputs data:") + typing.logged).toStdString());
    player.play(typing.actions, stop);
}

std::optional<std::chrono::milliseconds> DataThread::untilRetry(const std::vector<FrameSink*>& sinks)
{
    std::optional<std::chrono::milliseconds> soonest;
    for (const FrameSink* sink : sinks) {
        const std::optional<std::chrono::milliseconds> wait = sink->untilRetry();
        if (wait && (!soonest || *wait < *soonest)) {
            soonest = wait;
        }
    }
    return soonest;
}
