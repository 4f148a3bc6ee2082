// The similar-scan hint: which filed scan's first page is most like a new scan's.

#include "store/ScanStore.h"

std::optional<ScanStore::SimilarDocument> ScanStore::similarFiledDocument(std::int64_t id)
{
    if (!fingerprints_) {
        // Built whole before it is kept, so that a failed read leaves no half cache behind.
        Similarity::Index index;
        Statement pages = db_->prepare(QStringLiteral("SELECT p.document_id, p.text FROM pages p JOIN documents d ON "
                                                      "d.id = p.document_id\nWHERE p.page_index = 0 AND d.ocr_status = "
                                                      "'done'"));
        pages.bind({});
        while (pages.step())
            index.replace(pages.int64(0), Similarity::fingerprint(pages.text(1)));
        fingerprints_ = std::move(index);
    }
    if (fingerprints_->isEmpty() || !fingerprints_->contains(id))
        return std::nullopt;

    Statement filed = db_->prepare(
        QStringLiteral("SELECT d.id, d.path, o.name FROM documents d JOIN organizations o ON o.id = "
                       "d.organization_id\nWHERE d.id != ? "
                       "AND d.missing = 0 AND d.ocr_status = 'done' AND d.extract_status IN ('done', 'manual')"));
    filed.bind({ id });
    std::vector<std::int64_t> candidates;
    QHash<std::int64_t, SimilarDocument> details;
    while (filed.step()) {
        const std::int64_t candidate = filed.int64(0);
        if (!fingerprints_->contains(candidate))
            continue;
        candidates.push_back(candidate);
        details.insert(candidate, { candidate, filed.text(1), filed.text(2) });
    }
    if (const auto match = fingerprints_->best(id, candidates))
        return details.value(match->id);
    return std::nullopt;
}
