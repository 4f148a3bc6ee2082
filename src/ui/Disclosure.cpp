#include "ui/Disclosure.h"

#include <QToolButton>
#include <QVBoxLayout>

Disclosure::Disclosure(const QString &title, QWidget *content, QWidget *parent)
    : QWidget(parent)
    , button_(new QToolButton(this))
    , content_(content)
{
    button_->setText(title);
    button_->setAccessibleName(title);
    button_->setCheckable(true);
    button_->setAutoRaise(true);
    button_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button_->setArrowType(Qt::RightArrow);
    content_->setParent(this);
    content_->setVisible(false);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(button_, 0, Qt::AlignLeft);
    column->addWidget(content_);
    connect(button_, &QToolButton::toggled, this, [this](bool expanded) {
        button_->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
        content_->setVisible(expanded);
        Q_EMIT expandedChanged(expanded);
    });
}

bool Disclosure::isExpanded() const
{
    return button_->isChecked();
}

void Disclosure::setExpanded(bool expanded)
{
    button_->setChecked(expanded);
}
