// Keeping the catalogue in step with the PDFs in the folder.

#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QHash>
#include <QSet>

#include <cmath>
#include <unordered_map>
#include <utility>

namespace {
struct Row {
    std::int64_t id = 0;
    std::int64_t size = 0;
    double modified = 0;
    std::optional<QString> sha;
    bool missing = false;
};

// Scans reindexed per statement: a first sync of a large folder inserts many at once.
constexpr std::size_t reindexBatch = 500;
} // namespace

bool ScanStore::sync(
    const std::vector<FileInfo> &files, const std::function<std::optional<QString>(const QString &)> &hash)
{
    bool changed = false;
    // The catalogue is read inside the transaction, so that a sync of another process that ran just before
    // is seen, not undone or inserted twice.
    inImmediateTransaction(*db_, [&] {
        QHash<QString, Row> rows;
        std::vector<QString> order;
        Statement read
            = db_->prepare(QStringLiteral("SELECT path, id, file_size, file_modified, sha256, missing FROM documents"));
        read.bind({});
        while (read.step()) {
            order.push_back(read.text(0));
            rows.insert(
                order.back(), { read.int64(1), read.int64(2), read.real(3), read.optionalText(4), read.boolean(5) });
        }
        QSet<QString> onDisk;
        onDisk.reserve(qsizetype(files.size()));
        for (const FileInfo &file : files)
            onDisk.insert(file.path);

        // Vanished files are only marked: a file that comes back finds its row whole.
        Statement markMissing = db_->prepare(QStringLiteral("UPDATE documents SET missing = 1 WHERE id = ?"));
        // Rows whose file is gone, by size: a new file of that size and content is the same scan, moved.
        std::unordered_map<std::int64_t, std::vector<std::pair<QString, std::int64_t>>> moves;
        for (const QString &path : order) {
            Row &row = rows[path];
            if (onDisk.contains(path))
                continue;
            if (!row.missing) {
                markMissing.bind({ row.id });
                while (markMissing.step()) { }
                row.missing = true;
                changed = true;
            }
            moves[row.size].emplace_back(path, row.id);
        }

        const double now = secondsSince1970(QDateTime::currentDateTimeUtc());
        Statement returned = db_->prepare(QStringLiteral("UPDATE documents SET missing = 0 WHERE id = ?"));
        Statement modified = db_->prepare(QStringLiteral(
            "UPDATE documents SET file_size = ?, file_modified = ?, sha256 = NULL, ocr_status = 'pending', "
            "error = NULL, page_rotations = NULL,\nextract_status = CASE extract_status WHEN 'manual' THEN 'manual' "
            "ELSE 'pending' END WHERE id = ?"));
        Statement moved = db_->prepare(
            QStringLiteral("UPDATE documents SET path = ?, file_modified = ?, missing = 0 WHERE id = ?"));
        Statement insert = db_->prepare(
            QStringLiteral("INSERT INTO documents (path, file_size, file_modified, added_at) VALUES (?, ?, ?, ?)"));
        DocumentIDs toReindex;
        const auto run = [&](Statement &statement, const SQLParams &params) {
            statement.bind(params);
            while (statement.step()) { }
            changed = true;
        };

        for (const FileInfo &file : files) {
            const double fileModified = secondsSince1970(file.modified);
            const auto known = rows.find(file.path);
            if (known != rows.end()) {
                Row &row = *known;
                if (row.missing) {
                    run(returned, { row.id });
                    row.missing = false;
                }
                if (file.size == row.size && std::abs(fileModified - row.modified) <= 0.5)
                    continue;
                // Read and asked about again; facts set by hand stay.
                run(modified, { file.size, fileModified, row.id });
                row.size = file.size;
                row.modified = fileModified;
                row.sha.reset();
                continue;
            }

            std::optional<std::int64_t> movedID;
            std::optional<QString> movedSHA;
            if (const auto candidates = moves.find(file.size); candidates != moves.end()) {
                if (const std::optional<QString> sha = hash(file.path)) {
                    auto &entries = candidates->second;
                    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
                        if (rows.value(entry->first).sha != sha)
                            continue;
                        movedID = entry->second;
                        movedSHA = sha;
                        entries.erase(entry);
                        break;
                    }
                }
            }
            // A file moved or renamed keeps its id, text, facts and history.
            if (movedID)
                run(moved, { file.path, fileModified, *movedID });
            else
                run(insert, { file.path, file.size, fileModified, now });
            const std::int64_t id = movedID ? *movedID : db_->lastInsertID();
            // Known from now on, so that a path listed twice (a link and its target) is taken once.
            rows.insert(file.path, { id, file.size, fileModified, movedSHA, false });
            toReindex.push_back(id);
            if (toReindex.size() == reindexBatch) {
                reindex(toReindex);
                toReindex.clear();
            }
        }
        reindex(toReindex);
    });
    return changed;
}

void ScanStore::removeMissing(const DocumentIDs &ids)
{
    inImmediateTransaction(*db_, [&] {
        for (const std::int64_t id : ids) {
            // A scan still present keeps its search entry.
            if (db_->run(QStringLiteral("DELETE FROM documents WHERE id = ? AND missing = 1"), { id }) > 0)
                db_->run(QStringLiteral("DELETE FROM documents_fts WHERE rowid = ?"), { id });
        }
    });
}
