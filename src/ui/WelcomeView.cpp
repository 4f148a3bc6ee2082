#include "ui/WelcomeView.h"

#include "library/Library.h"
#include "ui/Icons.h"
#include "ui/Tones.h"

#include <QEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr int textWidth = 440;

QLabel *paragraph(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignHCenter);
    // A fixed width lets the label know its height, so that no line is cut off.
    label->setFixedWidth(textWidth);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

// A label that wraps in a layout that centres it gets only one line's height unless told its height.
void fitHeight(QLabel *label)
{
    label->setMinimumHeight(std::max(label->heightForWidth(label->width()), 0));
}

} // namespace

WelcomeView::WelcomeView(Library &library, QWidget *parent)
    : QWidget(parent)
    , library_(library)
{
    setObjectName(QStringLiteral("welcome"));

    auto *symbol = new QLabel(this);
    symbol->setPixmap(Icons::symbol(u"doc.text.magnifyingglass").pixmap(72, 72));
    symbol->setAlignment(Qt::AlignHCenter);
    symbol->setAccessibleName(QStringLiteral("Vellumark"));

    auto *title = new QLabel(QStringLiteral("Vellumark"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 2.2);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignHCenter);

    intro_ = paragraph(QStringLiteral("Choose the folder your scanner saves PDFs to. Vellumark reads the text of "
                                      "each scan and works out who it's from and when, so you can search and "
                                      "sort them."),
        this);

    openLast_ = new QPushButton(this);
    openLast_->setObjectName(QStringLiteral("openLastFolder"));
    openLast_->setDefault(true);
    chooseOther_ = new QPushButton(QStringLiteral("Choose a Different Folder…"), this);
    chooseOther_->setObjectName(QStringLiteral("chooseDifferentFolder"));
    choose_ = new QPushButton(QStringLiteral("Choose Scans Folder…"), this);
    choose_->setObjectName(QStringLiteral("chooseScansFolder"));
    choose_->setDefault(true);
    for (QPushButton *button : { openLast_, chooseOther_, choose_ }) {
        button->setMinimumHeight(button->sizeHint().height() + 6);
        connect(button, &QPushButton::clicked, this, &WelcomeView::chooseFolderRequested);
    }
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(openLast_);
    buttons->addWidget(chooseOther_);
    buttons->addWidget(choose_);
    buttons->addStretch();

    error_ = paragraph(QString(), this);
    error_->setObjectName(QStringLiteral("openError"));
    QFont callout = error_->font();
    callout.setPointSizeF(callout.pointSizeF() * 0.95);
    error_->setFont(callout);

    auto *footerIcon = new QLabel(this);
    footerIcon->setPixmap(Icons::symbol(u"lock.shield").pixmap(16, 16));
    auto *footer = new QLabel(QStringLiteral("Your PDFs are never modified. Everything Vellumark learns goes in ")
            + QStringLiteral("<b>Vellumark.sqlite</b>") + QStringLiteral(" in that folder."),
        this);
    footer->setObjectName(QStringLiteral("privacyNote"));
    footer->setWordWrap(true);
    footer->setFixedWidth(textWidth - 24);
    footer_ = footer;
    auto *footerRow = new QHBoxLayout;
    footerRow->addStretch();
    footerRow->addWidget(footerIcon, 0, Qt::AlignTop);
    footerRow->addWidget(footer);
    footerRow->addStretch();

    auto *column = new QVBoxLayout(this);
    column->addStretch(3);
    column->addWidget(symbol);
    column->addSpacing(8);
    column->addWidget(title);
    column->addSpacing(8);
    column->addWidget(intro_, 0, Qt::AlignHCenter);
    column->addSpacing(16);
    column->addLayout(buttons);
    column->addSpacing(12);
    column->addWidget(error_, 0, Qt::AlignHCenter);
    column->addStretch(2);
    column->addLayout(footerRow);
    column->addSpacing(24);

    connect(&library_, &Library::lastFolderPathChanged, this, &WelcomeView::refresh);
    connect(&library_, &Library::openErrorChanged, this, &WelcomeView::refresh);
    refresh();
}

void WelcomeView::refresh()
{
    const std::optional<QString> &last = library_.lastFolderPath();
    openLast_->setVisible(last.has_value());
    chooseOther_->setVisible(last.has_value());
    choose_->setVisible(!last);
    if (last) {
        openLast_->setText(QStringLiteral("Open “") + QFileInfo(*last).fileName() + QStringLiteral("”…"));
        openLast_->setToolTip(*last);
        openLast_->setAccessibleDescription(*last);
    }
    const std::optional<QString> &error = library_.openError();
    error_->setVisible(error.has_value());
    error_->setText(error.value_or(QString()));
    recolour();
    for (QLabel *label : { intro_, error_, footer_ })
        fitHeight(label);
}

void WelcomeView::recolour()
{
    QPalette red = error_->palette();
    red.setColor(QPalette::WindowText, Tones::red(palette()));
    error_->setPalette(red);
    QPalette secondary = footer_->palette();
    secondary.setColor(QPalette::WindowText, Tones::secondary(palette()));
    footer_->setPalette(secondary);
}

void WelcomeView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        recolour();
}
