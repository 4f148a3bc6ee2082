#pragma once

#include "library/SerialExecutor.h"
#include "store/ScanStore.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

using DocumentIDSet = std::set<std::int64_t>;

// The year of a YYYY-MM-DD date: its first four characters (fewer if shorter) as a decimal number.
std::optional<int> yearOf(const QString &date);
// Whether the scan belongs under Problems: its file is missing, or reading or filing it failed.
bool hasProblem(const ScanDocument &document);

// The open catalogue and the copy of it the views show: every scan by id, the organizations with their
// counts, the numbers of scans waiting for work, and the folder's instructions for the model. Lives on
// the main thread; the store's calls run on its own thread.
//
// A read that fails (another process holding the catalogue busy, say) keeps the lists as they were; the
// next change reads everything again.
class Catalogue : public QObject {
    Q_OBJECT
public:
    using Store = Serial<ScanStore>;

    explicit Catalogue(QObject *parent = nullptr);

    // The catalogue in use and its folder, null while none is open. Setting it (or null, to close)
    // empties the lists.
    const std::shared_ptr<Store> &store() const { return store_; }
    const QString &folder() const { return folder_; }
    void setStore(std::shared_ptr<Store> store, QString folder);

    const std::map<std::int64_t, ScanDocument> &documentsByID() const { return documentsByID_; }
    // Raised with every documentsChanged: what was worked out from the scans before is out of date.
    int generation() const { return generation_; }
    const std::vector<Organization> &organizations() const { return organizations_; }
    int pendingOCR() const { return pendingOCR_; }
    // How many scans are present, need review, are still being worked on and have a problem; of the
    // present scans, those of each year and type. Kept with the lists, so that the views ask without a
    // pass over every scan; unlike the pending counts above, they are current when documentsChanged is.
    int presentCount() const { return counts_.present; }
    int needsReviewCount() const { return counts_.review; }
    int processingCount() const { return counts_.ocr + counts_.extract; }
    int problemCount() const { return counts_.problems; }
    const std::map<int, int> &yearCounts() const { return counts_.years; }
    const std::map<QString, int> &kindCounts() const { return counts_.kinds; }
    int pendingExtraction() const { return pendingExtraction_; }
    const std::optional<QString> &customInstructions() const { return customInstructions_; }
    void setCustomInstructions(std::optional<QString> text);

    // Reads every scan and organization again. The counts (scans per organization, scans waiting) are
    // those of the scans read.
    QCoro::Task<> reload();
    // Reads the scans `ids` again (one no longer in the catalogue leaves the lists), and the
    // organizations when asked. After a failed read it reads everything instead.
    QCoro::Task<> refresh(DocumentIDs ids, bool organizations);
    // Reads the folder's instructions for the model.
    QCoro::Task<> readInstructions();
    // The folder itself is gone: every scan shows as missing until it is back.
    void showAllMissing();

    // The present scans among `ids`.
    std::vector<const ScanDocument *> present(const DocumentIDSet &ids) const;
    // The scans filed under the organization.
    DocumentIDs documentsOf(std::int64_t organization) const;
    QCoro::Task<QStringList> pages(std::int64_t id);
    QCoro::Task<std::optional<QString>> trace(std::int64_t id);
    QCoro::Task<int> modelExtractionCount();

Q_SIGNALS:
    void documentsChanged();
    void organizationsChanged();
    void pendingCountsChanged();
    void customInstructionsChanged();
    // New lists were published, after a reload or a refresh.
    void listsRead();

private:
    void publish(std::map<std::int64_t, ScanDocument> documents);
    void publish(std::vector<Organization> organizations);
    void announceDocuments();
    // The numbers the store would count, kept from the scans themselves: the present scans of each
    // organization, those waiting for their text and those waiting for the model, and the sidebar's and
    // filters' numbers. A refresh adjusts them by the scans it read, so that an edit costs the main
    // thread no pass over every scan.
    struct Counts {
        int ocr = 0;
        int extract = 0;
        int present = 0;
        int review = 0;
        int problems = 0;
        std::unordered_map<std::int64_t, int> filed;
        std::map<int, int> years;
        std::map<QString, int> kinds;

        static Counts of(const std::map<std::int64_t, ScanDocument> &documents);
        // Adds the scan's share (`sign` 1) or takes it away (-1).
        void add(const ScanDocument &document, int sign);
        // Sets each organization's count of scans.
        void label(std::vector<Organization> &organizations) const;
    };
    void publishCounts();

    std::shared_ptr<Store> store_;
    QString folder_;
    std::map<std::int64_t, ScanDocument> documentsByID_;
    int generation_ = 0;
    std::vector<Organization> organizations_;
    Counts counts_;
    int pendingOCR_ = 0;
    int pendingExtraction_ = 0;
    std::optional<QString> customInstructions_;
    // A read failed since the last full reload: the lists may be behind the catalogue.
    bool behind_ = false;
};
