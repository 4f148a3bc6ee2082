#pragma once

#include "library/BlockingWait.h"
#include "library/Library.h"
#include "store/Migrations.h"
#include "support/CatalogueFixtures.h"
#include "support/Printing.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

// A catalogue arranged row by row with SQL, then opened by a Library without sync or background work,
// so that what the lists show is exactly what the rows say.
class CatalogueLibrary : public ::testing::Test {
protected:
    CatalogueLibrary()
    {
        QSettings().clear();
        ScanStore schema(folder.path());
        db = std::make_unique<Database>(QDir(folder.path()).filePath(ScanStore::fileName));
    }
    ~CatalogueLibrary() override
    {
        library.reset();
        QCoreApplication::processEvents();
        QSettings().clear();
    }

    // A scan with text "text" on its one page and a full-text entry; kind set when given.
    std::int64_t add(const CatalogueFixtures::Row &row, const QString &text = QString(),
        const std::optional<QString> &kind = std::nullopt,
        const std::optional<QString> &modelOrganization = std::nullopt)
    {
        const std::int64_t id = CatalogueFixtures::insertDocument(*db, row);
        db->run(QStringLiteral("UPDATE documents SET doc_kind = ?, model_organization = ? WHERE id = ?"),
            { kind, modelOrganization, id });
        CatalogueFixtures::insertPage(*db, id, 0, text);
        db->run(Migrations::fullTextFill() + QStringLiteral("d.id = ?"), { id });
        return id;
    }
    std::int64_t organization(const QString &name) { return CatalogueFixtures::insertOrganization(*db, name); }
    std::optional<QString> value(const QString &sql) { return CatalogueFixtures::scalar(*db, sql); }

    Library &open()
    {
        LibraryOptions options;
        options.searchDelay = std::chrono::milliseconds(0);
        library = std::make_unique<Library>(options);
        EXPECT_TRUE(blockingWait(library->openWithoutWork(folder.path())));
        return *library;
    }

    std::vector<std::int64_t> visibleIDs() const
    {
        std::vector<std::int64_t> ids;
        for (const ScanDocument &document : library->visibleDocuments())
            ids.push_back(document.id);
        return ids;
    }

    // Runs the event loop until `done` holds, for at most a generous minute.
    static bool waitUntil(const std::function<bool()> &done)
    {
        QDeadlineTimer deadline(std::chrono::minutes(1));
        while (!done()) {
            if (deadline.hasExpired())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return true;
    }

    QTemporaryDir folder;
    std::unique_ptr<Database> db;
    std::unique_ptr<Library> library;
};
