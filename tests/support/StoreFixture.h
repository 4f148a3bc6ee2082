#pragma once

#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// A fresh catalogue in a temporary folder, with the store and a second connection that tests use to
// arrange rows and look behind the store's back.
class StoreFixture : public ::testing::Test {
protected:
    StoreFixture()
        : store(std::make_unique<ScanStore>(dir.path()))
        , db(QDir(dir.path()).filePath(ScanStore::fileName))
    {
    }

    std::int64_t add(const CatalogueFixtures::Row &row) { return CatalogueFixtures::insertDocument(db, row); }
    std::optional<QString> value(const QString &sql) { return CatalogueFixtures::scalar(db, sql); }
    std::optional<QString> column(std::int64_t id, const QString &name)
    {
        return value(
            QStringLiteral("SELECT ") + name + QStringLiteral(" FROM documents WHERE id = ") + QString::number(id));
    }
    std::vector<std::int64_t> search(const QString &match) { return CatalogueFixtures::ftsMatches(db, match); }

    QTemporaryDir dir;
    std::unique_ptr<ScanStore> store;
    Database db;
};
