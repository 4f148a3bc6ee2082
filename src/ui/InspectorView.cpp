#include "ui/InspectorView.h"

#include "library/Library.h"
#include "ui/DocumentInspector.h"
#include "ui/EmptyState.h"
#include "ui/MultipleInspector.h"

#include <QVBoxLayout>

InspectorView::InspectorView(Library &library, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , empty_(new EmptyState(this))
{
    setObjectName(QStringLiteral("inspector"));
    setAccessibleName(QStringLiteral("Inspector"));
    empty_->setObjectName(QStringLiteral("noSelection"));
    empty_->show(QStringLiteral("doc.text"), QStringLiteral("No Selection"),
        QStringLiteral("Select a scan to see it and its text."));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(empty_);
    connect(&library_, &Library::selectionChanged, this, &InspectorView::refresh);
    connect(&library_, &Library::documentsChanged, this, &InspectorView::refresh);
    connect(&library_, &Library::folderChanged, this, &InspectorView::refresh);
}

QWidget *InspectorView::current() const
{
    return view_ ? view_ : empty_;
}

void InspectorView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
}

void InspectorView::refresh()
{
    if (!isVisible())
        return;
    std::vector<ScanDocument> documents;
    for (std::int64_t id : library_.selection()) {
        const auto found = library_.documentsByID().find(id);
        if (found != library_.documentsByID().end())
            documents.push_back(found->second);
    }
    if (documents.empty()) {
        replace(nullptr);
    } else if (documents.size() == 1) {
        auto *shown = qobject_cast<DocumentInspector *>(view_);
        if (shown && shown->id() == documents.front().id) {
            shown->setDocument(documents.front());
        } else {
            auto *inspector = new DocumentInspector(library_, std::move(documents.front()), this);
            connect(inspector, &DocumentInspector::transcriptRequested, this, &InspectorView::transcriptRequested);
            connect(inspector, &DocumentInspector::instructionsRequested, this, &InspectorView::instructionsRequested);
            replace(inspector);
        }
    } else if (auto *shown = qobject_cast<MultipleInspector *>(view_)) {
        shown->setDocuments(std::move(documents));
    } else {
        replace(new MultipleInspector(library_, std::move(documents), this));
    }
}

void InspectorView::replace(QWidget *view)
{
    if (view_) {
        // Later, not now: the old view may be the one whose button led here.
        view_->hide();
        view_->deleteLater();
    }
    view_ = view;
    empty_->setVisible(!view_);
    if (view_) {
        layout()->addWidget(view_);
        view_->show();
    }
}
