#pragma once

#include <QFile>
#include <QString>
#include <QStringList>

#include <vector>

// Fake scans: files that the fake reader (tests/support/FakeReader.cpp) reads in no time, for tests that
// need text out of a file but not real recognition. A fake scan starts with this line; its pages follow,
// separated by form feeds. A page may start with "@rotation=DEGREES\n" to be read as turned.
inline constexpr char fakeScanMarker[] = "%FAKE-SCAN\n";

// Rendering a fake scan gives a portrait picture, white with a dark bar along its top, turned as asked;
// measured, each of its pages is fakePageWidth by fakePageHeight points.
// Each render appends the file's name and how many renders of the folder's fake scans are under way
// (this one included) as a line to fakeRenderLog in the scan's folder. A scan that holds one of these
// directives anywhere makes the reader end at once, hang, or wait until a file of the scan's path with
// ".go" added exists.
inline constexpr int fakePageWidth = 600;
inline constexpr int fakePageHeight = 800;
inline constexpr char fakeRenderLog[] = "renders.log";
inline constexpr char fakeRenderCrash[] = "@render=crash";
inline constexpr char fakeRenderHang[] = "@render=hang";
inline constexpr char fakeRenderWait[] = "@render=wait";

// Each reading of a fake scan appends a line to fakeReadLog in the scan's folder: the file's name, how many
// readings of the folder's scans are under way (this one included), the reader's process id, and "again"
// when another living reader is reading the same file. A scan that holds one of these directives anywhere
// makes the reader end at once, hang, or wait until a file of the scan's path with ".go" added exists,
// after sending the file's hash and before its pages.
inline constexpr char fakeReadLog[] = "reads.log";
inline constexpr char fakeReadCrash[] = "@read=crash";
inline constexpr char fakeReadHang[] = "@read=hang";
inline constexpr char fakeReadWait[] = "@read=wait";

// One line of fakeReadLog.
struct FakeRead {
    QString file;
    int underway = 0;
    qint64 pid = 0;
    bool again = false;
};
std::vector<FakeRead> fakeReads(const QString &folder);

// Whether the process has ended (a zombie counts as ended).
inline bool processEnded(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    // The state follows the command's name, which is in parentheses and may hold spaces.
    const QByteArray fields = stat.readAll();
    return fields.mid(fields.lastIndexOf(')') + 2, 1) == "Z";
}

// Writes a fake scan of `pages`, making its folders as needed.
void writeFakeScan(const QString &path, const QStringList &pages);

// The fake reader's program, for VELLUMARK_READER.
QString fakeReaderProgram();
