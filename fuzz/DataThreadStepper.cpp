#include "DataThreadStepper.h"

#include "DataThread.h"
#include "KeyInjector.h"

#include <cstring>

DataThreadStepper::DataThreadStepper(DataThread& thread, KeyInjector* typing)
    : m_thread(thread)
    , m_typing(typing)
{
    m_thread.m_typingInjector = typing;
}

DataThreadStepper::~DataThreadStepper()
{
    m_thread.m_typingInjector = nullptr;
}

void DataThreadStepper::feedChunk(const char* data, int len)
{
    // The worker's chunk is a zeroed array of one chunk's size, as here.
    char chunk[DataThread::kChunkSize] = {};
    const int count = len < DataThread::kChunkSize ? len : DataThread::kChunkSize;
    std::memcpy(chunk, data, size_t(count));
    m_thread.extractFrame(m_fileCarry, chunk, count, m_thread.m_fileDir);
    if (m_typing)
        m_thread.feedKeyStream(m_keyCarry, chunk, count);
}

void DataThreadStepper::silence()
{
    if (!m_keyCarry.isEmpty()) {
        const QByteArray bytes = m_keyCarry.toLocal8Bit();
        m_thread.sendKeyData(bytes.constData(), bytes.size());
        m_keyCarry.clear();
    } else if (!m_fileCarry.isEmpty()) {
        m_thread.flushFileCarry(m_fileCarry);
        m_fileCarry.clear();
    }
    if (m_typing)
        m_typing->finishTyping();
}
