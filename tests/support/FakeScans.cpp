#include "support/FakeScans.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

void writeFakeScan(const QString &path, const QStringList &pages)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(fakeScanMarker + pages.join(QLatin1Char('\f')).toUtf8()) < 0
        || !file.flush())
        throw std::runtime_error("couldn't write " + path.toStdString());
}

std::vector<FakeRead> fakeReads(const QString &folder)
{
    QFile log(QDir(folder).filePath(QString::fromLatin1(fakeReadLog)));
    std::vector<FakeRead> reads;
    if (!log.open(QIODevice::ReadOnly))
        return reads;
    for (const QByteArray &line : log.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() >= 3)
            reads.push_back({ QString::fromUtf8(fields[0]), fields[1].toInt(), fields[2].toLongLong(),
                fields.size() > 3 && fields[3] == "again" });
    }
    return reads;
}

QString fakeReaderProgram()
{
    return QStringLiteral(FAKE_READER);
}
