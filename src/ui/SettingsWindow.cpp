#include "ui/SettingsWindow.h"

#include "ui/Icons.h"

#include <QAction>
#include <QHBoxLayout>
#include <QListWidget>
#include <QShowEvent>
#include <QStackedWidget>

SettingsWindow::SettingsWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("settings"));
    setWindowTitle(QStringLiteral("Vellumark Preferences"));
    setWindowIcon(Icons::application());
    resize(820, 620);
    auto *close = new QAction(this);
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    addAction(close);

    list_ = new QListWidget(this);
    list_->setObjectName(QStringLiteral("settingsPages"));
    list_->setAccessibleName(QStringLiteral("Settings pages"));
    list_->setIconSize(QSize(22, 22));
    list_->setSpacing(2);
    list_->setFixedWidth(190);
    list_->setFrameShape(QFrame::NoFrame);
    list_->setBackgroundRole(QPalette::Window);
    pages_ = new QStackedWidget(this);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(list_);
    auto *divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addWidget(divider);
    layout->addWidget(pages_, 1);
    connect(list_, &QListWidget::currentRowChanged, pages_, &QStackedWidget::setCurrentIndex);
}

void SettingsWindow::addPage(const QString &title, const QIcon &icon, QWidget *page, std::function<void()> reload)
{
    new QListWidgetItem(icon, title, list_);
    pages_->addWidget(page);
    reloads_.push_back(std::move(reload));
    if (list_->currentRow() < 0)
        list_->setCurrentRow(0);
}

int SettingsWindow::currentPage() const
{
    return list_->currentRow();
}

QWidget *SettingsWindow::page(int index) const
{
    return pages_->widget(index);
}

void SettingsWindow::present(std::optional<int> page)
{
    if (page)
        list_->setCurrentRow(*page);
    show();
    raise();
    activateWindow();
}

void SettingsWindow::showEvent(QShowEvent *event)
{
    // Only a window opened anew starts over; one merely uncovered or restored keeps what is typed.
    if (!event->spontaneous()) {
        for (const auto &reload : reloads_) {
            if (reload)
                reload();
        }
    }
    QWidget::showEvent(event);
}
