#include "ui/StatusBarView.h"

#include "library/Library.h"
#include "library/StatusLine.h"
#include "ui/DesktopIntegration.h"
#include "ui/Icons.h"
#include "ui/Tones.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace {

QLabel *iconLabel(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setFixedSize(16, 16);
    return label;
}

} // namespace

StatusBarView::StatusBarView(Library &library, QWidget *parent)
    : QStatusBar(parent)
    , library_(library)
{
    setObjectName(QStringLiteral("statusBar"));
    setAccessibleName(QStringLiteral("Status"));
    setSizeGripEnabled(false);

    auto *line = new QWidget(this);
    auto *row = new QHBoxLayout(line);
    row->setContentsMargins(6, 0, 6, 0);
    row->setSpacing(6);
    workIcon_ = iconLabel(line);
    work_ = new QLabel(line);
    work_->setObjectName(QStringLiteral("workLine"));
    requested_ = new QLabel(line);
    requested_->setObjectName(QStringLiteral("requestedLine"));
    modelIcon_ = iconLabel(line);
    model_ = new QLabel(line);
    model_->setObjectName(QStringLiteral("modelLine"));
    for (QLabel *label : { work_, requested_, model_ })
        label->setTextFormat(Qt::PlainText);
    row->addWidget(workIcon_);
    row->addWidget(work_, 1);
    row->addWidget(requested_);
    row->addSpacing(12);
    row->addWidget(modelIcon_);
    row->addWidget(model_);
    addWidget(line, 1);

    pause_ = button(QStringLiteral("pauseButton"), QStringLiteral("pause.fill"), QStringLiteral("Pause"), QString());
    connect(pause_, &QToolButton::clicked, this, [this] { library_.setPaused(!library_.paused()); });
    QToolButton *activity
        = button(QStringLiteral("activityButton"), QStringLiteral("list.bullet.rectangle"), QStringLiteral("Activity"),
            QStringLiteral("Every local model request and text read this session (Ctrl+Shift+L)"));
    connect(activity, &QToolButton::clicked, this, &StatusBarView::activityRequested);
    QToolButton *database = button(QStringLiteral("databaseButton"), QStringLiteral("cylinder.split.1x2"),
        QStringLiteral("Vellumark.sqlite"), QStringLiteral("Show the database in the file manager"));
    connect(database, &QToolButton::clicked, this, [this] { DesktopIntegration::revealDatabase(library_); });

    for (auto signal : { &Library::pendingCountsChanged, &Library::currentOCRChanged,
             &Library::currentExtractionChanged, &Library::pausedChanged, &Library::requestedChanged,
             &Library::modelProblemChanged, &Library::modelWaitingChanged, &Library::readingChanged,
             &Library::extractingChanged, &Library::folderChanged })
        connect(&library_, signal, this, &StatusBarView::refresh);
    refresh();
}

QToolButton *StatusBarView::button(const QString &name, const QString &symbol, const QString &text, const QString &help)
{
    auto *button = new QToolButton(this);
    button->setObjectName(name);
    button->setIcon(Icons::symbol(symbol));
    button->setText(text);
    button->setAccessibleName(text);
    button->setToolTip(help);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setAutoRaise(true);
    button->setIconSize(QSize(14, 14));
    addPermanentWidget(button);
    return button;
}

void StatusBarView::refresh()
{
    const StatusLine line = statusLine(library_);
    if (line.paused) {
        workIcon_->setPixmap(Icons::symbol(line.pausedIcon).pixmap(16, 16));
        work_->setText(*line.paused);
    } else {
        workIcon_->setPixmap(Icons::symbol(line.workIcon).pixmap(16, 16));
        work_->setText(line.work);
    }
    work_->setToolTip(work_->text());
    requested_->setVisible(line.requested.has_value());
    requested_->setText(line.requested.value_or(QString()));
    requested_->setToolTip(line.requestedHelp);
    modelIcon_->setVisible(line.model.has_value());
    model_->setVisible(line.model.has_value());
    model_->setText(line.model.value_or(QString()));
    model_->setToolTip(line.modelHelp);
    if (line.model)
        modelIcon_->setPixmap(Icons::symbol(line.modelIcon).pixmap(16, 16));
    QPalette orange = model_->palette();
    orange.setColor(QPalette::WindowText,
        line.modelIcon == u"hourglass" ? palette().color(QPalette::WindowText) : Tones::orange(palette()));
    model_->setPalette(orange);

    const bool paused = library_.paused();
    pause_->setText(paused ? QStringLiteral("Resume") : QStringLiteral("Pause"));
    pause_->setAccessibleName(pause_->text());
    pause_->setIcon(Icons::symbol(paused ? u"play.fill" : u"pause.fill"));
    pause_->setToolTip(paused
            ? QStringLiteral("Resume reading text and finding organizations and dates")
            : QStringLiteral("Pause reading text and finding organizations and dates. One scan is read "
                             "and one is sent to the model at a time; whatever is in progress starts "
                             "over on resume."));
    setAccessibleDescription(summary());
}

QString StatusBarView::summary() const
{
    QStringList parts;
    for (const QLabel *label : { work_, requested_, model_ }) {
        if (!label->isHidden() && !label->text().isEmpty())
            parts << label->text();
    }
    return parts.join(QStringLiteral(" · "));
}

void StatusBarView::changeEvent(QEvent *event)
{
    QStatusBar::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        refresh();
}
