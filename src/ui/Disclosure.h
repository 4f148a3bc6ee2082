#pragma once

#include <QWidget>

class QToolButton;

// A section that shows or hides its content under a flat title button with an arrow.
class Disclosure : public QWidget {
    Q_OBJECT
public:
    Disclosure(const QString &title, QWidget *content, QWidget *parent = nullptr);

    bool isExpanded() const;
    void setExpanded(bool expanded);
    QToolButton *button() const { return button_; }

Q_SIGNALS:
    void expandedChanged(bool expanded);

private:
    QToolButton *button_;
    QWidget *content_;
};
