#pragma once

#include <QWidget>

class QLabel;

// A centred icon, title and description in the secondary colour, where a list has nothing to show.
class EmptyState : public QWidget {
    Q_OBJECT
public:
    explicit EmptyState(QWidget *parent = nullptr);

    void show(const QString &symbol, const QString &title, const QString &description);
    QString title() const;
    QString description() const;

protected:
    void changeEvent(QEvent *event) override;

private:
    void recolour();

    QLabel *icon_;
    QLabel *title_;
    QLabel *description_;
    QString symbol_;
};
