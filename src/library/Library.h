#pragma once

#include "extract/ActivityLog.h"
#include "library/Browsing.h"
#include "library/Catalogue.h"
#include "library/Editing.h"
#include "library/ModelWatch.h"
#include "library/WorkScheduler.h"

#include <QCoro/QCoroTask>
#include <QDate>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class FolderWatcher;

// How a front end sets a Library up.
struct LibraryOptions {
    // Whether scans are filed with the local model at all; off, only their text is read.
    bool extraction = true;
    // The pause in typing after which a search starts; a command line wants none.
    std::chrono::milliseconds searchDelay = std::chrono::milliseconds(150);
    // How long a busy model is waited for, and how often an unavailable one is asked whether it is back.
    std::chrono::milliseconds modelRetry = std::chrono::seconds(15);
    std::chrono::milliseconds modelPoll = std::chrono::seconds(20);
    // How many scans are read at once; absent, the ReadingWorkers setting decides.
    std::optional<int> readers;
};

// The one controller both front ends share: the open scans folder, its catalogue, the copy of the
// catalogue the views show, and the background work on it. Lives on the main thread; every field is read
// there and announces its changes with a signal, emitted only when the value changes. The work is done
// by its parts: the Catalogue (the lists), Browsing (filters, order, search), Editing (corrections), the
// WorkScheduler (the two work loops) and the ModelWatch (the local model's availability).
class Library : public QObject {
    Q_OBJECT
public:
    // Preference keys (QSettings, organization and application "Vellumark").
    static inline const QString folderBookmarkKey = QStringLiteral("FolderBookmark");
    static inline const QString folderPathKey = QStringLiteral("FolderPath");
    static inline const QString folderOverrideKey = QStringLiteral("VellumarkFolder");
    static inline const QString pausedKey = WorkScheduler::pausedKey;

    explicit Library(LibraryOptions options = {}, QObject *parent = nullptr);
    ~Library() override;

    const std::optional<QString> &folder() const { return folder_; }
    const std::optional<QString> &openError() const { return openError_; }
    const std::map<std::int64_t, ScanDocument> &documentsByID() const { return catalogue_.documentsByID(); }
    const std::vector<Organization> &organizations() const { return catalogue_.organizations(); }
    const DocumentIDSet &selection() const { return selection_; }
    int pendingOCR() const { return catalogue_.pendingOCR(); }
    int pendingExtraction() const { return catalogue_.pendingExtraction(); }
    // The file most recently handed to a reader, while any scan is being read.
    const std::optional<QString> &currentOCR() const { return work_.currentOCR(); }
    // Every scan being read, in the order their reading started.
    const std::vector<WorkScheduler::ReadingScan> &readingNow() const { return work_.readingNow(); }
    const std::optional<QString> &currentExtraction() const { return work_.currentExtraction(); }
    const std::optional<QString> &modelProblem() const { return model_.problem(); }
    const std::optional<QString> &modelWaiting() const { return work_.modelWaiting(); }
    // Why text recognition can't run at all (a reading language isn't installed); no scan is blamed.
    const std::optional<QString> &ocrProblem() const { return work_.ocrProblem(); }
    const std::optional<QString> &customInstructions() const { return catalogue_.customInstructions(); }
    bool paused() const { return work_.paused(); }
    const DocumentIDSet &requested() const { return work_.requested(); }
    const std::optional<QString> &lastFolderPath() const { return lastFolderPath_; }
    ActivityLog &activity() { return activity_; }
    // Whether the recognition loop runs.
    bool isReading() const { return work_.isReading(); }
    // Whether the extraction loop runs, or is about to once the model has said whether it can be used.
    bool isExtracting() const { return work_.isExtracting(); }

    // The remembered folder: the VellumarkFolder preference first, else the one last chosen; whether it
    // is still there or not.
    static std::optional<QString> rememberedFolder();
    // Reopens the remembered folder (a last chosen one only when it is still there).
    void restore();
    // Asks `choose` for a folder, starting in the open one or the last one chosen, and opens the choice.
    void chooseFolder(const std::function<std::optional<QString>(const QString &startIn)> &choose);
    // Closes whatever is open, then opens `folder`: the catalogue, the watcher, then in the background
    // the lists, the gibberish check, a sync and the work.
    void open(const QString &folder, bool saveBookmark);
    // Opens the folder's catalogue for one command-line command: the lists are read, but the folder is
    // neither watched nor synchronised, and no work starts, not even after an edit. False, with
    // openError set, when the catalogue can't be opened.
    QCoro::Task<bool> openWithoutWork(QString folder);
    void setSelection(DocumentIDSet selection);
    // The path of the scan's file, absent while no folder is open.
    std::optional<QString> url(const ScanDocument &document) const;
    // The paths of the present scans' files among `ids`.
    QStringList presentFiles(const DocumentIDSet &ids) const;
    // The path of the catalogue file.
    std::optional<QString> databasePath() const;
    QCoro::Task<QStringList> pages(ScanDocument document);

    // Lists the folder again and brings the catalogue up to date.
    void rescan();
    QCoro::Task<> sync();

    void setPaused(bool paused) { work_.setPaused(paused); }
    // Works as if not paused until the folder is closed, without changing the stored preference.
    void ignorePauseThisSession() { work_.ignorePauseThisSession(); }
    // The reading languages or limits were changed: a reading stopped by a missing language resumes.
    void readingSettingsChanged() { work_.readingSettingsChanged(); }
    // Has the scans done next, even while paused.
    void request(const DocumentIDSet &ids) { work_.request(ids); }
    // Has the scans still being worked on filed next, even while paused.
    void extractNow(const DocumentIDSet &ids) { work_.extractNow(ids); }

    // ---- Browsing and search ----
    const std::optional<SidebarItem> &sidebar() const { return browsing_.sidebar(); }
    std::optional<int> year() const { return browsing_.year(); }
    const std::optional<QString> &kind() const { return browsing_.kind(); }
    const QString &searchText() const { return browsing_.searchText(); }
    const std::optional<DocumentIDSet> &searchMatches() const { return browsing_.searchMatches(); }
    const SortOrder &sortOrder() const { return browsing_.sortOrder(); }
    void setSidebar(std::optional<SidebarItem> item) { browsing_.setSidebar(std::move(item)); }
    void setYearFilter(std::optional<int> year) { browsing_.setYearFilter(year); }
    void setKindFilter(std::optional<QString> kind) { browsing_.setKindFilter(std::move(kind)); }
    void setSearchText(QString text) { browsing_.setSearchText(std::move(text)); }
    void setSortOrder(SortOrder order) { browsing_.setSortOrder(std::move(order)); }
    std::vector<ScanDocument> liveDocuments() const { return browsing_.liveDocuments(); }
    std::vector<ScanDocument> visibleDocuments() const { return browsing_.visibleDocuments(); }
    // The same, without copying: the records stay valid until the next documentsChanged.
    std::vector<const ScanDocument *> visible() const { return browsing_.visible(); }
    std::vector<int> years() const { return browsing_.years(); }
    QStringList kinds() const { return browsing_.kinds(); }
    int count(const SidebarItem &item) const { return browsing_.count(item); }
    // Selects the scan, clearing the filters first when they hide it.
    void reveal(std::int64_t id);

    // ---- Editing ----
    QCoro::Task<> setOrganization(DocumentIDSet ids, std::optional<QString> name)
    {
        return editing_.setOrganization(std::move(ids), std::move(name));
    }
    QCoro::Task<> setKind(DocumentIDSet ids, std::optional<QString> kind)
    {
        return editing_.setKind(std::move(ids), std::move(kind));
    }
    QCoro::Task<> setDate(DocumentIDSet ids, std::optional<QDate> date)
    {
        return editing_.setDate(std::move(ids), date);
    }
    QCoro::Task<> reextract(DocumentIDSet ids) { return editing_.reextract(std::move(ids)); }
    QCoro::Task<> rerunOCR(DocumentIDSet ids) { return editing_.rerunOCR(std::move(ids)); }
    QCoro::Task<> renameOrganization(std::int64_t id, QString name)
    {
        return editing_.renameOrganization(id, std::move(name));
    }
    // The sidebar follows the organization merged away.
    QCoro::Task<> mergeOrganization(std::int64_t source, std::int64_t target);
    QCoro::Task<> deleteOrganization(std::int64_t id) { return editing_.deleteOrganization(id); }
    QCoro::Task<> reextractAllFromModel() { return editing_.reextractAllFromModel(); }
    QCoro::Task<> reextractIncomplete() { return editing_.reextractIncomplete(); }
    QCoro::Task<> setCustomInstructions(std::optional<QString> text, bool reextract)
    {
        return editing_.setCustomInstructions(std::move(text), reextract);
    }
    QCoro::Task<> removeMissing(DocumentIDSet ids) { return editing_.removeMissing(std::move(ids)); }

    // ---- The local model ----
    // The model that files the scans: by default the one the settings name, made when first needed; a
    // front end may give another (one run's server and model), tests a scripted one. A change, like a
    // change of the model settings (`modelSettingsChanged`), stops waiting for the old model and asks
    // the new one at once.
    void setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model);
    // The model settings were changed: the model they name now is used from here on.
    void modelSettingsChanged();
    using Trial = WorkScheduler::Trial;
    QCoro::Task<Trial> tryExtraction(std::int64_t id, QString instructions)
    {
        return work_.tryExtraction(id, std::move(instructions));
    }
    // The scan's last stored transcript; absent when there is none or it can't be read.
    QCoro::Task<std::optional<Extractor::Trace>> trace(std::int64_t id);
    // How many scans the model filed (0 when no folder is open or the catalogue can't say).
    QCoro::Task<int> modelExtractionCount() { return catalogue_.modelExtractionCount(); }

Q_SIGNALS:
    void folderChanged();
    void openErrorChanged();
    void documentsChanged();
    void organizationsChanged();
    void selectionChanged();
    void pendingCountsChanged();
    void currentOCRChanged();
    void currentExtractionChanged();
    void modelProblemChanged();
    // Another model is used from now on (the settings changed, or a front end chose one).
    void modelChanged();
    void modelWaitingChanged();
    void ocrProblemChanged();
    void customInstructionsChanged();
    void pausedChanged();
    void requestedChanged();
    void lastFolderPathChanged();
    void readingChanged();
    void extractingChanged();
    // The folder's files were compared with the catalogue (whether or not anything changed).
    void synced();
    // A page of a scan being read was done; `index` counts from 0.
    void pageRead(const QString &file, int index, int count);
    void sidebarChanged();
    void yearChanged();
    void kindChanged();
    void searchTextChanged();
    void searchMatchesChanged();
    void sortOrderChanged();
    // An edit failed; the desktop app shows the message as an alert.
    void editFailed(const QString &message);

private:
    void close();
    // Closes, then opens the folder's catalogue and sets `folder`; null, with openError set, on failure.
    std::shared_ptr<Catalogue::Store> openStore(const QString &folder);
    QCoro::Task<> openInBackground(std::shared_ptr<Catalogue::Store> store);
    void watchFolder();
    // New lists: the selection keeps only scans still there.
    void listsRead();

    std::optional<QString> folder_;
    std::optional<QString> openError_;
    DocumentIDSet selection_;
    std::optional<QString> lastFolderPath_;
    ActivityLog activity_;
    Catalogue catalogue_;
    ModelWatch model_;
    WorkScheduler work_;
    Browsing browsing_;
    Editing editing_;
    std::unique_ptr<FolderWatcher> watcher_;
    QTimer syncTimer_;
    // While the open folder is gone (an unmounted disk, a folder moved away), looks for its return.
    QTimer folderReturn_;
};
