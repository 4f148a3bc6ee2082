#pragma once

#include "core/ScanDocument.h"
#include "library/Catalogue.h"

#include <QWidget>

#include <vector>

class FactsEditor;
class Library;
class ToneLabel;

// Several scans in the inspector: how many, their facts to set for all of them at once, and the
// commands that act on all of them.
class MultipleInspector : public QWidget {
    Q_OBJECT
public:
    MultipleInspector(Library &library, std::vector<ScanDocument> documents, QWidget *parent = nullptr);

    const DocumentIDSet &ids() const { return ids_; }
    void setDocuments(std::vector<ScanDocument> documents);

private:
    // The scans' ids and how many they are.
    void showCount(const std::vector<ScanDocument> &documents);

    Library &library_;
    DocumentIDSet ids_;
    ToneLabel *title_;
    FactsEditor *facts_ = nullptr;
};
