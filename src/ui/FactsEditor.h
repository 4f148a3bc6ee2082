#pragma once

#include "library/Facts.h"

#include <QWidget>

#include <vector>

class Library;
class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QStringListModel;
class QToolButton;

// The organization, type and date of one or several scans, editable: every change goes to the Library's
// commands, and what is shown comes from the scans' records only. The field's typed text is the one
// thing of its own.
class FactsEditor : public QWidget {
    Q_OBJECT
public:
    FactsEditor(Library &library, std::vector<ScanDocument> documents, QWidget *parent = nullptr);
    ~FactsEditor() override;

    // The scans' records changed, or other scans are edited now. The field shows their common
    // organization again unless the person is typing in it; text typed for other scans is dropped.
    void setDocuments(std::vector<ScanDocument> documents);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void refresh();
    void refreshKinds();
    void refreshDate();
    void fillOrganizationMenu();
    void suggest(const QString &typed);
    void commitOrganization();
    void chooseOrganization(const std::optional<QString> &name);
    void pickKind(int index);
    void recolour();

    Library &library_;
    Facts facts_;
    // The field's text went to the Library and has not been typed in since: leaving the field after
    // Return commits nothing more.
    bool committed_ = false;
    // The organizations changed since the menu was filled, or it never was.
    bool menuStale_ = true;

    QLineEdit *organization_;
    QStringListModel *suggestions_;
    QToolButton *organizationMenuButton_;
    QMenu *organizationMenu_;
    QComboBox *kind_;
    QDateEdit *date_;
    QLabel *dateText_;
    QToolButton *clearDate_;
    QLabel *dateState_;
    QPushButton *dateButton_;
    std::vector<QLabel *> secondary_;
};
