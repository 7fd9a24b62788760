#include "DevicePageDriver.h"

#include "FileProbe.h"
#include "TCPSettingWidget.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QLineEdit>
#include <QRegularExpression>
#include <algorithm>

namespace DevicePageDriver {

namespace {

const QByteArray kPrefix = "The package barcode info is :";

} // namespace

TCPSettings clientSettings(quint16 port, const QString& frameDir)
{
    TCPSettings settings;
    settings.status = 1;
    settings.tcpType = 0;
    settings.tcpPort = QString::number(port);
    settings.tcpClientIP = QStringLiteral("127.0.0.1");
    settings.fileDir = frameDir;
    settings.startChar = QStringLiteral("[");
    settings.endChar = QStringLiteral("]");
    return settings;
}

void openLoopbackServer(TCPSettingWidget& page, quint16 port, const QString& frameDir)
{
    TCPSettings settings = clientSettings(port, frameDir);
    settings.status = 0;
    settings.tcpType = 1;
    page.setSettings(settings);
    page.findChild<QLineEdit*>(QStringLiteral("lineEdit_IP"))->setText(QStringLiteral("127.0.0.1"));
    page.findChild<QAbstractButton*>(QStringLiteral("openTcpBtn"))->click();
}

QString buttonText(TCPSettingWidget& page)
{
    return page.findChild<QAbstractButton*>(QStringLiteral("openTcpBtn"))->text();
}

QStringList storedFrames(const QString& dir)
{
    QStringList frames;
    for (const QByteArray& content : FileProbe::textFileContents(dir)) {
        frames.append(QString::fromUtf8(content.startsWith(kPrefix) ? content.mid(kPrefix.size()) : content));
    }
    return frames;
}

QList<int> frameNumbers(const QStringList& frames, const QString& prefix)
{
    const QRegularExpression whole(QStringLiteral("^%1(\\d{6})$").arg(QRegularExpression::escape(prefix)));
    QList<int> numbers;
    for (const QString& frame : frames) {
        const QRegularExpressionMatch match = whole.match(frame);
        if (match.hasMatch()) {
            numbers.append(match.captured(1).toInt());
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

} // namespace DevicePageDriver
