#pragma once

#include "core/ScanDocument.h"
#include "core/Similarity.h"
#include "store/Database.h"

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

using DocumentIDs = std::vector<std::int64_t>;

// Ids written into SQL text: decimal, joined by "," without spaces; an empty list is "NULL".
QString idList(const DocumentIDs &ids);

// The catalogue of one scans folder, kept in Vellumark.sqlite inside it. Plain synchronous code over
// one connection: every operation runs to completion and throws Database::Error on failure. Callers
// run it on one serial executor so that operations never overlap.
class ScanStore {
public:
    static inline const QString fileName = QStringLiteral("Vellumark.sqlite");

    // One PDF found in the folder.
    struct FileInfo {
        QString path;
        std::int64_t size = 0;
        QDateTime modified;
        bool operator==(const FileInfo &) const = default;
    };

    // The next scan for text recognition, with the size and modification time the catalogue had when
    // the job was taken; a result for a file that changed since is refused.
    struct OCRJob {
        std::int64_t id = 0;
        QString path;
        std::int64_t size = 0;
        double modified = 0;
        bool operator==(const OCRJob &) const = default;
    };

    // The next scan for the model, with its page texts.
    struct ExtractionJob {
        std::int64_t id = 0;
        QString path;
        QStringList pages;
        bool operator==(const ExtractionJob &) const = default;
    };

    // The filed scan that a scan looks like, offered to the model as a hint.
    struct SimilarDocument {
        std::int64_t id = 0;
        QString path;
        QString organization;
        bool operator==(const SimilarDocument &) const = default;
    };

    struct PendingCounts {
        int ocr = 0;
        int extract = 0;
        bool operator==(const PendingCounts &) const = default;
    };

    // Opens or creates the catalogue in `folder`, switches foreign keys on and migrates it.
    explicit ScanStore(const QString &folder);

    const QString &folder() const { return folder_; }
    QString databasePath() const;
    int schemaVersion();

    // Reads
    std::vector<ScanDocument> documents();
    std::vector<ScanDocument> documents(const DocumentIDs &ids);
    std::vector<Organization> organizations();
    // Every organization by name, its documentCount left 0: for a caller that counts from its own copy
    // of the scans, which is far quicker than the count over a large catalogue.
    std::vector<Organization> uncountedOrganizations();
    QStringList pages(std::int64_t documentID);
    PendingCounts pendingCounts();
    // The newest scan waiting for its text, among `among` when given, other than those being read.
    std::optional<OCRJob> nextOCRJob(
        const std::optional<DocumentIDs> &among = std::nullopt, const DocumentIDs &excluding = {});
    std::optional<ExtractionJob> nextExtractionJob(const std::optional<DocumentIDs> &among = std::nullopt);
    std::optional<QString> trace(std::int64_t documentID);
    std::optional<QString> setting(const QString &key);
    int modelExtractionCount();
    QHash<std::int64_t, QStringList> pageSamples(int length);
    // The present, recognised scan filed under an organization whose first page is most like that of
    // scan `id`, if one is alike enough. The first call reads every first page; later ones only the
    // candidates.
    std::optional<SimilarDocument> similarFiledDocument(std::int64_t id);

    // Full-text search: the scans in which every word of `text` (split at white space) starts a word of
    // the path, organization, date, type or text, diacritics and case ignored. No words, no scans.
    std::set<std::int64_t> search(const QString &text);
    // The full-text query `search` runs: each word as a quoted prefix term, joined by spaces.
    static QString searchQuery(const QString &text);

    // Writes
    void saveOCR(const OCRJob &job, const QStringList &pages, const std::vector<int> &rotations, const QString &sha256);
    void saveExtraction(std::int64_t id, const std::optional<QString> &organization, const std::optional<QString> &date,
        const std::optional<QString> &kind, const std::optional<QString> &log, const std::optional<QString> &trace,
        std::optional<std::int64_t> similarTo);
    void resetOCR(const DocumentIDs &ids);
    void resetExtraction(const DocumentIDs &ids);
    void setKind(const DocumentIDs &ids, const std::optional<QString> &kind);
    void setDate(const DocumentIDs &ids, const std::optional<QString> &date);
    void setSetting(const QString &key, const std::optional<QString> &value);

    // Folder synchronisation. Brings the catalogue in step with `files`, the PDFs now in the folder, in
    // one immediate transaction: new files are added, changed ones go back to text recognition (facts set
    // by hand stay), vanished ones are marked missing and keep everything, and a new file with the size
    // and content of a missing scan that was read takes that scan over. `hash` gives a file's SHA-256 by
    // relative path (absent when unreadable); it is asked only about new files of a missing scan's size.
    // True when anything changed.
    bool sync(const std::vector<FileInfo> &files,
        const std::function<std::optional<QString>(const QString &relativePath)> &hash);
    // Deletes those of the scans that are missing, with their pages and search entries.
    void removeMissing(const DocumentIDs &ids);

    // Organization registry. Each of these runs in its own immediate transaction, reindexes every scan
    // whose organization changed and removes the organizations they leave without scans.
    //
    // The names of the `limit` organizations with the most scans, for the model's instructions.
    QStringList organizationNamesForPrompt(int limit);
    // Files the scans by hand under the organization called `name` (created, user-named, when none has
    // that name in any case) or under none. The model answers this overrules become aliases of it.
    void setOrganization(const DocumentIDs &ids, const std::optional<QString> &name);
    // Renames by hand (a cleaned name); renaming to the name of another organization merges into it.
    void renameOrganization(std::int64_t id, const QString &name);
    // Moves the scans and aliases of `sources` to `target`; their names become aliases of it.
    void merge(const std::vector<std::int64_t> &sources, std::int64_t target);
    // Leaves its scans without organization, their statuses unchanged.
    void deleteOrganization(std::int64_t id);

    // Text recognition of the job's file failed; ignored when the file changed or was reset meanwhile.
    void markOCRFailed(const OCRJob &job, const QString &error);
    // The model could not file a pending scan; ignored when the scan is no longer pending.
    void markExtractionFailed(std::int64_t id, const QString &error, const std::optional<QString> &log,
        const std::optional<QString> &trace, std::optional<std::int64_t> similarTo);
    // Ask the model again about every scan it filed or failed on.
    int reextractModelFiled();
    // Ask the model again about those of them still without an organization or a date.
    int reextractIncomplete();

private:
    bool isCurrent(const OCRJob &job);
    // Sets one fact column of the scans by hand (`manual`) and reindexes them.
    void setByHand(const DocumentIDs &ids, const QString &column, const std::optional<QString> &value);
    void reindex(const DocumentIDs &ids);
    void reindexOrganization(std::int64_t id);

    // The organization a cleaned name denotes, created when there is none. `exactOnly` takes only an
    // organization of that very name (the user's choice); otherwise aliases and matching names count
    // too, and `rememberAlias` records the name as an alias of what it matched.
    std::int64_t resolveOrganization(const QString &name, bool rememberAlias, bool exactOnly);
    void addAlias(const QString &name, std::int64_t organization);
    void mergeOrganizations(const std::vector<std::int64_t> &sources, std::int64_t target);
    void removeUnusedOrganizations();

    QString folder_;
    std::unique_ptr<Database> db_;
    // First-page fingerprints of every recognised scan, built by the first similarFiledDocument call and
    // then kept current by saveOCR. Entries of deleted scans stay: they only add to word frequencies.
    std::optional<Similarity::Index> fingerprints_;
};
