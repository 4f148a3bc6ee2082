#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

// Asks for an organization's new name, prefilled with the current one.
class RenameDialog : public QDialog {
    Q_OBJECT
public:
    explicit RenameDialog(const QString &current, QWidget *parent = nullptr);

    // The name as typed, trimmed.
    QString name() const;
    QLineEdit *field() const { return field_; }

private:
    QLineEdit *field_;
    QPushButton *rename_;
};
