#include "library/StatusLine.h"

#include "library/Library.h"

#include <QStringList>

namespace {

QString left(const QString &label, int count)
{
    return label + u": " + QString::number(count) + u" left";
}

} // namespace

StatusLine statusLine(const Library &library)
{
    StatusLine line;

    // One work line at a time, reading text first: a scan is filed only once its text is read, so while
    // anything waits to be read, that is what holds the rest back.
    if (library.pendingOCR() > 0) {
        line.work = left(QStringLiteral("Reading text"), library.pendingOCR());
        line.workIcon = QStringLiteral("text.viewfinder");
    } else if (library.pendingExtraction() > 0) {
        line.work = left(QStringLiteral("Finding organizations and dates"), library.pendingExtraction());
        line.workIcon = QStringLiteral("sparkles");
    } else {
        line.work = QStringLiteral("Up to date");
        line.workIcon = QStringLiteral("checkmark.circle");
    }
    if (library.currentOCR()) {
        line.work += u" · Reading " + *library.currentOCR();
        if (library.readingNow().size() > 1)
            line.work += u" (" + QString::number(library.readingNow().size()) + u" at once)";
    } else if (library.currentExtraction())
        line.work += u" · Extracting " + *library.currentExtraction();

    if (library.paused()) {
        QStringList parts;
        if (library.pendingOCR() > 0)
            parts.append(QString::number(library.pendingOCR()) + u" to read");
        if (library.pendingExtraction() > 0)
            parts.append(QString::number(library.pendingExtraction()) + u" to extract");
        // With nothing left, a bare "Paused" rather than a colon followed by nothing.
        line.paused = parts.isEmpty() ? QStringLiteral("Paused") : u"Paused: " + parts.join(u", ");
        line.pausedIcon = QStringLiteral("pause.circle.fill");
        // Scans asked for are what still runs while paused; otherwise they are simply done first.
        if (!library.requested().empty()) {
            line.requested = QString::number(library.requested().size()) + u" more you asked for";
            line.requestedHelp = QStringLiteral(
                "Scans you asked for (Extract Again, Extract Now) run even while paused, one at a time");
        }
    }

    if (library.modelProblem()) {
        line.model = *library.modelProblem() + u": organizations and dates are on hold";
        line.modelIcon = QStringLiteral("exclamationmark.triangle.fill");
        line.modelHelp = QStringLiteral(
            "Text recognition and search still work. Extraction resumes on its own once the local model is available.");
    } else if (library.modelWaiting()) {
        line.model = u"The local model is busy, retrying: " + *library.modelWaiting();
        line.modelIcon = QStringLiteral("hourglass");
    }
    return line;
}
