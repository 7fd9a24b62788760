#pragma once

#include <QString>

class DataThread;
class KeyInjector;

// Runs DataThread's passes one at a time on the caller's thread: a pass with a chunk of received
// bytes, or a silence long enough to flush what is carried. Same steps as the worker's loop,
// without its sleeps, so a fuzzer can try thousands of streams a second.
class DataThreadStepper
{
public:
    DataThreadStepper(DataThread& thread, KeyInjector* typing);
    ~DataThreadStepper();

    // One pass that took these bytes (at most one chunk) out of the buffer.
    void feedChunk(const char* data, int len);

    // Five idle passes: the key carry goes out first; only when it is empty does the file carry.
    void silence();

    const QString& fileCarry() const { return m_fileCarry; }
    const QString& keyCarry() const { return m_keyCarry; }

private:
    DataThread& m_thread;
    KeyInjector* m_typing;
    QString m_fileCarry;
    QString m_keyCarry;
};
