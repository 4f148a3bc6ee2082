#pragma once

// The large catalogue the benchmarks share: by default 100,000 scans of 3 pages of about 1,500
// characters each, built once with plain SQL in a temporary folder (deleted with the object). Most
// scans were read and filed by the model, some by hand; a tenth wait for text recognition, 1% of the
// files are missing. The layout is described in bench/README.md.

#include "core/DocumentKind.h"
#include "store/Database.h"
#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <numeric>
#include <optional>
#include <unistd.h>
#include <vector>

#include "SyntheticText.h"

namespace bench {

constexpr int catalogueDocuments = 100'000;
constexpr int pagesPerDocument = 3;
constexpr int pageLength = 1'500;

inline QString hexDigest(Random &random)
{
    QString text;
    text.reserve(64);
    for (int i = 0; i < 4; ++i)
        text += QStringLiteral("%1").arg(random.next(), 16, 16, QLatin1Char('0'));
    return text;
}

inline double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The shared catalogue, built on first use and kept until the process ends.

class Catalogue {
public:
    // Builds a catalogue of `documents` scans in a new temporary folder.
    explicit Catalogue(int documents)
        : documents_(documents)
    {
        if (!folder_.isValid())
            throw Database::Error(QStringLiteral("cannot create a temporary folder: ") + folder_.errorString());
        std::fprintf(stderr, "Building a catalogue of %d scans in %s ...\n", documents,
            QFile::encodeName(folder_.path()).constData());
        const auto start = std::chrono::steady_clock::now();
        {
            ScanStore schema(folder_.path());
        }
        Database db(QDir(folder_.path()).filePath(ScanStore::fileName));
        // Only this connection: the store's own opens with SQLite's defaults.
        db.execute(QStringLiteral("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY"));
        inImmediateTransaction(db, [&] {
            insertRows(db);
            insertSeconds_ = secondsSince(start);
            const auto fill = std::chrono::steady_clock::now();
            db.run(Migrations::fullTextFill() + QStringLiteral("1"));
            fullTextSeconds_ = secondsSince(fill);
        });
        buildSeconds_ = secondsSince(start);
        folderPath_ = folder_.path();
        store_ = std::make_unique<ScanStore>(folder_.path());
        std::fprintf(stderr, "Built in %.1f s (rows %.1f s, full-text index %.1f s), %lld bytes\n", buildSeconds_,
            insertSeconds_, fullTextSeconds_, static_cast<long long>(fileBytes()));
    }

    ScanStore &store() { return *store_; }
    int documents() const { return documents_; }
    int pending() const { return pending_; }
    double insertSeconds() const { return insertSeconds_; }
    double fullTextSeconds() const { return fullTextSeconds_; }
    double buildSeconds() const { return buildSeconds_; }
    std::int64_t fileBytes() const { return QFileInfo(store_->databasePath()).size(); }
    // Scans whose text was read and whose file is present: the ones saveOCR rewrites.
    const DocumentIDs &readIDs() const { return readIDs_; }
    const QString &folder() const { return folderPath_; }

private:
    void insertRows(Database &db)
    {
        Random random(1'700'000'000);
        const QStringList &kinds = DocumentKind::all();

        static constexpr std::array places = { "Pacific", "Northern", "First", "United", "Summit", "Riverside",
            "Evergreen", "Liberty", "Golden", "Lakeside", "Keystone", "Harbor", "Prairie", "Capital", "Redwood",
            "Atlantic", "Granite", "Cedar", "Heritage", "Valley" };
        static constexpr std::array trades = { "Bank", "Energy", "Insurance", "Health", "Mutual", "Credit Union",
            "Telecom", "Water District", "Medical Group", "Realty", "Auto Finance", "Dental", "Pharmacy", "Wireless",
            "Mortgage", "Tax Services", "University", "Property Management", "Electric", "Cable" };
        QStringList organizations;
        Statement insertOrganization
            = db.prepare(QStringLiteral("INSERT INTO organizations (id, name, named_by_user, created_at) "
                                        "VALUES (?, ?, ?, ?)"));
        for (const char *place : places)
            for (const char *trade : trades) {
                organizations.append(QString::fromUtf8(place) + QLatin1Char(' ') + QString::fromUtf8(trade));
                insertOrganization.bind(
                    { std::int64_t(organizations.size()), organizations.back(), random.chance(10), 1'300'000'000.0 });
                while (insertOrganization.step()) { }
            }

        // Exactly a tenth of the scans wait for text recognition, spread at random over the folder.
        std::vector<int> order(static_cast<std::size_t>(documents_));
        std::iota(order.begin(), order.end(), 0);
        pending_ = documents_ / 10;
        for (int i = 0; i < pending_; ++i)
            std::swap(order[std::size_t(i)], order[std::size_t(i + random.below(documents_ - i))]);
        std::vector<bool> isPending(static_cast<std::size_t>(documents_));
        for (int i = 0; i < pending_; ++i)
            isPending[std::size_t(order[std::size_t(i)])] = true;

        Statement insertDocument = db.prepare(QStringLiteral(
            "INSERT INTO documents (id, path, file_size, file_modified, sha256, page_count, missing, ocr_status, "
            "ocr_at, extract_status, extracted_at, error, organization_id, doc_date, model_organization, added_at, "
            "extract_log, similar_document_id, doc_kind, page_rotations) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
        Statement insertPage
            = db.prepare(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, ?, ?)"));
        PageWriter writer(42, pageLength);
        const QString pending = QStringLiteral("pending");
        const QString done = QStringLiteral("done");
        const QString failed = QStringLiteral("failed");
        const QString manual = QStringLiteral("manual");

        for (int index = 0; index < documents_; ++index) {
            const std::int64_t id = index + 1;
            const double modified = 1'300'000'000.0 + double(index) * 4'000.0 + random.below(3'600);
            const double added = modified + 30 + random.below(600) + random.unit();
            const int year = 2011 + index * 13 / std::max(documents_, 1);
            const int month = 1 + random.below(12);
            const int day = 1 + random.below(28);
            const QString path = QStringLiteral("%1/%1-%2-%3 Scan %4.pdf")
                                     .arg(year)
                                     .arg(month, 2, 10, QLatin1Char('0'))
                                     .arg(day, 2, 10, QLatin1Char('0'))
                                     .arg(id, 6, 10, QLatin1Char('0'));

            QString ocrStatus = pending;
            QString extractStatus = pending;
            bool missing = false;
            std::optional<SQLValue> sha, ocrAt, extractedAt, error, organizationID, date, modelOrganization, log,
                similar, kind, rotations;
            if (!isPending[std::size_t(index)]) {
                missing = random.chance(1);
                sha = hexDigest(random);
                ocrAt = added + 20;
                if (random.below(200) == 0) {
                    ocrStatus = failed;
                    error = QStringLiteral("Text recognition failed: page 2 could not be rendered");
                } else {
                    ocrStatus = done;
                    const int roll = random.below(100);
                    extractStatus = roll < 85 ? done : roll < 90 ? manual : roll < 92 ? failed : pending;
                }
                if (extractStatus == done || extractStatus == manual) {
                    extractedAt = added + 60;
                    const int organization = random.below(int(organizations.size()));
                    if (!random.chance(8))
                        organizationID = std::int64_t(organization + 1);
                    modelOrganization = organizations[organization];
                    const QString dateText = QStringLiteral("%1-%2-%3")
                                                 .arg(year)
                                                 .arg(month, 2, 10, QLatin1Char('0'))
                                                 .arg(day, 2, 10, QLatin1Char('0'));
                    const QString kindText = kinds[random.below(int(kinds.size()))];
                    date = dateText;
                    kind = kindText;
                    log = QStringLiteral("Asked the model about %1 pages (%2 characters).\nAnswer: \"%3\", %4, %5.")
                              .arg(pagesPerDocument)
                              .arg(pagesPerDocument * pageLength)
                              .arg(organizations[organization], dateText, kindText);
                    if (index > 0 && random.chance(30))
                        similar = std::int64_t(1 + random.below(index));
                } else if (extractStatus == failed) {
                    extractedAt = added + 60;
                    error = QStringLiteral("The model named no organization");
                }
                if (random.chance(5))
                    rotations = QStringLiteral("0,180,0");
            }
            insertDocument.bind({ id, path, std::int64_t(80'000 + random.below(3'000'000)), modified, sha,
                pagesPerDocument, missing, ocrStatus, ocrAt, extractStatus, extractedAt, error, organizationID, date,
                modelOrganization, added, log, similar, kind, rotations });
            while (insertDocument.step()) { }
            for (int page = 0; page < pagesPerDocument; ++page) {
                insertPage.bind({ id, page, writer.page() });
                while (insertPage.step()) { }
            }
            if (ocrStatus == done && !missing)
                readIDs_.push_back(id);
        }
    }

    QTemporaryDir folder_;
    QString folderPath_;
    std::unique_ptr<ScanStore> store_;
    int documents_ = 0;
    int pending_ = 0;
    double insertSeconds_ = 0;
    double fullTextSeconds_ = 0;
    double buildSeconds_ = 0;
    DocumentIDs readIDs_;
};

// Makes every present file of the catalogue a hard link to one of the real scans (the scan's size and
// time written into the catalogue), so that the folder's sync finds nothing changed.
inline void linkFiles(const QString &folder, const QStringList &scans)
{
    const QString store = QDir(folder).filePath(QStringLiteral(".scans"));
    QDir().mkpath(store);
    std::vector<QString> sources;
    std::vector<std::int64_t> sizes;
    std::vector<double> times;
    for (int index = 0; index < scans.size(); ++index) {
        sources.push_back(QDir(store).filePath(QStringLiteral("%1.pdf").arg(index)));
        QFile::copy(scans[index], sources.back());
        const QFileInfo info(sources.back());
        sizes.push_back(info.size());
        times.push_back(double(info.lastModified().toMSecsSinceEpoch()) / 1000.0);
    }
    Database db(QDir(folder).filePath(ScanStore::fileName));
    inImmediateTransaction(db, [&] {
        std::vector<std::pair<std::int64_t, QString>> present;
        Statement read = db.prepare(QStringLiteral("SELECT id, path FROM documents WHERE missing = 0"));
        read.bind({});
        while (read.step())
            present.emplace_back(read.int64(0), read.text(1));
        Statement update
            = db.prepare(QStringLiteral("UPDATE documents SET file_size = ?, file_modified = ? WHERE id = ?"));
        QSet<QString> made;
        for (const auto &[id, path] : present) {
            const QString target = QDir(folder).filePath(path);
            const QString parent = QFileInfo(target).path();
            if (!made.contains(parent)) {
                QDir().mkpath(parent);
                made.insert(parent);
            }
            const std::size_t source = std::size_t(id % std::int64_t(sources.size()));
            if (::link(QFile::encodeName(sources[source]).constData(), QFile::encodeName(target).constData()) != 0)
                throw Database::Error(QStringLiteral("cannot link ") + target);
            update.bind({ sizes[source], times[source], id });
            while (update.step()) { }
        }
    });
}

} // namespace bench
