#pragma once

// First, so that failing comparisons of texts print them.
#include "library/BlockingWait.h"
#include "library/Library.h"
#include "support/FakeScans.h"
#include "support/Printing.h"
#include "support/StubModelServer.h"
#include "support/WaitUntil.h"
#include "ui/MainWindow.h"
#include "ui/Prompts.h"
#include "ui/UpdateCheck.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDialog>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

// The main window over a real Library on a temporary folder of fake scans, read by the fake reader and
// filed by a stub model server, with the folder chooser and the dialogs answered by the test.
class WindowTest : public ::testing::Test {
protected:
    WindowTest()
    {
        QSettings().clear();
        qputenv("VELLUMARK_READER", QFile::encodeName(fakeReaderProgram()));
        server.serveOllama({ u"qwen2.5:3b"_s });
        fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
        QSettings().setValue(u"ModelServer"_s, server.url().toString());
        // Read when the app's thumbnails are first asked for: a renderer that hangs is given up soon.
        QSettings().setValue(u"RenderTimeoutSeconds"_s, 2);
    }
    ~WindowTest() override
    {
        window.reset();
        library.reset();
        QCoreApplication::processEvents();
        QSettings().clear();
    }

    // Every page the model is asked about is the first page of a document from `organization`.
    void fileEverythingAs(const QString &organization, const QString &kind, const QString &date)
    {
        server.reply(u"POST"_s, u"/api/chat"_s,
            { StubModelServer::ollamaChat(
                uR"({"firstPage":true,"kind":"%1","organization":"%2","dateLabel":"Date","date":"%3"})"_s.arg(
                    kind, organization, date)) });
    }

    QString path(const QString &name) const { return QDir(folder.path()).filePath(name); }
    QString fakeScan(const QString &name, const QString &text)
    {
        // Long enough for the model to be asked about it.
        writeFakeScan(path(name), { text + u", with kind regards from the office and our thanks for your letter."_s });
        return path(name);
    }

    // The window, with no folder open yet.
    MainWindow &showWindow()
    {
        library
            = std::make_unique<Library>(LibraryOptions { .searchDelay = 0ms, .modelRetry = 30ms, .modelPoll = 30ms });
        Prompts prompts;
        prompts.chooseFolder = [this](QWidget *, const QString &startIn) {
            chooserStartedIn = startIn;
            return chosenFolder;
        };
        prompts.run = [this](QDialog &dialog) {
            dialogsShown.push_back(dialog.objectName());
            return answer ? answer(dialog) : int(QDialog::Rejected);
        };
        window = std::make_unique<MainWindow>(*library, prompts, updates);
        synced = false;
        QObject::connect(library.get(), &Library::synced, window.get(), [this] { synced = true; });
        window->show();
        return *window;
    }

    // The window on the folder, once its scans are read and filed.
    MainWindow &openFolder()
    {
        showWindow();
        library->open(folder.path(), false);
        EXPECT_TRUE(waitForQuiet());
        return *window;
    }

    bool waitForQuiet()
    {
        return waitUntil([&] {
            return synced && library->pendingOCR() == 0 && library->pendingExtraction() == 0 && !library->isReading()
                && !library->isExtracting();
        });
    }

    template <typename T> T *find(const QString &name) const
    {
        T *found = window->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << qPrintable(name);
        return found;
    }
    QAction *action(const QString &name) const { return find<QAction>(name); }
    std::int64_t idOf(const QString &name) const
    {
        for (const auto &[id, document] : library->documentsByID()) {
            if (QFileInfo(document.path).fileName() == name)
                return id;
        }
        ADD_FAILURE() << qPrintable(name);
        return 0;
    }

    // The focusable controls shown in the window without an accessible name (a button's text counts).
    QStringList unnamedControls() const
    {
        QStringList unnamed;
        for (QWidget *widget : window->findChildren<QWidget *>()) {
            if (!widget->isVisibleTo(window.get()) || !widget->focusPolicy())
                continue;
            const auto *button = qobject_cast<QAbstractButton *>(widget);
            if (widget->accessibleName().isEmpty() && !(button && !button->text().isEmpty()))
                unnamed << QString::fromLatin1(widget->metaObject()->className()) + u' ' + widget->objectName();
        }
        return unnamed;
    }

    // Answers a dialog by clicking its button with this text.
    static int click(QDialog &dialog, const QString &text)
    {
        for (QAbstractButton *button : dialog.findChildren<QAbstractButton *>()) {
            if (button->text() == text) {
                button->click();
                return dialog.result();
            }
        }
        ADD_FAILURE() << "no button " << qPrintable(text);
        return QDialog::Rejected;
    }

    QTemporaryDir folder;
    StubModelServer server;
    UpdateCheck updates { UpdateSource {}, u"0.1.0"_s };
    std::unique_ptr<Library> library;
    std::unique_ptr<MainWindow> window;
    std::optional<QString> chosenFolder;
    QString chooserStartedIn;
    std::function<int(QDialog &)> answer;
    std::vector<QString> dialogsShown;
    // Whether the open folder's files were compared with its catalogue since the window was made.
    bool synced = false;
};
