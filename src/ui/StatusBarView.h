#pragma once

#include <QStatusBar>

class Library;
class QLabel;
class QToolButton;

// The line along the bottom of the main window: what the background work is doing, whether it is paused
// or waiting for the model, and the buttons to pause it, see every request, and find the catalogue.
class StatusBarView : public QStatusBar {
    Q_OBJECT
public:
    explicit StatusBarView(Library &library, QWidget *parent = nullptr);

    // What the bar says, the shown texts joined with " · ", for tests and screen readers.
    QString summary() const;

Q_SIGNALS:
    void activityRequested();

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();
    QToolButton *button(const QString &name, const QString &symbol, const QString &text, const QString &help);

    Library &library_;
    QLabel *workIcon_;
    QLabel *work_;
    QLabel *requested_;
    QLabel *modelIcon_;
    QLabel *model_;
    QToolButton *pause_;
};
