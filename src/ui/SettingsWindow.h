#pragma once

#include <QIcon>
#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

class QListWidget;
class QStackedWidget;

// The settings, one page at a time: the pages listed on the left, the chosen one on the right. Each time
// the window is shown again its pages read the stored settings again, so what was left unsaved is gone.
class SettingsWindow : public QWidget {
    Q_OBJECT
public:
    explicit SettingsWindow(QWidget *parent = nullptr);

    // `reload` runs whenever the window is shown after being closed.
    void addPage(const QString &title, const QIcon &icon, QWidget *page, std::function<void()> reload = {});
    int currentPage() const;
    QWidget *page(int index) const;
    // Shows the window on the page (or on the page last shown when absent) and brings it forward.
    void present(std::optional<int> page = std::nullopt);

protected:
    void showEvent(QShowEvent *event) override;

private:
    QListWidget *list_;
    QStackedWidget *pages_;
    std::vector<std::function<void()>> reloads_;
};
