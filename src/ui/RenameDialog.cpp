#include "ui/RenameDialog.h"

#include "ui/Tones.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

RenameDialog::RenameDialog(const QString &current, QWidget *parent)
    : QDialog(parent)
    , field_(new QLineEdit(current, this))
{
    setObjectName(QStringLiteral("renameDialog"));
    setWindowTitle(QStringLiteral("Rename Organization"));
    setWindowModality(Qt::WindowModal);
    field_->setObjectName(QStringLiteral("name"));
    field_->setAccessibleName(QStringLiteral("Name"));
    field_->setMinimumWidth(280);
    field_->selectAll();

    auto *title = new QLabel(QStringLiteral("Rename Organization"), this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Name"), field_);
    auto *note = new QLabel(QStringLiteral("Renaming to the name of another organization merges the two."), this);
    note->setObjectName(QStringLiteral("note"));
    note->setWordWrap(true);
    QPalette secondary = note->palette();
    secondary.setColor(QPalette::WindowText, Tones::secondary(palette()));
    note->setPalette(secondary);

    auto *buttons = new QDialogButtonBox(this);
    rename_ = buttons->addButton(QStringLiteral("Rename"), QDialogButtonBox::AcceptRole);
    rename_->setObjectName(QStringLiteral("renameButton"));
    rename_->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    // An empty name is no name: nothing to rename to.
    connect(field_, &QLineEdit::textChanged, this, [this] { rename_->setEnabled(!name().isEmpty()); });
    rename_->setEnabled(!name().isEmpty());

    auto *column = new QVBoxLayout(this);
    column->addWidget(title);
    column->addLayout(form);
    column->addWidget(note);
    column->addWidget(buttons);
}

QString RenameDialog::name() const
{
    return field_->text().trimmed();
}
