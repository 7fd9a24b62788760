#pragma once

#include <QTextCodec>
#include <memory>

// A decoder of its own for a stream of UTF-8 that may be cut inside a character. The codec is
// looked up once for every worker: Qt's cache of codecs locks where ThreadSanitizer cannot see, so
// workers starting together would be reported racing in it.
inline std::unique_ptr<QTextDecoder> makeUtf8Decoder()
{
    static QTextCodec* const codec = QTextCodec::codecForName("UTF-8");
    return std::unique_ptr<QTextDecoder>(codec->makeDecoder());
}
