#pragma once

#include "Framer.h"
#include "KeyPlayer.h"
#include "ReceiveBuffer.h"

#include <QDateTime>
#include <QString>
#include <QThread>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class FrameSink;
class KeyInjector;

// The worker of one device: buffers received bytes, has a Framer cut them into frames that go to
// every FrameSink and, when key output is on, types the stream into the focused window.
class DataThread : public QThread
{
    Q_OBJECT

public:
    // Makes the desktop's injector on the worker's thread, one per run: Xlib is not thread-safe.
    using KeyInjectorFactory = std::function<std::unique_ptr<KeyInjector>()>;

    explicit DataThread(QObject* parent = nullptr);
    ~DataThread() override;

    bool startThread();
    bool stopThread();

    void setStartEndChar(const QString& start, const QString& end);
    void setFileDir(const QString& dir);
    void setKeyOutput(bool on);
    void setOutputSpeed(int speed);
    // Every complete frame is written, UTF-8 is read across reads, and the worker wakes on data.
    void setKeepEveryFrame(bool on);

    // Where typing goes; without either, key output is off. Set before startThread.
    void setKeyInjectorFactory(KeyInjectorFactory factory);
    // Types through this injector instead of the factory's; not owned.
    void setKeyInjector(KeyInjector* injector);
    // Hands every frame to this sink too, behind the frame files; not owned. Set before startThread.
    void addFrameSink(FrameSink* sink);

    void pushData(const char* data, int len);

    // Bytes received and not yet taken out by the worker.
    int pendingBytes();

    static constexpr int kBufferLimit = 4096;
    static constexpr int kKeepingBufferLimit = 16 * 1024 * 1024;
    static constexpr int kKeepingSilenceMs = 200;
    // The original framing reads at most this much at a time and gives at most one frame per read.
    static constexpr int kChunkSize = 128;
    static constexpr int kChunkPauseMs = 10;
    static constexpr int kIdlePauseMs = 20;
    static constexpr int kSilencePasses = 5;

signals:
    // What the operator should hear about writing kept frames: it stopped, resumed, or lost some.
    // Emitted on the worker's thread.
    void writingNotice(QString text);

protected:
    void run() override;

private:
    void runChunked(const std::vector<FrameSink*>& sinks, KeyPlayer* player);
    void runKeeping(const std::vector<FrameSink*>& sinks, KeyPlayer* player);
    void deliver(const Framer::Result& result, const std::vector<FrameSink*>& sinks);
    void type(const KeyPlan::Typing& typing, KeyPlayer& player, KeyPlayer::Stop stop);
    // The soonest retry any sink waits for; nothing when none holds frames back.
    static std::optional<std::chrono::milliseconds> untilRetry(const std::vector<FrameSink*>& sinks);

    int m_keyDelay = 0;
    std::mutex m_mutex;
    std::condition_variable m_dataArrived;
    std::atomic<bool> m_stop { false };
    bool m_keyOutput = false;
    std::atomic<bool> m_keepEveryFrame { false };
    qint64 m_droppedBytes = 0;
    ReceiveBuffer m_buffer;
    QString m_startChar;
    QString m_endChar;
    QString m_fileDir;

    KeyInjectorFactory m_keyInjectorFactory;
    KeyInjector* m_keyInjector = nullptr;
    std::vector<FrameSink*> m_extraSinks;
    // The injector of the run under way; null while key output is off. Worker only.
    KeyInjector* m_typingInjector = nullptr;
    // The objectName() the run began with, given with each frame. Worker only.
    QString m_device;
    qint64 m_receivedMs = -1;
    QDateTime m_received;
};
