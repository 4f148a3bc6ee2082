#pragma once

#include <QString>
#include <QStringList>

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

// Writes a fake scan of `pages`, making its folders as needed.
void writeFakeScan(const QString &path, const QStringList &pages);

// The fake reader's program, for VELLUMARK_READER.
QString fakeReaderProgram();
