#pragma once

#include "ui/Prompts.h"

#include <QTreeView>

#include <cstdint>

class Library;
class QMenu;
class SidebarModel;

// The fixed views and the organizations, with their counts. Scans dropped on an organization are filed
// there; an organization dropped on another is merged into it once confirmed. Organizations are renamed,
// merged and deleted from their context menu.
class SidebarView : public QTreeView {
    Q_OBJECT
public:
    SidebarView(Library &library, Prompts &prompts, QWidget *parent = nullptr);

    SidebarModel *sidebarModel() const { return model_; }
    // The context menu of an organization's row.
    QMenu *menuFor(std::int64_t organization, QWidget *parent);
    void rename(std::int64_t organization);
    void confirmMerge(std::int64_t source, std::int64_t target);
    void confirmDelete(std::int64_t organization);

protected:
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;

private:
    void showSidebarItem();
    void showMenu(const QPoint &position);

    Library &library_;
    Prompts &prompts_;
    SidebarModel *model_;
    bool applying_ = false;
};
