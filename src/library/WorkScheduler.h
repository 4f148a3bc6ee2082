#pragma once

#include "extract/ActivityLog.h"
#include "extract/Extraction.h"
#include "library/Catalogue.h"
#include "library/ModelWatch.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

class Recognition;

// The background work on the open catalogue: the recognition loop that reads scans' text, the
// extraction loop that files them with the local model, which of them runs, and what they are doing.
// Scans asked for (`request`) go first, and are the only ones worked on while paused.
class WorkScheduler : public QObject {
    Q_OBJECT
public:
    // The preference that keeps work paused from one run to the next.
    static inline const QString pausedKey = QStringLiteral("Paused");

    struct Timing {
        // How long the extraction loop waits before asking a busy model again.
        std::chrono::milliseconds retry = std::chrono::seconds(15);
    };

    // A scan handed to a reader.
    struct ReadingScan {
        std::int64_t id = 0;
        QString file; // the last path component
        bool operator==(const ReadingScan &) const = default;
    };

    // `extraction` off reads text only. `readers` fixes how many scans are read at once; absent, the
    // ReadingWorkers setting of the moment decides.
    WorkScheduler(Catalogue &catalogue, ActivityLog &activity, ModelWatch &model, Timing timing, bool extraction,
        std::optional<int> readers = std::nullopt, QObject *parent = nullptr);
    ~WorkScheduler() override;

    bool paused() const { return paused_; }
    const DocumentIDSet &requested() const { return requested_; }
    // The file most recently handed to a reader, while any is being read.
    const std::optional<QString> &currentOCR() const { return currentOCR_; }
    // Every scan being read, in the order their reading started.
    const std::vector<ReadingScan> &readingNow() const { return readingNow_; }
    const std::optional<QString> &currentExtraction() const { return currentExtraction_; }
    // Why the model is being waited for (busy); absent otherwise.
    const std::optional<QString> &modelWaiting() const { return modelWaiting_; }
    // Why text recognition can't run at all (a reading language isn't installed); no scan is blamed.
    const std::optional<QString> &ocrProblem() const { return ocrProblem_; }
    bool isReading() const { return ocrTask_.has_value(); }
    // Whether the extraction loop runs, or is about to once the model has said whether it can be used.
    bool isExtracting() const { return extractTask_.has_value() || checkingModel_; }

    // Starts the loops that have work and aren't running; nothing while held.
    void startWork();
    // Stops both loops; a scan half done is simply done again later.
    void stopWork();
    // No work starts until released (a command-line command that only reads or edits the catalogue).
    void hold(bool held) { held_ = held; }
    bool held() const { return held_; }
    void setPaused(bool paused);
    // Works as if not paused until the folder is closed, without changing the stored preference.
    void ignorePauseThisSession();
    // The reading settings changed: a reading stopped by languages now installed resumes.
    void readingSettingsChanged();
    // Has the scans done next, even while paused.
    void request(const DocumentIDSet &ids);
    // Has those of the scans still being worked on filed next, even while paused.
    void extractNow(const DocumentIDSet &ids);
    // Forgets the requested scans (the folder closed, or work paused).
    void clearRequested();
    // Scans once read that look like gibberish, maybe upside down, are read again, once per catalogue.
    QCoro::Task<> rereadGarbledScans();

    // What the model makes of one scan with the given instructions; nothing is stored.
    struct Trial {
        std::optional<Extractor::Output> output;
        std::optional<Extractor::Trace> trace;
        std::optional<QString> message;
    };
    QCoro::Task<Trial> tryExtraction(std::int64_t id, QString instructions);

Q_SIGNALS:
    void pausedChanged();
    void requestedChanged();
    void currentOCRChanged();
    void currentExtractionChanged();
    void modelWaitingChanged();
    void ocrProblemChanged();
    void readingChanged();
    void extractingChanged();
    // A page of a scan being read was done; `index` counts from 0.
    void pageRead(const QString &file, int index, int count);

private:
    bool hasRequested(const std::function<bool(const ScanDocument &)> &predicate) const;
    void setRequested(DocumentIDSet ids);
    void setReadingNow(std::vector<ReadingScan> scans);
    void setCurrentExtraction(std::optional<QString> name);
    void setModelWaiting(std::optional<QString> reason);
    void setExtractTask(std::optional<std::stop_source> task);
    // Keeps only the requested scans still being worked on.
    void trimRequested();

    // The recognition loop (RecognitionLoop.cpp): up to `readers` scans are read at once, each by a
    // reader of its own; every one of them runs `readScans` until no scan is left for it.
    void startRecognition();
    int readers() const;
    QCoro::Task<> readScans(std::stop_token stop);
    // A reader with the languages of the moment: an idle one, or a new one.
    std::shared_ptr<Recognition> takeReader();
    void returnReader(std::shared_ptr<Recognition> reader);
    // Stops reading at once (every reader is killed); the scans being read stay pending.
    void stopReading();

    // The extraction loop (ExtractionLoop.cpp).
    void startExtraction();
    bool extractionWanted() const;
    QCoro::Task<> checkModel(std::shared_ptr<Catalogue::Store> store);
    QCoro::Task<> runExtraction(std::stop_token stop);
    // Shows the requests for one scan in the activity log as they start and end; callable from the
    // model's thread, harmless once the scheduler is gone.
    Extractor::AttemptObserver activityObserver(const QString &file);

    Catalogue &catalogue_;
    ActivityLog &activity_;
    ModelWatch &model_;
    Timing timing_;
    bool extraction_;
    bool held_ = false;
    bool paused_ = false;
    DocumentIDSet requested_;
    std::optional<int> readers_;
    std::optional<QString> currentOCR_;
    std::vector<ReadingScan> readingNow_;
    std::optional<QString> currentExtraction_;
    std::optional<QString> modelWaiting_;
    std::optional<QString> ocrProblem_;
    // Readers kept between scans, each with its own thread and reader process.
    std::vector<std::shared_ptr<Recognition>> idleReaders_;
    // A running loop is represented by the source that stops it. The recognition loop runs as
    // `readingLoops_` coroutines, each reading one scan at a time.
    std::optional<std::stop_source> ocrTask_;
    int readingLoops_ = 0;
    // The scans handed to a reader and not yet let go, also by loops since stopped that are still
    // winding down: none of them is handed to a second reader.
    DocumentIDSet claimed_;
    std::optional<std::stop_source> extractTask_;
    // An availability check under way.
    bool checkingModel_ = false;
};

// The ids, ascending, whose page samples look like gibberish.
DocumentIDs garbledDocuments(const QHash<std::int64_t, QStringList> &samples);
