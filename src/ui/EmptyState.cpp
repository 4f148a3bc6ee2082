#include "ui/EmptyState.h"

#include "ui/Icons.h"
#include "ui/Tones.h"

#include <QEvent>
#include <QLabel>
#include <QVBoxLayout>

EmptyState::EmptyState(QWidget *parent)
    : QWidget(parent)
    , icon_(new QLabel(this))
    , title_(new QLabel(this))
    , description_(new QLabel(this))
{
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    QFont titleFont = title_->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.35);
    titleFont.setBold(true);
    title_->setFont(titleFont);
    description_->setWordWrap(true);
    for (QLabel *label : { icon_, title_, description_ })
        label->setAlignment(Qt::AlignHCenter);
    auto *column = new QVBoxLayout(this);
    column->addStretch();
    column->addWidget(icon_);
    column->addWidget(title_);
    column->addWidget(description_);
    column->addStretch();
    recolour();
}

void EmptyState::show(const QString &symbol, const QString &title, const QString &description)
{
    symbol_ = symbol;
    icon_->setPixmap(Icons::symbol(symbol).pixmap(48, 48));
    title_->setText(title);
    description_->setText(description);
    setAccessibleName(title);
    setAccessibleDescription(description);
}

QString EmptyState::title() const
{
    return title_->text();
}

QString EmptyState::description() const
{
    return description_->text();
}

void EmptyState::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        recolour();
}

void EmptyState::recolour()
{
    for (QLabel *label : { title_, description_ }) {
        QPalette secondary = label->palette();
        secondary.setColor(QPalette::WindowText, Tones::secondary(palette()));
        label->setPalette(secondary);
    }
}
