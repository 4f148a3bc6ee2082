#pragma once

#include "extract/ActivityLog.h"
#include "library/SerialExecutor.h"
#include "store/ScanStore.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

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
    // The folder's files were compared with the catalogue (whether or not anything changed).
    void synced();
    // A page of the scan being read was done; `index` counts from 0.
    void pageRead(int index, int count);

private:
    using Store = Serial<ScanStore>;

    void close();
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
    bool hasRequested(const std::function<bool(const ScanDocument &)> &predicate) const;

    // The recognition loop.
    QCoro::Task<> runOCR(std::stop_token stop);
    QCoro::Task<std::optional<ScanStore::OCRJob>> nextOCRJob(std::shared_ptr<Store> store);
    QCoro::Task<> rereadGarbledScans(std::shared_ptr<Store> store);

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
    int workGeneration_ = 0;
    QTimer syncTimer_;
    // While the open folder is gone (an unmounted disk, a folder moved away), looks for its return.
    QTimer folderReturn_;
};

// The ids, ascending, whose page samples look like gibberish.
DocumentIDs garbledDocuments(const QHash<std::int64_t, QStringList> &samples);
