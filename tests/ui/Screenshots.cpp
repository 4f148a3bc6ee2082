// Takes the README's screenshots: the welcome view, and the main window on a folder of scanned letters
// read by the real reader and filed by a stub model server, each in a light and a dark palette.
// Usage: vellumark_screenshots OUTPUT_FOLDER (run under a display server, e.g. xvfb-run).
#include "library/ActivityTableModel.h"
#include "library/Library.h"
#include "support/ScanPdf.h"
#include "support/StubModelServer.h"
#include "support/WaitUntil.h"
#include "ui/ActivityView.h"
#include "ui/InspectorView.h"
#include "ui/LibraryView.h"
#include "ui/MainWindow.h"
#include "ui/SettingsWindow.h"
#include "ui/UpdateCheck.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QStyle>
#include <QStyleFactory>
#include <QTableView>
#include <QTemporaryDir>
#include <QToolButton>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

struct Letter {
    QString file;
    QString sender;
    QString kind;
    QString date;
    QStringList lines;
    int turned = 0;
};

const std::vector<Letter> letters {
    { u"2024-03-12 water.pdf"_s, u"City Water Works"_s, u"Utility bill"_s, u"2024-03-12"_s,
        { u"CITY WATER WORKS"_s, u"12 March 2024"_s, u"Water bill for the first quarter"_s, u"Amount due: 84.20"_s } },
    { u"2024-02-02 garden.pdf"_s, u"Garden Club"_s, u"Letter"_s, u"2024-02-02"_s,
        { u"VILLAGE GARDEN CLUB"_s, u"2 February 2024"_s, u"Dear member,"_s, u"our spring party is on 20 April."_s } },
    { u"2023-11-28 insurance.pdf"_s, u"Northbank Insurance"_s, u"Insurance policy or notice"_s, u"2023-11-28"_s,
        { u"NORTHBANK INSURANCE"_s, u"28 November 2023"_s, u"Your home insurance policy"_s, u"renews on 1 January."_s },
        180 },
    { u"2023-10-05 dentist.pdf"_s, u"Riverside Dental"_s, u"Medical bill"_s, u"2023-10-05"_s,
        { u"RIVERSIDE DENTAL PRACTICE"_s, u"5 October 2023"_s, u"Invoice 2231"_s, u"Check-up and cleaning 95.00"_s } },
    { u"2023-09-14 council.pdf"_s, u"Riverside Council"_s, u"Tax notice"_s, u"2023-09-14"_s,
        { u"RIVERSIDE COUNCIL"_s, u"14 September 2023"_s, u"Council tax for 2023/24"_s, u"Band C: 1,640.00"_s } },
    { u"2023-07-01 water.pdf"_s, u"City Water Works"_s, u"Utility bill"_s, u"2023-07-01"_s,
        { u"CITY WATER WORKS"_s, u"1 July 2023"_s, u"Water bill for the second quarter"_s, u"Amount due: 79.10"_s } },
    { u"2023-05-19 telecom.pdf"_s, u"Kestrel Telecom"_s, u"Contract or agreement"_s, u"2023-05-19"_s,
        { u"KESTREL TELECOM"_s, u"19 May 2023"_s, u"Your new broadband contract"_s, u"24 months at 32.00"_s } },
    { u"scan0007.pdf"_s, QString(), u"Other"_s, QString(), { u"Notes from the meeting"_s, u"bring the ladder"_s } },
};

// What a letter says after its heading, so that its page looks like one.
const QStringList body {
    u"Thank you for your letter of the twelfth, which reached our office on Monday."_s,
    u"We have reviewed your account and the payments listed for the last quarter."_s,
    u"No further action is required on your part, and any reminder you may receive"_s,
    u"in the coming days can safely be ignored. Should you have questions, please"_s,
    u"call our service team between nine and five on weekdays."_s,
    QString(),
    u"Yours sincerely,"_s,
    u"Customer Services"_s,
};

QPalette darkPalette()
{
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2e));
    dark.setColor(QPalette::WindowText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x22));
    dark.setColor(QPalette::AlternateBase, QColor(0x27, 0x27, 0x2a));
    dark.setColor(QPalette::Text, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Button, QColor(0x35, 0x35, 0x39));
    dark.setColor(QPalette::ButtonText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Highlight, QColor(0x35, 0x74, 0xc4));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::PlaceholderText, QColor(0x98, 0x98, 0x9e));
    dark.setColor(QPalette::ToolTipBase, QColor(0x35, 0x35, 0x39));
    dark.setColor(QPalette::ToolTipText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Mid, QColor(0x44, 0x44, 0x48));
    dark.setColor(QPalette::Dark, QColor(0x18, 0x18, 0x1a));
    dark.setColor(QPalette::Light, QColor(0x50, 0x50, 0x55));
    for (const auto role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        dark.setColor(QPalette::Disabled, role, QColor(0x75, 0x75, 0x7a));
    return dark;
}

void settleFor(int milliseconds)
{
    QDeadlineTimer until(milliseconds);
    while (!until.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

void save(QWidget &window, const QString &folder, const QString &name)
{
    for (const bool dark : { false, true }) {
        QApplication::setPalette(dark ? darkPalette() : QApplication::style()->standardPalette());
        QCoreApplication::processEvents();
        window.repaint();
        const QString file = QDir(folder).filePath(name + (dark ? u"-dark.png"_s : u"-light.png"_s));
        if (!window.grab().save(file))
            std::fprintf(stderr, "couldn't write %s\n", qPrintable(file));
    }
    QApplication::setPalette(QApplication::style()->standardPalette());
}

// The model's answer for a page: the letter whose first two lines the prompt holds.
StubReply answer(const StubRequest &request)
{
    const QString prompt = QJsonDocument::fromJson(request.body)
                               .object()
                               .value(u"messages"_s)
                               .toArray()
                               .last()
                               .toObject()
                               .value(u"content"_s)
                               .toString()
                               .toUpper();
    for (const Letter &letter : letters) {
        if (!letter.sender.isEmpty() && prompt.contains(letter.lines.at(0).toUpper())
            && prompt.contains(letter.lines.at(1).toUpper()))
            return StubModelServer::ollamaChat(
                uR"({"firstPage":true,"kind":"%1","organization":"%2","dateLabel":"Date","date":"%3"})"_s.arg(
                    letter.kind, letter.sender, letter.date));
    }
    return StubModelServer::ollamaChat(
        uR"({"firstPage":true,"kind":"Other","organization":"","dateLabel":"","date":""})"_s);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    QCoreApplication::setOrganizationName(u"Vellumark"_s);
    QCoreApplication::setApplicationName(u"Vellumark"_s);
    if (argc < 2) {
        std::fprintf(stderr, "usage: vellumark_screenshots OUTPUT_FOLDER\n");
        return 1;
    }
    const QString output = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(output);
    QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());

    QTemporaryDir home;
    const QString folder = QDir(home.path()).filePath(u"Scans"_s);
    QDir().mkpath(folder);
    for (const Letter &letter : letters) {
        ScanPage page;
        page.lines = letter.lines;
        if (!letter.sender.isEmpty())
            page.lines << QString() << body;
        page.turned = letter.turned;
        page.fontSize = 14;
        writeFile(QDir(folder).filePath(letter.file), scanPdf({ page }));
    }
    StubModelServer server;
    server.serveOllama({ u"qwen2.5:3b"_s });
    server.handle(u"POST"_s, u"/api/chat"_s, answer);
    QSettings().setValue(u"ModelServer"_s, server.url().toString());
    QSettings().setValue(Library::folderPathKey, folder);

    Library library;
    UpdateCheck updates(UpdateSource {}, u"0.1.0"_s);
    MainWindow window(library, Prompts::interactive(), updates);
    window.resize(1280, 800);
    window.show();
    library.restore();
    QCoreApplication::processEvents();
    save(window, output, u"welcome"_s);

    library.open(folder, true);
    // While the scans are read.
    waitUntil([&] { return library.isReading() && library.documentsByID().size() == letters.size(); });
    waitUntil([&] { return library.pendingOCR() < int(letters.size()) - 1; });
    save(window, output, u"working"_s);
    if (!waitUntil(
            [&] {
                return library.folder() && library.documentsByID().size() == letters.size() && library.pendingOCR() == 0
                    && library.pendingExtraction() == 0 && !library.isReading() && !library.isExtracting();
            },
            std::chrono::minutes(5))) {
        std::fprintf(stderr, "the scans weren't read and filed in time\n");
        return 2;
    }
    for (const auto &[id, document] : library.documentsByID()) {
        QStringList rotations;
        for (int rotation : document.pageRotations)
            rotations << QString::number(rotation);
        std::fprintf(stderr, "%s: %s rotations %s\n", qPrintable(QFileInfo(document.path).fileName()),
            qPrintable(document.organizationName.value_or(u"(none)"_s)), qPrintable(rotations.join(u',')));
    }
    library.setSelection({ library.visibleDocuments().front().id });
    // Time for the thumbnails to come back from the renderers.
    settleFor(4000);
    save(window, output, u"main-window"_s);

    // The inspector on the letter scanned upside down, then on two letters at once.
    window.findChild<QToolButton *>(u"inspectorToggle"_s)->click();
    std::int64_t turned = 0, other = 0;
    for (const auto &[id, document] : library.documentsByID()) {
        if (QFileInfo(document.path).fileName() == u"2023-11-28 insurance.pdf")
            turned = id;
        else if (QFileInfo(document.path).fileName() == u"2024-03-12 water.pdf")
            other = id;
    }
    library.setSelection({ turned });
    settleFor(3000);
    save(window, output, u"inspector"_s);
    if (auto *details = window.libraryView()->inspector()->current()->findChild<QScrollArea *>(u"inspectorDetails"_s)) {
        QCoreApplication::processEvents();
        details->verticalScrollBar()->setValue(details->verticalScrollBar()->maximum());
        QCoreApplication::processEvents();
        save(window, output, u"inspector-text"_s);
    }
    library.setSelection({ turned, other });
    QCoreApplication::processEvents();
    save(window, output, u"inspector-several"_s);
    window.findChild<QToolButton *>(u"inspectorToggle"_s)->click();

    // What the model was asked and answered for the letter scanned upside down.
    window.showTranscript(turned);
    if (auto *sheet = window.findChild<QDialog *>(u"transcript"_s)) {
        sheet->resize(900, 760);
        settleFor(1000);
        save(*sheet, output, u"transcript"_s);
        sheet->close();
    }

    // The session's activity with one request shown in full.
    window.showActivity();
    ActivityView &activity = *window.activityWindow();
    activity.resize(1100, 700);
    auto *requests = activity.findChild<QTableView *>(u"activityTable"_s);
    for (int row = requests->model()->rowCount() - 1; row >= 0; --row) {
        if (requests->model()->index(row, ActivityTableModel::kind).data().toString() == u"Model"_s) {
            requests->selectRow(row);
            break;
        }
    }
    settleFor(500);
    save(activity, output, u"activity"_s);
    activity.close();

    // The instructions tried on the selected letter, then the model and text recognition pages.
    library.setSelection({ other });
    window.showSettings(true);
    SettingsWindow &preferences = *window.settingsWindow();
    preferences.resize(880, 680);
    settleFor(500);
    if (auto *tryIt = preferences.findChild<QPushButton *>(u"tryInstructions"_s)) {
        tryIt->click();
        waitUntil([&] { return tryIt->isEnabled(); });
    }
    settleFor(300);
    save(preferences, output, u"settings-instructions"_s);
    preferences.present(1);
    settleFor(1500);
    save(preferences, output, u"settings-model"_s);
    preferences.present(2);
    settleFor(300);
    save(preferences, output, u"settings-text"_s);
    preferences.close();
    library.setSelection({});

    // The model server gone: text is still read, filing waits.
    QSettings().setValue(u"ModelServer"_s, u"http://127.0.0.1:9"_s);
    library.modelSettingsChanged();
    ScanPage page;
    page.lines = QStringList { u"OAKWOOD LIBRARY"_s, u"3 April 2024"_s, QString() } + body;
    page.fontSize = 14;
    writeFile(QDir(folder).filePath(u"2024-04-03 library.pdf"_s), scanPdf({ page }));
    library.rescan();
    waitUntil([&] { return library.modelProblem() && library.pendingOCR() == 0 && !library.isReading(); });
    save(window, output, u"model-unavailable"_s);
    return 0;
}
