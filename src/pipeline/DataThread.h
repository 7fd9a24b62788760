#pragma once

#include "ReceiveBuffer.h"

#include <QMap>
#include <QString>
#include <QThread>
#include <atomic>
#include <condition_variable>
#include <mutex>

class KeyInjector;

// The worker of one device: buffers received bytes, cuts frames into files and, when key output
// is on, types the stream into the focused window.
class DataThread : public QThread
{
    Q_OBJECT

public:
    explicit DataThread(QObject* parent = nullptr);

    bool startThread();
    bool stopThread();

    void setStartEndChar(const QString& start, const QString& end);
    void setFileDir(const QString& dir);
    void setKeyOutput(bool on);
    void setOutputSpeed(int speed);
    // Every complete frame is written, UTF-8 is read across reads, and the worker wakes on data.
    void setKeepEveryFrame(bool on);

    // Types through this injector instead of the desktop's; not owned. Set before startThread.
    void setKeyInjector(KeyInjector* injector);

    void pushData(const char* data, int len);

    // Bytes received and not yet taken out by the worker.
    int pendingBytes();

    static constexpr int kBufferLimit = 4096;
    static constexpr int kKeepingBufferLimit = 16 * 1024 * 1024;
    static constexpr int kKeepingSilenceMs = 200;
    static constexpr int kChunkSize = 128;
    static constexpr int kChunkPauseMs = 10;
    static constexpr int kIdlePauseMs = 20;
    static constexpr int kSilencePasses = 5;
    static constexpr int kShortStartLength = 32;
    // A start whose end never comes must not grow the carried text without end.
    static constexpr int kFileCarryLimit = 64 * 1024;
    // An open chord shorter than this at the end of a chunk waits for the rest of it.
    static constexpr int kHeldChordLength = 32;
    static constexpr int kMostChordKeys = 5;

    // The key names a chord may use, with their virtual-key values.
    static const QMap<QString, int> vkNameTable;

signals:
    // What the operator should hear about writing kept frames: it stopped, resumed, or lost some.
    // Emitted on the worker's thread.
    void writingNotice(QString text);

protected:
    void run() override;

private:
    // The fuzz targets step the two consumers directly, without the worker's thread and pauses.
    friend class DataThreadStepper;

    void runChunked();
    void runKeeping();
    int takeChunk(unsigned char* chunk);
    void extractFrame(QString& fileCarry, const char* data, int len, const QString& dir);
    void limitFileCarry(QString& fileCarry);
    void flushFileCarry(const QString& fileCarry);
    void writeFrameFile(QString& frame, const QString& dir);

    void feedKeyStream(QString& keyCarry, const char* data, int len);
    void sendKeyData(const char* data, int len);
    void feedKeyText(QString& keyCarry, const QString& text);
    // Where a '<' begins a tail that may still become a chord, held back for the next read; or -1.
    static int heldChordStart(const QString& text);
    void sendKeyText(const QString& text);
    // The chord at the front of the text; gives the index of its '>', or -1 for none.
    int sendChord(const QString& text);
    void sendKeyChar(char c);
    void typeCharacter(unsigned int code);

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

    KeyInjector* m_keyInjector = nullptr;
    // The injector of the run under way; null while key output is off. Worker only.
    KeyInjector* m_typingInjector = nullptr;
};
