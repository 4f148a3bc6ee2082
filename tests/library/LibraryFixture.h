#pragma once

#include "library/BlockingWait.h"
#include "library/Library.h"
#include "store/Migrations.h"
#include "support/CatalogueFixtures.h"
#include "support/FakeScans.h"
#include "support/Printing.h"
#include "support/ScanPdf.h"
#include "support/WaitUntil.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

// A temporary folder, clean settings, and a library closed before the next test.
class FolderTest : public ::testing::Test {
protected:
    FolderTest() { QSettings().clear(); }
    ~FolderTest() override
    {
        library.reset();
        // Let loops that were stopped wind down before the next test.
        QCoreApplication::processEvents();
        QSettings().clear();
    }
    QString path(const QString &name) const { return QDir(folder.path()).filePath(name); }
    // A connection of the test's own to the folder's catalogue.
    std::unique_ptr<Database> connect() const { return std::make_unique<Database>(path(ScanStore::fileName)); }
    const ScanDocument &document(std::int64_t id) const { return library->documentsByID().at(id); }

    // No pause before a search; short waits for a busy or absent model, so that tests see several rounds.
    static LibraryOptions options(bool extraction = true)
    {
        return { .extraction = extraction, .searchDelay = 0ms, .modelRetry = 30ms, .modelPoll = 30ms };
    }

    QTemporaryDir folder;
    std::unique_ptr<Library> library;
};

// Scans in a folder, read and filed by a library doing its work as the app does.
class LibraryTest : public FolderTest {
protected:
    // Scans are read by the fake reader unless a test needs real recognition.
    LibraryTest() { qputenv("VELLUMARK_READER", QFile::encodeName(fakeReaderProgram())); }
    void useRealReader() { qunsetenv("VELLUMARK_READER"); }

    QString fakeScan(const QString &name, const QStringList &pages = { QString() })
    {
        writeFakeScan(path(name), pages);
        return path(name);
    }

    // With `model`, scans are filed by it; without, only their text is read.
    Library &openLibrary(std::shared_ptr<Extractor::LanguageModel> model = nullptr)
    {
        library = std::make_unique<Library>(options(model != nullptr));
        if (model)
            library->setLanguageModel(std::move(model));
        bool synced = false;
        // The connection ends with this call, before `synced` goes out of scope.
        QObject scope;
        QObject::connect(library.get(), &Library::synced, &scope, [&] { synced = true; });
        library->open(folder.path(), false);
        EXPECT_TRUE(waitUntil([&] { return synced; }));
        return *library;
    }

    bool waitForQuiet()
    {
        return waitUntil(
            [&] { return library->pendingOCR() == 0 && !library->isReading() && !library->isExtracting(); });
    }

    const ScanDocument *document(const QString &path) const
    {
        const auto &all = library->documentsByID();
        const auto found = std::ranges::find(all, path, [](const auto &entry) { return entry.second.path; });
        return found == all.end() ? nullptr : &found->second;
    }

    // "file: title / outcome" of each activity entry of this kind.
    std::vector<QString> activity(ActivityEntry::Kind kind) const
    {
        std::vector<QString> titles;
        for (const ActivityEntry &entry : library->activity().entries()) {
            if (entry.kind == kind)
                titles.push_back(entry.file.value_or(QString()) + u": " + entry.title + u" / " + entry.outcome);
        }
        return titles;
    }
};

// A catalogue arranged row by row with SQL, then opened by a Library without sync or background work,
// so that what the lists show is exactly what the rows say.
class CatalogueLibrary : public FolderTest {
protected:
    CatalogueLibrary()
    {
        ScanStore schema(folder.path());
        db = connect();
    }

    // A scan with `text` on its one page and a full-text entry.
    std::int64_t add(const CatalogueFixtures::Row &row, const QString &text = QString(),
        const std::optional<QString> &kind = std::nullopt)
    {
        const std::int64_t id = CatalogueFixtures::insertDocument(*db, row);
        db->run(u"UPDATE documents SET doc_kind = ? WHERE id = ?"_s, { kind, id });
        CatalogueFixtures::insertPage(*db, id, 0, text);
        db->run(Migrations::fullTextFill() + u"d.id = ?"_s, { id });
        return id;
    }
    std::int64_t organization(const QString &name) { return CatalogueFixtures::insertOrganization(*db, name); }
    std::optional<QString> value(const QString &sql) { return CatalogueFixtures::scalar(*db, sql); }

    Library &open()
    {
        library = std::make_unique<Library>(options());
        EXPECT_TRUE(blockingWait(library->openWithoutWork(folder.path())));
        return *library;
    }

    // The catalogue's lists read afresh from the file.
    std::unique_ptr<Catalogue> readAfresh()
    {
        auto catalogue = std::make_unique<Catalogue>();
        catalogue->setStore(Catalogue::Store::makeNow(folder.path()), folder.path());
        blockingWait(catalogue->reload());
        return catalogue;
    }

    std::unique_ptr<Database> db;
};
