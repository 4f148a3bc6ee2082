#pragma once

#include "extract/ActivityLog.h"
#include "extract/Extraction.h"
#include "library/ModelGate.h"
#include "library/SerialExecutor.h"
#include "library/SidebarItem.h"
#include "library/SortComparator.h"
#include "store/ScanStore.h"

#include <QCoro/QCoroTask>
#include <QDate>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <vector>

class FolderWatcher;
class Recognition;
class SerialExecutor;

using DocumentIDSet = std::set<std::int64_t>;

// The one controller both front ends share: the open scans folder, its catalogue, the in-memory copy of
// the catalogue that the views show, and the background work on it. Lives on the main thread; every
// field is read there and announces its changes with a signal, emitted only when the value changes.
class Library : public QObject {
    Q_OBJECT
public:
    // Preference keys (QSettings, organization and application "Vellumark").
    static inline const QString folderBookmarkKey = QStringLiteral("FolderBookmark");
    static inline const QString folderPathKey = QStringLiteral("FolderPath");
    static inline const QString folderOverrideKey = QStringLiteral("VellumarkFolder");
    static inline const QString pausedKey = QStringLiteral("Paused");
    // Catalogue setting marking a catalogue whose stored texts were checked for gibberish once.
    static inline const QString checkedGarbledKey = QStringLiteral("checked_garbled_ocr");

    explicit Library(QObject *parent = nullptr);
    ~Library() override;

    const std::optional<QString> &folder() const { return folder_; }
    const std::optional<QString> &openError() const { return openError_; }
    const std::map<std::int64_t, ScanDocument> &documentsByID() const { return documentsByID_; }
    const std::vector<Organization> &organizations() const { return organizations_; }
    const DocumentIDSet &selection() const { return selection_; }
    int pendingOCR() const { return pendingOCR_; }
    int pendingExtraction() const { return pendingExtraction_; }
    const std::optional<QString> &currentOCR() const { return currentOCR_; }
    const std::optional<QString> &currentExtraction() const { return currentExtraction_; }
    const std::optional<QString> &modelProblem() const { return modelProblem_; }
    const std::optional<QString> &modelWaiting() const { return modelWaiting_; }
    // Why text recognition can't run at all (a reading language isn't installed); no scan is blamed.
    const std::optional<QString> &ocrProblem() const { return ocrProblem_; }
    const std::optional<QString> &customInstructions() const { return customInstructions_; }
    bool paused() const { return paused_; }
    const DocumentIDSet &requested() const { return requested_; }
    const std::optional<QString> &lastFolderPath() const { return lastFolderPath_; }
    ActivityLog &activity() { return *activity_; }
    // Whether the recognition loop runs.
    bool isReading() const { return ocrTask_.has_value(); }
    // Whether the extraction loop runs, or is about to once the model has said whether it can be used.
    bool isExtracting() const { return extractTask_.has_value() || checkingModel_; }

    // Reopens the remembered folder: the VellumarkFolder preference first, else the one last chosen.
    void restore();
    // Asks `choose` for a folder, starting in the open one or the last one chosen, and opens the choice.
    void chooseFolder(const std::function<std::optional<QString>(const QString &startIn)> &choose);
    // Closes whatever is open, then opens `folder`: the catalogue, the watcher, then in the background
    // the lists, the gibberish check, a sync and the work.
    void open(const QString &folder, bool saveBookmark);
    void setSelection(DocumentIDSet selection);
    // Shows Vellumark.sqlite in the file manager.
    void revealDatabase();
    std::optional<QString> url(const ScanDocument &document) const;
    QCoro::Task<QStringList> pages(ScanDocument document);

    // Lists the folder again and brings the catalogue up to date.
    void rescan();
    QCoro::Task<> sync();

    void setPaused(bool paused);
    // Works as if not paused until the folder is closed, without changing the stored preference.
    void ignorePauseThisSession();
    // Has the scans done next, even while paused.
    void request(const DocumentIDSet &ids);

    // ---- Browsing and search (LibraryBrowse.cpp) ----
    // The four filters and the sort the table shows; a change only makes the views compute again,
    // except that a new search text starts a search (after a pause in typing).
    const std::optional<SidebarItem> &sidebar() const { return sidebar_; }
    std::optional<int> year() const { return year_; }
    const std::optional<QString> &kind() const { return kind_; }
    const QString &searchText() const { return searchText_; }
    // The scans matching the trimmed search text; absent when there is none.
    const std::optional<DocumentIDSet> &searchMatches() const { return searchMatches_; }
    const SortOrder &sortOrder() const { return sortOrder_; }
    void setSidebar(std::optional<SidebarItem> item);
    void setYearFilter(std::optional<int> year);
    void setKindFilter(std::optional<QString> kind);
    void setSearchText(QString text);
    void setSortOrder(SortOrder order);
    // Every scan whose file is present, in no particular order.
    std::vector<ScanDocument> liveDocuments() const;
    // What the table shows: the scans the sidebar, year, type and search let through, by path and then
    // stably by the sort order.
    std::vector<ScanDocument> visibleDocuments() const;
    // The years of the present scans' dates, newest first.
    std::vector<int> years() const;
    // The document types present scans have, in the fixed order of the type list.
    QStringList kinds() const;
    // The number of scans a sidebar entry stands for.
    int count(const SidebarItem &item) const;
    // The pause in typing after which a search starts (0.15 s); tests shorten it.
    void setSearchDelay(std::chrono::milliseconds delay) { searchDelay_ = delay; }

    // ---- Editing (LibraryEdit.cpp) ----
    // Each command changes the catalogue on the store's thread, then reads the lists again and starts
    // the work. The returned task ends after that; callers may also drop it. A failure is announced by
    // editFailed, and the lists are read again all the same.
    QCoro::Task<> setOrganization(DocumentIDSet ids, std::optional<QString> name);
    QCoro::Task<> setKind(DocumentIDSet ids, std::optional<QString> kind);
    QCoro::Task<> setDate(DocumentIDSet ids, std::optional<QDate> date);
    // Asks again (reextract) or reads again (rerunOCR); the scans are requested, so they go first.
    QCoro::Task<> reextract(DocumentIDSet ids);
    QCoro::Task<> rerunOCR(DocumentIDSet ids);
    // A name that cleans to nothing is ignored; the name of another organization merges into it.
    QCoro::Task<> renameOrganization(std::int64_t id, QString name);
    QCoro::Task<> mergeOrganization(std::int64_t source, std::int64_t target);
    QCoro::Task<> deleteOrganization(std::int64_t id);
    // Asks the model again about every scan it filed or failed on; scans filed by hand stay.
    QCoro::Task<> reextractAllFromModel();
    // The same for those of them without an organization or a date.
    QCoro::Task<> reextractIncomplete();
    // Stores the folder's instructions for the model: absent when blank or the built-in default.
    QCoro::Task<> setCustomInstructions(std::optional<QString> text, bool reextract);
    // Deletes those of the scans whose file is missing.
    QCoro::Task<> removeMissing(DocumentIDSet ids);
    // Opens the present scans' files in the default PDF viewer.
    void openInPreview(const DocumentIDSet &ids);
    // Shows the present scans' files selected in the file manager.
    void revealInFinder(const DocumentIDSet &ids);
    // Selects the scan, clearing the filters first when they hide it.
    void reveal(std::int64_t id);
    // Opens the folder's catalogue for one command-line command: the lists are read, but the folder is
    // neither watched nor synchronised, and no work starts, not even after an edit. False, with
    // openError set, when the catalogue can't be opened.
    QCoro::Task<bool> openWithoutWork(QString folder);

    // The model that files the scans. By default the one the settings name, made when first needed;
    // a front end may give another (one run's server and model), tests a scripted one.
    void setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model);
    // How long the extraction loop waits before asking a busy model again, and how often an
    // unavailable model is asked whether it is back.
    struct ModelTiming {
        std::chrono::milliseconds retry = std::chrono::seconds(15);
        std::chrono::milliseconds availabilityPoll = std::chrono::seconds(20);
    };
    void setModelTiming(ModelTiming timing) { modelTiming_ = timing; }
    // Whether scans are filed at all; off, only their text is read.
    void setExtractionEnabled(bool enabled) { extractionEnabled_ = enabled; }
    // Has the scans still being worked on filed next, even while paused.
    void extractNow(const DocumentIDSet &ids);
    // What the model makes of one scan with the given instructions; nothing is stored.
    struct Trial {
        std::optional<Extractor::Output> output;
        std::optional<Extractor::Trace> trace;
        std::optional<QString> message;
    };
    QCoro::Task<Trial> tryExtraction(std::int64_t id, QString instructions);
    // The scan's last stored transcript; absent when there is none or it can't be read.
    QCoro::Task<std::optional<Extractor::Trace>> trace(std::int64_t id);
    // How many scans the model filed (0 when no folder is open or the catalogue can't say).
    QCoro::Task<int> modelExtractionCount();
    // Shows the requests for one scan in the activity log as they start and end; callable from the
    // model's thread, harmless once the library is gone.
    Extractor::AttemptObserver activityObserver(const QString &file);

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
    // A page of the scan being read was done; `index` counts from 0.
    void pageRead(int index, int count);
    // Browsing and search.
    void sidebarChanged();
    void yearChanged();
    void kindChanged();
    void searchTextChanged();
    void searchMatchesChanged();
    void sortOrderChanged();
    // An edit failed; the desktop app shows the message as an alert.
    void editFailed(const QString &message);

private:
    using Store = Serial<ScanStore>;

    void close();
    // Closes, then opens the folder's catalogue and sets `folder`; null, with openError set, on failure.
    std::shared_ptr<Store> openStore(const QString &folder);
    QCoro::Task<> openInBackground(std::shared_ptr<Store> store);
    QCoro::Task<> reload();
    QCoro::Task<> refresh(DocumentIDs ids, bool organizations);
    QCoro::Task<> updateCounts();
    void scheduleSync();
    void watchFolder();

    // The scheduler.
    void startWork();
    void stopWork();
    void startExtraction();
    bool extractionWanted() const;
    void applyAvailability(const Extractor::Availability &availability);
    void setExtractTask(std::optional<std::stop_source> task);
    std::shared_ptr<Extractor::LanguageModel> languageModel();
    bool hasRequested(const std::function<bool(const ScanDocument &)> &predicate) const;

    // The recognition loop.
    QCoro::Task<> runOCR(std::stop_token stop);
    QCoro::Task<std::optional<ScanStore::OCRJob>> nextOCRJob(std::shared_ptr<Store> store);
    QCoro::Task<> rereadGarbledScans(std::shared_ptr<Store> store);

    // ---- Browsing, search and editing ----
    // Whether the filters let the scan through to the table.
    bool isVisible(const ScanDocument &document) const;
    void runSearch(bool debounce);
    // Runs the query for the current text now; its answer is published unless a newer search started.
    void searchNow();
    QCoro::Task<> searchInBackground(std::shared_ptr<Store> store, QString text, int generation);
    // After a reload: the sidebar leaves an organization that is gone, and the search runs again.
    void reloadedBrowsing();
    void resetBrowsing();
    QCoro::Task<> edit(std::function<void(ScanStore &)> body);
    std::vector<QString> presentFiles(const DocumentIDSet &ids) const;

    // The extraction loop and the watch on the model's availability.
    QCoro::Task<> runExtraction(std::stop_token stop);
    QCoro::Task<std::optional<ScanStore::ExtractionJob>> nextExtractionJob(std::shared_ptr<Store> store);
    QCoro::Task<> checkModel(std::shared_ptr<Store> store);
    void startModelWatch();
    QCoro::Task<> watchModelAvailability(std::stop_token stop);
    void trimRequested();

    template <typename T> void assign(T &field, T value, void (Library::*changed)())
    {
        if (field == value)
            return;
        field = std::move(value);
        Q_EMIT(this->*changed)();
    }
    void setCurrentOCR(std::optional<QString> name)
    {
        assign(currentOCR_, std::move(name), &Library::currentOCRChanged);
    }
    void setRequested(DocumentIDSet ids) { assign(requested_, std::move(ids), &Library::requestedChanged); }

    std::optional<QString> folder_;
    std::optional<QString> openError_;
    std::map<std::int64_t, ScanDocument> documentsByID_;
    std::vector<Organization> organizations_;
    DocumentIDSet selection_;
    int pendingOCR_ = 0;
    int pendingExtraction_ = 0;
    std::optional<QString> currentOCR_;
    std::optional<QString> currentExtraction_;
    std::optional<QString> modelProblem_;
    std::optional<QString> modelWaiting_;
    std::optional<QString> ocrProblem_;
    std::optional<QString> customInstructions_;
    bool paused_ = false;
    DocumentIDSet requested_;
    std::optional<QString> lastFolderPath_;
    std::unique_ptr<ActivityLog> activity_;

    std::shared_ptr<Store> store_;
    std::unique_ptr<FolderWatcher> watcher_;
    std::shared_ptr<Recognition> recognition_;
    // A running loop is represented by the source that stops it.
    std::optional<std::stop_source> ocrTask_;
    std::optional<std::stop_source> extractTask_;
    std::optional<std::stop_source> modelWatchTask_;
    // An availability check under way, and whether this folder's model was asked at all.
    bool checkingModel_ = false;
    bool modelChecked_ = false;
    std::shared_ptr<Extractor::LanguageModel> model_;
    // The model's calls block; they run here, one at a time.
    std::unique_ptr<SerialExecutor> modelThread_;
    ModelGate modelGate_;
    ModelTiming modelTiming_;
    bool extractionEnabled_ = true;
    int workGeneration_ = 0;
    QTimer syncTimer_;
    // While the open folder is gone (an unmounted disk, a folder moved away), looks for its return.
    QTimer folderReturn_;

    std::optional<SidebarItem> sidebar_ = SidebarItem::all();
    std::optional<int> year_;
    std::optional<QString> kind_;
    QString searchText_;
    std::optional<DocumentIDSet> searchMatches_;
    SortOrder sortOrder_ = defaultSortOrder();
    std::chrono::milliseconds searchDelay_ { 150 };
    QTimer searchTimer_;
    // Raised by every new search and by closing; a search of an older generation publishes nothing.
    int searchGeneration_ = 0;
    // Set by openWithoutWork until the folder is closed.
    bool workHeld_ = false;
};

// The ids, ascending, whose page samples look like gibberish.
DocumentIDs garbledDocuments(const QHash<std::int64_t, QStringList> &samples);
