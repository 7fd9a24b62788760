#include "CameraOptions.h"

#include "EscapedText.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

namespace {

const char* const kDescription = R"(Simulates a barcode camera on a TCP connection.

Each frame is sent as <start><frame><end>, by default [frame]. Frames come from the
arguments, from --file (one frame per line) or from standard input (--stdin, sent as
lines arrive). Each frame is written whole, or cut into --chunk byte writes so that
a frame straddles several reads on the other side.

In frames, --start and --end these escapes are understood: \r \n \t \0 \\ \xHH.
The text {seq} in a frame becomes the running frame number, six digits wide, so
that --repeat 0 "PKG{seq}" gives an endless stream of distinct frames.

Standard output gets one line per frame sent: <number> <Unix time in ms, to the
microsecond> <bytes>.
Connection news and errors go to standard error.

The camera stops when all passes are sent, or on SIGINT/SIGTERM (exit code 0).
Exit code 1: the connection could not be made or was lost without --reconnect;
exit code 2: bad arguments.

Examples:
  tapwright-camera --connect 127.0.0.1:9100 --rate 5 ABC123 DEF456
  tapwright-camera --listen 9100 --repeat 0 --reconnect "PKG{seq}"
  printf 'A1\nB2\n' | tapwright-camera --connect 127.0.0.1:9100 --stdin --end '\r\n')";

// "host:port" or, for --listen, a bare port; the host defaults to 127.0.0.1.
bool parseEndpoint(const QString& text, bool hostOptional, QHostAddress* host, quint16* port, QString* error)
{
    const int colon = text.lastIndexOf(':');
    if (colon < 0 && !hostOptional) {
        *error = QStringLiteral("\"%1\" is not host:port").arg(text);
        return false;
    }
    const QString hostText = colon < 0 ? QStringLiteral("127.0.0.1") : text.left(colon);
    const QString portText = colon < 0 ? text : text.mid(colon + 1);

    if (hostText == QLatin1String("localhost")) {
        *host = QHostAddress(QHostAddress::LocalHost);
    } else if (!host->setAddress(hostText)) {
        *error = QStringLiteral("\"%1\" is not an IP address").arg(hostText);
        return false;
    }
    bool ok = false;
    const uint value = portText.toUInt(&ok);
    if (!ok || value > 65535) {
        *error = QStringLiteral("\"%1\" is not a port (0-65535)").arg(portText);
        return false;
    }
    *port = quint16(value);
    return true;
}

bool parseInt(const QCommandLineParser& parser, const QString& name, int minimum, int* value, QString* error)
{
    if (!parser.isSet(name)) {
        return true;
    }
    bool ok = false;
    const int parsed = parser.value(name).toInt(&ok);
    if (!ok || parsed < minimum) {
        *error = QStringLiteral("--%1 needs a whole number of at least %2, not \"%3\"")
                     .arg(name)
                     .arg(minimum)
                     .arg(parser.value(name));
        return false;
    }
    *value = parsed;
    return true;
}

bool readFrameFile(const QString& path, QList<QByteArray>* frames, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        while (line.endsWith('\n') || line.endsWith('\r')) {
            line.chop(1);
        }
        if (line.isEmpty()) {
            continue;
        }
        QByteArray frame;
        if (!EscapedText::decode(QString::fromUtf8(line), &frame, error)) {
            return false;
        }
        frames->append(frame);
    }
    return true;
}

} // namespace

bool CameraOptions::parse(const QCoreApplication& app, CameraOptions* options, QString* error)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    parser.addHelpOption();
    parser.addOptions({
        { "connect", "Be a TCP client and connect to <host:port>.", "host:port" },
        { "listen", "Be a TCP server on <[host:]port> (host 127.0.0.1 by default, port 0 picks one).", "[host:]port" },
        { "start", "Text in front of each frame (default \"[\"; may be empty).", "text" },
        { "end", "Text behind each frame (default \"]\"; may be empty).", "text" },
        { "file", "Read frames from <path>, one a line; empty lines are skipped.", "path" },
        { "stdin", "Read frames from standard input, one a line, sent as they arrive." },
        { "rate", "Frames per second (default 10; 0 = as fast as possible).", "n" },
        { "chunk", "Bytes per write (default 0 = each frame in one write).", "bytes" },
        { "chunk-gap", "Milliseconds between the writes of one frame (default 2).", "ms" },
        { "repeat", "Passes over the frames (default 1; 0 = until stopped).", "n" },
        { "reconnect",
          "Keep going when the peer goes: a client connects again, a server waits for the next peer. A frame cut "
          "off by the loss is sent again whole." },
        { "interval", "Milliseconds between connection attempts (default 1000).", "ms" },
        { "quiet", "Do not print a line per frame." },
    });
    parser.addPositionalArgument("frames", "Frame texts to send.", "[frame...]");

    if (!parser.parse(app.arguments())) {
        *error = parser.errorText();
        return false;
    }
    if (parser.isSet("help")) {
        parser.showHelp(0);
    }

    if (parser.isSet("connect") == parser.isSet("listen")) {
        *error = QStringLiteral("give exactly one of --connect host:port or --listen [host:]port");
        return false;
    }
    options->role = parser.isSet("connect") ? Role::Client : Role::Server;
    const QString endpoint = parser.value(options->role == Role::Client ? "connect" : "listen");
    if (!parseEndpoint(endpoint, options->role == Role::Server, &options->host, &options->port, error)) {
        return false;
    }
    if (options->role == Role::Client && options->port == 0) {
        *error = QStringLiteral("--connect needs a port other than 0");
        return false;
    }

    if (parser.isSet("start") && !EscapedText::decode(parser.value("start"), &options->start, error)) {
        return false;
    }
    if (parser.isSet("end") && !EscapedText::decode(parser.value("end"), &options->end, error)) {
        return false;
    }

    if (parser.isSet("rate")) {
        bool ok = false;
        options->rate = parser.value("rate").toDouble(&ok);
        if (!ok || options->rate < 0) {
            *error = QStringLiteral("--rate needs a number of frames per second >= 0, not \"%1\"")
                         .arg(parser.value("rate"));
            return false;
        }
    }
    if (!parseInt(parser, "chunk", 0, &options->chunk, error)
        || !parseInt(parser, "chunk-gap", 0, &options->chunkGapMs, error)
        || !parseInt(parser, "repeat", 0, &options->repeat, error)
        || !parseInt(parser, "interval", 1, &options->intervalMs, error)) {
        return false;
    }
    options->reconnect = parser.isSet("reconnect");
    options->quiet = parser.isSet("quiet");

    const QStringList positional = parser.positionalArguments();
    const int sources
        = (positional.isEmpty() ? 0 : 1) + (parser.isSet("file") ? 1 : 0) + (parser.isSet("stdin") ? 1 : 0);
    if (sources != 1) {
        *error = QStringLiteral("give frames in exactly one way: as arguments, with --file or with --stdin");
        return false;
    }
    options->fromStdin = parser.isSet("stdin");
    if (parser.isSet("file") && !readFrameFile(parser.value("file"), &options->frames, error)) {
        return false;
    }
    for (const QString& text : positional) {
        QByteArray frame;
        if (!EscapedText::decode(text, &frame, error)) {
            return false;
        }
        options->frames.append(frame);
    }
    if (!options->fromStdin && options->frames.isEmpty()) {
        *error = QStringLiteral("%1 holds no frames").arg(parser.value("file"));
        return false;
    }
    return true;
}
