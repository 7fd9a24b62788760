#include "StdoutCapture.h"

#include <cstdio>
#include <unistd.h>

StdoutCapture::StdoutCapture()
{
    if (!m_file.open()) {
        return;
    }
    std::fflush(stdout);
    m_savedStdout = dup(STDOUT_FILENO);
    if (m_savedStdout >= 0 && dup2(m_file.handle(), STDOUT_FILENO) < 0) {
        close(m_savedStdout);
        m_savedStdout = -1;
    }
}

StdoutCapture::~StdoutCapture()
{
    finish();
}

QByteArray StdoutCapture::finish()
{
    if (m_savedStdout < 0) {
        return {};
    }
    std::fflush(stdout);
    dup2(m_savedStdout, STDOUT_FILENO);
    close(m_savedStdout);
    m_savedStdout = -1;
    m_file.seek(0);
    return m_file.readAll();
}
