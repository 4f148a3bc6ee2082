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

QString fakeReaderProgram()
{
    return QStringLiteral(FAKE_READER);
}
