#pragma once

#include "library/Catalogue.h"
#include "library/WorkScheduler.h"

#include <QCoro/QCoroTask>
#include <QDate>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// The corrections a person makes to the catalogue. Each command changes the catalogue on the store's
// thread, then reads again what it changed and starts the work. The returned task ends after that;
// callers may also drop it. A failure is announced by editFailed, and what the edit touched is read
// again all the same, so the lists show what the catalogue really holds.
class Editing : public QObject {
    Q_OBJECT
public:
    Editing(Catalogue &catalogue, WorkScheduler &work, QObject *parent = nullptr);

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

Q_SIGNALS:
    // An edit failed; the desktop app shows the message as an alert.
    void editFailed(const QString &message);

private:
    // What an edit may have changed, and so has to be read again.
    struct Touched {
        DocumentIDs documents;
        bool organizations = false;
        // Scans beyond any list given (a bulk command, a deletion others point at): everything.
        bool everything = false;
    };
    QCoro::Task<> edit(std::function<void(ScanStore &)> body, Touched touched);

    Catalogue &catalogue_;
    WorkScheduler &work_;
};
