#include "library/Provenance.h"

#include "library/Library.h"

#include <QFileInfo>

ProvenanceState ProvenanceState::of(const Library &library, const ScanDocument &document)
{
    ProvenanceState state { WorkState::of(library), library.modelProblem(), library.pendingExtraction(), {} };
    if (document.similarID) {
        const auto found = library.documentsByID().find(*document.similarID);
        if (found != library.documentsByID().end())
            state.similar = found->second;
    }
    return state;
}

namespace {

std::optional<QString> statusText(const ScanDocument &document, const ProvenanceState &state)
{
    switch (document.extractStatus) {
    case ExtractStatus::manual:
        return QStringLiteral("Set by you.");
    case ExtractStatus::failed:
        return document.error.value_or(QString());
    case ExtractStatus::done: {
        const QString raw = document.modelOrganization.value_or(QString());
        if (!raw.isEmpty() && raw.compare(document.organizationName.value_or(QString()), Qt::CaseInsensitive) != 0)
            return u"The local model said “" + raw + u"”.";
        return QStringLiteral("Found by the local model.");
    }
    case ExtractStatus::pending:
        break;
    }
    if (document.ocrStatus != OCRStatus::done)
        return std::nullopt;
    if (state.work.currentExtraction == QFileInfo(document.path).fileName())
        return QStringLiteral("Asking the local model…");
    if (state.modelProblem)
        return *state.modelProblem + u'.';
    if (state.work.requested.contains(document.id))
        return QStringLiteral("Next up for the local model.");
    if (!state.work.paused)
        return u"Waiting for the local model (" + QString::number(state.pendingExtraction) + u" in line)…";
    return QStringLiteral("Paused.");
}

Provenance::Action action(const ScanDocument &document, const ProvenanceState &state)
{
    if (document.ocrStatus != OCRStatus::done)
        return Provenance::Action::none;
    if (document.extractStatus != ExtractStatus::pending)
        return Provenance::Action::extractAgain;
    if (!state.work.requested.contains(document.id) && !state.modelProblem)
        return Provenance::Action::extractNow;
    return Provenance::Action::none;
}

std::optional<QString> similarText(const ScanDocument &document, const ProvenanceState &state)
{
    if (!document.similarID || !document.similarPath)
        return std::nullopt;
    QString text = u"Looks like " + QFileInfo(*document.similarPath).fileName();
    if (state.similar && state.similar->organizationName)
        text += u" (" + *state.similar->organizationName + u')';
    return text + u"; the model was given that as a hint.";
}

} // namespace

Provenance provenance(const ScanDocument &document, const ProvenanceState &state)
{
    return {
        .status = statusText(document, state),
        .failed = document.extractStatus == ExtractStatus::failed,
        .action = action(document, state),
        .similar = similarText(document, state),
        .showsLog = document.extractLog.has_value() && document.extractStatus != ExtractStatus::pending,
    };
}

QString pageCaption(int index, int pageCount, const std::vector<int> &rotations)
{
    QStringList parts;
    if (pageCount >= 2)
        parts << u"Page " + QString::number(index + 1);
    const int rotation = index < int(rotations.size()) ? rotations[std::size_t(index)] : 0;
    if (rotation == 180)
        parts << QStringLiteral("Scanned upside down");
    else if (rotation != 0)
        parts << QStringLiteral("Scanned sideways");
    return parts.join(QStringLiteral(" · "));
}

QString sizeText(std::int64_t bytes, std::optional<int> pageCount, const QLocale &locale)
{
    QString text = locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
    if (pageCount)
        text += u", " + QString::number(*pageCount) + (*pageCount == 1 ? u" page" : u" pages");
    return text;
}
