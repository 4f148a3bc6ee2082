#pragma once

#include <QWidget>

#include <cstdint>

class EmptyState;
class Library;

// The right-hand pane: "No Selection", one scan, or several, following the Library's selection and the
// records of the selected scans. Brought up to date only while shown.
class InspectorView : public QWidget {
    Q_OBJECT
public:
    explicit InspectorView(Library &library, QWidget *parent = nullptr);

    // The view shown now: the empty state, a DocumentInspector or a MultipleInspector.
    QWidget *current() const;

Q_SIGNALS:
    void transcriptRequested(std::int64_t id);
    void instructionsRequested();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();
    void replace(QWidget *view);

    Library &library_;
    EmptyState *empty_;
    QWidget *view_ = nullptr;
};
