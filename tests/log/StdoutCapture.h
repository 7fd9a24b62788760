#pragma once

#include <QByteArray>
#include <QTemporaryFile>

// Sends file descriptor 1 to a temporary file until finish(), to read what was written there.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();

    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    bool isCapturing() const { return m_savedStdout >= 0; }

    // Puts standard output back and returns what reached it meanwhile.
    QByteArray finish();

private:
    QTemporaryFile m_file;
    int m_savedStdout = -1;
};
