#pragma once

#include "FrameSink.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <chrono>
#include <deque>
#include <functional>

// Writes each kept frame to a file of its own in the save directory, whole or not at all and
// never over another file. Frames the disk refuses wait in memory, in order, and are written when
// it takes them again; the operator hears once that writing stopped and once that it resumed.
class FrameFileWriter
{
    Q_DECLARE_TR_FUNCTIONS(FrameFileWriter)

public:
    // Receives what the operator is told, translated; called on the writer's thread.
    using Notice = std::function<void(const QString&)>;

    FrameFileWriter(const QString& dir, Notice notice);

    // Gives complete frames that a crash left under temporary names their final names and
    // removes the cut ones; says in one log line what it did.
    void recover();
    // Writes the frames in order under the names of the times they came, without their line ends,
    // or queues them behind the frames that wait.
    void write(const std::vector<FrameSink::Frame>& frames);
    // Tries the waiting frames again once the pause after the last failure is over.
    void retryIfDue();
    bool hasWaiting() const { return !m_waiting.empty(); }
    // Until the next retry is due; only meaningful while frames wait.
    std::chrono::milliseconds untilRetry() const;
    // One last try for the frames that wait; the texts of those the disk still refuses are logged.
    void finish();

    static constexpr qint64 kWaitingBytesLimit = 64 * 1024 * 1024;
    static constexpr size_t kWaitingFramesLimit = 1000000;
    static constexpr int kRetryMs = 500;
    // A retry writes this long at most, so the worker still takes in data and hears a stop.
    static constexpr int kRetrySliceMs = 100;
    static constexpr int kFinishMs = 1000;
    // Texts of frames that could not be kept are logged this many to a line, or once a second.
    static constexpr int kTextsPerLine = 100;
    // From this many frames in one read on, two threads write them: file creation, not the
    // camera, is what holds a burst back.
    static constexpr size_t kSplitFrames = 64;

private:
    using Clock = std::chrono::steady_clock;
    struct Frame
    {
        QByteArray stamp;
        QByteArray content;
    };
    // The stamp of the last stored frame and the copy number its next namesake tries first.
    struct Copies
    {
        QByteArray stamp;
        int next = 0;
    };
    // Where a run of stores ended: at the first frame that failed, with its errno, or at the end.
    struct Stored
    {
        size_t end = 0;
        int error = 0;
    };

    // Creates the file under a temporary name, then gives it its final name; on failure nothing
    // is left behind and errno says why. dir is the save directory held open. Safe on two threads
    // with Copies of their own.
    bool store(int dir, const Frame& frame, Copies& copies) const;
    Stored storeRun(int dir, const std::vector<Frame>& frames, size_t from, size_t to, Copies& copies) const;
    // Stores in order up to the first failure; a long batch is split in half between two threads, the
    // second numbering the copies of a millisecond cut in two on from where the first's end.
    void storeBatch(std::vector<Frame>& frames);
    // Writes waiting frames in order until none wait, one fails or the deadline passes.
    bool drain(Clock::time_point deadline);
    void hold(Frame frame);
    void stopped(int error);
    void logLost();

    const QString m_dir;
    const QByteArray m_dirName;
    const Notice m_notice;
    const qint64 m_pid;
    Copies m_copies;
    qint64 m_stampMs = 0;
    QByteArray m_stamp;
    std::deque<Frame> m_waiting;
    qint64 m_waitingBytes = 0;
    // The errno of the last failed write; 0 once writing goes on again.
    int m_error = 0;
    int m_written = 0;
    bool m_toldLoss = false;
    QStringList m_lost;
    Clock::time_point m_firstLost;
    Clock::time_point m_nextTry;
};
