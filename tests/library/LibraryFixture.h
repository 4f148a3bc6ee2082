#pragma once

#include "library/Library.h"
#include "support/FakeScans.h"
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

using namespace std::chrono_literals;

// Runs the event loop until `done` holds, for at most a generous minute.
inline bool waitUntil(const std::function<bool()> &done, std::chrono::milliseconds limit = 60s)
{
    QDeadlineTimer deadline(limit);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

inline ScanPage blankPage()
{
    return ScanPage {};
}

inline ScanPage textPage(const QString &line)
{
    ScanPage page;
    page.lines = { line };
    return page;
}

class LibraryTest : public ::testing::Test {
protected:
    // Scans are read by the fake reader unless a test needs real recognition.
    void SetUp() override
    {
        QSettings().clear();
        qputenv("VELLUMARK_READER", QFile::encodeName(fakeReaderProgram()));
    }
    void useRealReader() { qunsetenv("VELLUMARK_READER"); }
    void TearDown() override
    {
        library.reset();
        // Let loops that were stopped wind down before the next test.
        QCoreApplication::processEvents();
        QSettings().clear();
    }

    QString fakeScan(const QString &name, const QStringList &pages = { QString() })
    {
        const QString path = QDir(folder.path()).filePath(name);
        writeFakeScan(path, pages);
        return path;
    }

    QString scan(const QString &name, const QByteArray &bytes)
    {
        const QString path = QDir(folder.path()).filePath(name);
        QDir().mkpath(QFileInfo(path).absolutePath());
        writeFile(path, bytes);
        return path;
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

    // Short waits for a busy or absent model, so that tests see several rounds.
    static LibraryOptions options(bool extraction = true)
    {
        LibraryOptions options;
        options.extraction = extraction;
        options.searchDelay = std::chrono::milliseconds(0);
        options.modelRetry = std::chrono::milliseconds(30);
        options.modelPoll = std::chrono::milliseconds(30);
        return options;
    }

    bool waitForIdle()
    {
        return waitUntil([&] { return !library->isReading(); });
    }

    const ScanDocument *document(const QString &path) const
    {
        for (const auto &[id, document] : library->documentsByID()) {
            if (document.path == path)
                return &document;
        }
        return nullptr;
    }

    std::vector<QString> activityTitles(ActivityEntry::Kind kind) const
    {
        std::vector<QString> titles;
        for (const ActivityEntry &entry : library->activity().entries()) {
            if (entry.kind == kind)
                titles.push_back(entry.file.value_or(QString()) + QStringLiteral(": ") + entry.title
                    + QStringLiteral(" / ") + entry.outcome);
        }
        return titles;
    }

    QTemporaryDir folder;
    std::unique_ptr<Library> library;
};
