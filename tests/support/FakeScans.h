#pragma once

#include <QString>
#include <QStringList>

// Fake scans: files that the fake reader (tests/support/FakeReader.cpp) reads in no time, for tests that
// need text out of a file but not real recognition. A fake scan starts with this line; its pages follow,
// separated by form feeds. A page may start with "@rotation=DEGREES\n" to be read as turned.
inline constexpr char fakeScanMarker[] = "%FAKE-SCAN\n";

// Writes a fake scan of `pages`, making its folders as needed.
void writeFakeScan(const QString &path, const QStringList &pages);

// The fake reader's program, for VELLUMARK_READER.
QString fakeReaderProgram();
