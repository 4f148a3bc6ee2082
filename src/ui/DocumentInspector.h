#pragma once

#include "core/ScanDocument.h"
#include "library/Provenance.h"

#include <QStringList>
#include <QWidget>

#include <cstdint>
#include <optional>

class Disclosure;
class EmptyState;
class FactsEditor;
class Library;
class QGridLayout;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class ToneLabel;

// One scan in the inspector: the scan itself, its facts to correct, where they came from, the file's
// details and the text page by page. Made anew for every scan shown, so that what it loaded and which
// sections are open start fresh; the records it shows are handed to it as they change.
class DocumentInspector : public QWidget {
    Q_OBJECT
public:
    DocumentInspector(Library &library, ScanDocument document, QWidget *parent = nullptr);

    std::int64_t id() const { return document_.id; }
    const ScanDocument &document() const { return document_; }
    // The scan's record changed: what depends on it is shown again; its text is loaded again once
    // reading it has finished.
    void setDocument(const ScanDocument &document);

Q_SIGNALS:
    // "Show Transcript…" and "Edit Prompt…".
    void transcriptRequested(std::int64_t id);
    void instructionsRequested();

private:
    QWidget *makeProvenance();
    QWidget *makeDetails();
    void refreshTop();
    void refreshProvenance();
    void refreshDetails();
    void refreshText();
    void loadPages();

    Library &library_;
    ScanDocument document_;
    // The page texts, once loaded.
    std::optional<QStringList> pages_;
    int loads_ = 0;
    // Whether the model's details were opened for this scan; it starts open for one the model gave up on.
    bool showLog_ = false;

    FactsEditor *facts_ = nullptr;
    QWidget *topHolder_ = nullptr;
    QWidget *top_ = nullptr;
    QString topKey_;
    Provenance::Action action_ = Provenance::Action::none;
    ToneLabel *status_ = nullptr;
    QPushButton *statusAction_ = nullptr;
    QWidget *similarRow_ = nullptr;
    ToneLabel *similar_ = nullptr;
    Disclosure *modelDetails_ = nullptr;
    ToneLabel *log_ = nullptr;
    QPushButton *openFile_ = nullptr;
    QPushButton *showFile_ = nullptr;
    ToneLabel *file_ = nullptr;
    ToneLabel *size_ = nullptr;
    ToneLabel *modified_ = nullptr;
    ToneLabel *errorLabel_ = nullptr;
    ToneLabel *error_ = nullptr;
    QVBoxLayout *text_ = nullptr;
};
